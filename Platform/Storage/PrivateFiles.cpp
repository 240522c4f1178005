#include "Platform/Storage/PrivateFiles.h"

#include "Platform/Storage/PathWalk.h"

#include <fmt/format.h>

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Platform::Storage {

namespace {

namespace fs = std::filesystem;

constexpr mode_t modeOfOthers = S_IRWXG | S_IRWXO;

[[noreturn]] void failOnPath(const fs::path& path, int error)
{
    throw std::system_error(error, std::generic_category(), path.string());
}

[[noreturn]] void refuseFolder(const PathStep& step, const std::string& reason, const char* variable)
{
    throw std::runtime_error(fmt::format("{} {}; set {} to a folder that belongs to this user alone",
                                         step.path.string(), reason, variable));
}

bool isClosed(const PathStep& step)
{
    return step.kind == PathStep::Kind::folder && step.status.st_uid == ::geteuid() &&
           (step.status.st_mode & modeOfOthers) == 0;
}

bool isBelow(const fs::path& path, const fs::path& folder)
{
    return path.native().starts_with(folder.native() + '/');
}

/// Checks all steps but the last, which the caller checks.
void requirePrivateSteps(const std::vector<PathStep>& steps, const char* variable)
{
    fs::path closedFolder;
    for (std::size_t index = 0; index + 1 < steps.size(); ++index) {
        const PathStep& step = steps[index];
        if (!closedFolder.empty() && isBelow(step.path, closedFolder))
            continue;
        if (const auto exposure = exposureOf(step))
            refuseFolder(step, exposure->reason, variable);
        closedFolder = isClosed(step) ? step.path : fs::path();
    }
}

void requirePlainFile(const fs::path& file, const struct stat& status)
{
    if (S_ISLNK(status.st_mode))
        throw std::runtime_error(file.string() + " is a link; remove it");
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error(file.string() + " is not a regular file; remove it");
    if (status.st_nlink > 1)
        throw std::runtime_error(file.string() + " has several hard links; remove the others");
}

void requireOwner(const fs::path& file, const struct stat& status, uid_t owner)
{
    if (status.st_uid != owner)
        throw std::runtime_error(fmt::format("{} belongs to user {}, not to user {}; remove it",
                                             file.string(), status.st_uid, owner));
}

/// Returns the user whose rights this thread uses for file access.
uid_t fileAccessUser()
{
    constexpr auto unchanged = static_cast<uid_t>(-1);
    return static_cast<uid_t>(::setfsuid(unchanged));
}

/// Absent if the file does not exist.
std::optional<struct stat> statusOf(const fs::path& file)
{
    struct stat status {};
    if (::lstat(file.c_str(), &status) == 0)
        return status;
    if (errno != ENOENT && errno != ENOTDIR)
        failOnPath(file, errno);
    return std::nullopt;
}

} // namespace

void requirePrivateWay(const fs::path& folder, const char* variable)
{
    requirePrivateSteps(walkPath(folder), variable);
}

void preparePrivateFolder(const fs::path& folder, const char* variable)
{
    requirePrivateWay(folder, variable); // Before creating anything there.
    createPrivateFolders(folder);
    FileDescriptor holder;
    const auto steps = walkPath(folder, &holder);
    requirePrivateSteps(steps, variable);
    const PathStep& last = steps.back();
    if (last.kind != PathStep::Kind::folder)
        failOnPath(folder, ENOTDIR);
    if (last.status.st_uid != ::geteuid())
        refuseFolder(last, fmt::format("belongs to user {}", last.status.st_uid), variable);
    if (isClosed(last))
        return;
    const FileDescriptor opened(::openat(holder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened || ::fchmod(opened.get(), last.status.st_mode & S_IRWXU) != 0)
        failOnPath(folder, errno);
}

FileDescriptor openPrivateFile(const fs::path& file, int flags)
{
    constexpr int safeFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
    FileDescriptor descriptor(::open(file.c_str(), flags | safeFlags, S_IRUSR | S_IWUSR));
    struct stat status {};
    if (!descriptor && errno == ELOOP)
        throw std::runtime_error(file.string() + " is a link; remove it");
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0)
        failOnPath(file, errno);
    requirePlainFile(file, status);
    requireOwner(file, status, ::geteuid());
    if ((status.st_mode & modeOfOthers) != 0 && ::fchmod(descriptor.get(), S_IRUSR | S_IWUSR) != 0)
        failOnPath(file, errno);
    return descriptor;
}

void preparePrivateFile(const fs::path& file)
{
    const auto status = statusOf(file);
    if (!status)
        return;
    requirePlainFile(file, *status);
    requireOwner(file, *status, ::geteuid());
    // Only this user can replace the file now. If its mode cannot be changed, the folder still protects it.
    if ((status->st_mode & modeOfOthers) != 0)
        ::chmod(file.c_str(), status->st_mode & (S_IRUSR | S_IWUSR));
}

void requireReadableFile(const fs::path& file)
{
    const auto status = statusOf(file);
    if (!status)
        return;
    requirePlainFile(file, *status);
    if (status->st_uid != 0)
        requireOwner(file, *status, fileAccessUser());
}

OwnersRights::OwnersRights(const fs::path& file)
{
    struct stat status {};
    if (::geteuid() == 0 && ::lstat(file.c_str(), &status) == 0)
        ::setfsuid(status.st_uid);
}

OwnersRights::~OwnersRights()
{
    if (::geteuid() == 0)
        ::setfsuid(0);
}

} // namespace Platform::Storage
