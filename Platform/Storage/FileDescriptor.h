#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

namespace Platform::Storage {

/// Owns a file descriptor; -1 means none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~FileDescriptor();

    [[nodiscard]] int get() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }

private:
    int m_descriptor = -1;
};

/// Creates the folder and its missing parents, accessible only to the user; they survive a power cut. Throws
/// `std::system_error` with the path of the folder that could not be created.
void createPrivateFolders(const std::filesystem::path& folder);

/// Blocks until the disk holds the names in `folder`. Ignores errors, as SQLite does, because some file
/// systems do not support this.
void synchronizeFolder(const std::filesystem::path& folder);

/// Writes all of `bytes`. Blocks while a non-blocking descriptor is not ready. Throws `std::system_error`.
void writeAll(int descriptor, std::string_view bytes);

} // namespace Platform::Storage
