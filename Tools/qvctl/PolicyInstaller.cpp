#include "Tools/qvctl/PolicyInstaller.h"

#include "Platform/Linux/FileDescriptor.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qvctl {

namespace {

namespace fs = std::filesystem;
using Platform::Linux::FileDescriptor;
using Platform::Linux::PropertyListFormat;

[[noreturn]] void throwError(const fs::path& path)
{
    throw std::system_error(errno, std::generic_category(), path.string());
}

/// That of the file to be replaced; else what the application, which runs as the user, can read.
mode_t modeFor(const fs::path& target)
{
    struct stat status {};
    if (::stat(target.c_str(), &status) == 0)
        return status.st_mode & 07777U & ~static_cast<mode_t>(S_IWGRP | S_IWOTH);
    return ::geteuid() == 0 ? S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH : S_IRUSR | S_IWUSR;
}

/// A file that is removed again unless it was renamed to its final name.
class TemporaryFile {
public:
    explicit TemporaryFile(const fs::path& target)
        : m_path(target.parent_path() / ("." + target.filename().string() + ".XXXXXX")),
          m_file(::mkostemp(m_path.data(), O_CLOEXEC))
    {
        if (!m_file)
            throwError(target.parent_path());
    }
    ~TemporaryFile()
    {
        if (!m_isRenamed)
            ::unlink(m_path.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(std::string_view bytes, mode_t mode)
    {
        if (::fchmod(m_file.get(), mode) != 0)
            throwError(m_path);
        Platform::Linux::writeAll(m_file.get(), bytes);
        if (::fsync(m_file.get()) != 0)
            throwError(m_path);
    }
    void renameTo(const fs::path& target)
    {
        if (::rename(m_path.c_str(), target.c_str()) != 0)
            throwError(target);
        m_isRenamed = true;
    }

private:
    std::string m_path;
    FileDescriptor m_file;
    bool m_isRenamed = false;
};

} // namespace

fs::path installPolicy(const std::vector<fs::path>& candidates, std::string_view bytes,
                       PropertyListFormat format)
{
    const bool isJSON = format == PropertyListFormat::json;
    fs::path target = candidates.front();
    for (const fs::path& candidate : candidates) {
        if ((candidate.extension() == ".json") == isJSON) {
            target = candidate;
            break;
        }
    }
    std::error_code error;
    fs::create_directories(target.parent_path(), error);
    if (error)
        throw std::system_error(error, target.parent_path().string());
    TemporaryFile file(target);
    file.write(bytes, modeFor(target));
    file.renameTo(target);
    const FileDescriptor folder(::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const fs::path& candidate : candidates) {
        if (candidate != target)
            fs::remove(candidate);
    }
    ::fsync(folder.get());
    return target;
}

std::vector<fs::path> removePolicy(const std::vector<fs::path>& candidates)
{
    std::vector<fs::path> removed;
    for (const fs::path& candidate : candidates) {
        if (fs::remove(candidate))
            removed.push_back(candidate);
    }
    return removed;
}

} // namespace Qvctl
