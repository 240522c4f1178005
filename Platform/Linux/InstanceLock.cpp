#include "Platform/Linux/InstanceLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>

namespace Platform::Linux {

namespace {

struct flock wholeFile()
{
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

std::optional<InstanceLock> InstanceLock::acquire(const std::filesystem::path& file)
{
    createPrivateFolders(file.parent_path());
    FileDescriptor descriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!descriptor)
        throw std::system_error(errno, std::generic_category(), file.string());
    struct flock lock = wholeFile();
    if (::fcntl(descriptor.get(), F_SETLK, &lock) == 0)
        return InstanceLock(std::move(descriptor));
    if (errno == EACCES || errno == EAGAIN)
        return std::nullopt;
    throw std::system_error(errno, std::generic_category(), file.string());
}

std::optional<pid_t> InstanceLock::holder(const std::filesystem::path& file)
{
    const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    struct flock lock = wholeFile();
    if (!descriptor || ::fcntl(descriptor.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return std::nullopt;
    return lock.l_pid;
}

} // namespace Platform::Linux
