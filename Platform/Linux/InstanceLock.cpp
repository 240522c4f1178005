#include "Platform/Linux/InstanceLock.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

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

bool InstanceLock::isEnding(pid_t holder, std::chrono::milliseconds time)
{
    // The library of this system has no pidfd_open() of its own.
    const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, holder, 0U)));
    if (!process)
        return errno == ESRCH;
    pollfd end{.fd = process.get(), .events = POLLIN, .revents = 0};
    return ::poll(&end, 1, static_cast<int>(time.count())) == 1;
}

} // namespace Platform::Linux
