#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>

/// A new folder for one test, deleted with its contents on destruction. From then on, new files are writable
/// by their owner only: a policy file that others can write is not used.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        ::umask(022);
        std::string pattern = std::filesystem::temp_directory_path() / "quorvane-test.XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot create " + pattern);
        m_path = pattern;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] std::filesystem::path path(std::string_view name = {}) const { return m_path / name; }

    /// Overwrites the file in place; creates missing parent folders.
    void write(std::string_view name, std::string_view content) const
    {
        std::filesystem::create_directories(path(name).parent_path());
        std::ofstream(path(name), std::ios::binary) << content;
    }
    /// Replaces the file atomically: writes a new one and renames it.
    void replace(std::string_view name, std::string_view content) const
    {
        write(std::string(name).append(".new"), content);
        std::filesystem::rename(path(std::string(name).append(".new")), path(name));
    }
    [[nodiscard]] std::string read(std::string_view name) const
    {
        std::ifstream stream(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    std::filesystem::path m_path;
};
