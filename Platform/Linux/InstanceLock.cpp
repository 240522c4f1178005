#include "Platform/Linux/InstanceLock.h"

#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/ProcessDescriptor.h"
#include "Platform/Linux/ProgramFile.h"
#include "Platform/Storage/PrivateFiles.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Linux {

namespace {

struct flock wholeFile()
{
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/// An instance that exits when signaled locks only the first byte, which tells other launches to wait for it.
constexpr off_t lengthIfItExits = 1;

/// Name and user ids of a process. Any user may read them, unlike its executable; see proc(5).
struct ProcessIdentity {
    static constexpr std::string_view nameField = "Name:\t";
    std::string name;
    std::string users;

    explicit ProcessIdentity(const std::string& process)
    {
        std::ifstream status("/proc/" + process + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with(nameField))
                name = line.substr(nameField.size());
            else if (line.starts_with("Uid:"))
                users = line;
        }
    }
    bool operator==(const ProcessIdentity&) const = default;
};

} // namespace

std::optional<InstanceLock> InstanceLock::acquire(const std::filesystem::path& file,
                                                  WhenSignaled whenSignaled)
{
    Storage::preparePrivateFolder(file.parent_path(), "XDG_DATA_HOME");
    Storage::FileDescriptor descriptor = Storage::openPrivateFile(file, O_RDWR | O_CREAT);
    struct flock lock = wholeFile();
    if (whenSignaled == WhenSignaled::exits)
        lock.l_len = lengthIfItExits;
    if (::fcntl(descriptor.get(), F_SETLK, &lock) == 0)
        return InstanceLock(std::move(descriptor));
    if (errno == EACCES || errno == EAGAIN)
        return std::nullopt;
    throw std::system_error(errno, std::generic_category(), file.string());
}

std::optional<InstanceLock::Holder> InstanceLock::holder(const std::filesystem::path& file)
{
    struct flock lock = wholeFile();
    const Storage::FileDescriptor descriptor(
        ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    if (!descriptor || ::fcntl(descriptor.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return std::nullopt;
    // 0: a process outside our PID namespace. Negative: an open file description lock, or another machine.
    if (lock.l_pid <= 0)
        return Holder{};
    return Holder{lock.l_pid, ProcessIdentity(std::to_string(lock.l_pid)).name,
                  lock.l_len == lengthIfItExits ? WhenSignaled::exits : WhenSignaled::opensWindow};
}

bool InstanceLock::Holder::isApplication() const
{
    return program.empty() || program == programName;
}

std::optional<bool> InstanceLock::Holder::isOutdated() const
{
    const auto file = process ? ProgramFile::of(std::to_string(*process)) : std::nullopt;
    return file ? std::optional(file->isReplaced) : std::nullopt;
}

InstanceLock::SignalOutcome InstanceLock::signalHolder(const std::filesystem::path& file, int signal,
                                                       std::chrono::milliseconds usualTime,
                                                       std::chrono::milliseconds exitTime)
{
    const auto found = holder(file);
    if (!found)
        return SignalOutcome::ended;
    if (!found->process)
        return SignalOutcome::unreachable;
    const Storage::FileDescriptor process = openProcess(*found->process);
    if (!process)
        return errno == ESRCH ? SignalOutcome::ended : SignalOutcome::foreign;
    // The PID may have been reused before it was opened. If that PID still holds the lock, the descriptor
    // refers to the holder, and to no other process from now on.
    const auto confirmed = holder(file);
    if (!confirmed || confirmed->process != found->process)
        return SignalOutcome::ended;
    if (ProcessIdentity(std::to_string(*found->process)) != ProcessIdentity("self"))
        return SignalOutcome::foreign;
    if (!sendSignal(process, signal))
        return errno == ESRCH ? SignalOutcome::ended : SignalOutcome::foreign;
    const auto timeout = confirmed->whenSignaled == WhenSignaled::exits ? exitTime : usualTime;
    pollfd end{.fd = process.get(), .events = POLLIN, .revents = 0};
    return ::poll(&end, 1, static_cast<int>(timeout.count())) == 1 ? SignalOutcome::ended
                                                                   : SignalOutcome::delivered;
}

} // namespace Platform::Linux
