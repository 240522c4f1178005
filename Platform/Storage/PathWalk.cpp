#include "Platform/Storage/PathWalk.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <fcntl.h>
#include <span>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Storage {

namespace {

namespace fs = std::filesystem;

/// As many as the kernel follows; see path_resolution(7).
constexpr int maximumLinkCount = 40;

/// Opens an entry of a folder without following it, and without access to its content.
FileDescriptor openEntry(const FileDescriptor& folder, const fs::path& name)
{
    constexpr int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    // Asking for a folder first has an automounter mount it.
    FileDescriptor entry(::openat(folder.get(), name.c_str(), flags | O_DIRECTORY));
    if (!entry && errno == ENOTDIR)
        entry = FileDescriptor(::openat(folder.get(), name.c_str(), flags));
    return entry;
}

PathStep stepTo(const fs::path& path, const FileDescriptor& entry)
{
    PathStep step;
    step.path = path;
    if (!entry || ::fstat(entry.get(), &step.status) != 0)
        step.error = errno;
    else if (S_ISDIR(step.status.st_mode))
        step.kind = PathStep::Kind::folder;
    else if (S_ISLNK(step.status.st_mode))
        step.kind = PathStep::Kind::link;
    else
        step.kind = PathStep::Kind::other;
    return step;
}

fs::path linkTarget(const FileDescriptor& link)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
    return length > 0 ? fs::path(target.data(), target.data() + length) : fs::path();
}

void prepend(std::deque<fs::path>& ahead, const fs::path& path)
{
    const fs::path relative = path.relative_path();
    ahead.insert(ahead.begin(), relative.begin(), relative.end());
}

struct Exposure {
    /// Of the entry, which goes before it.
    std::string reason;
    const char* fix;
};

/// How a user other than root and ourselves could replace what the entry stands for; absent when none could.
std::optional<Exposure> exposureOf(const PathStep& step)
{
    if (step.kind == PathStep::Kind::missing)
        return std::nullopt;
    if (step.status.st_uid != 0 && step.status.st_uid != ::geteuid())
        return Exposure{fmt::format("belongs to user {}", step.status.st_uid),
                        "make it belong to root (chown root)"};
    const bool isSticky = step.kind == PathStep::Kind::folder && (step.status.st_mode & S_ISVTX) != 0;
    const bool isWritableByOthers = (step.status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isWritableByOthers && !isSticky && step.kind != PathStep::Kind::link)
        return Exposure{fmt::format("can be written by others (mode {:04o})", step.status.st_mode & 07777),
                        "take that away (chmod go-w)"};
    return std::nullopt;
}

/// Demands that only root and ourselves decide where the steps lead, whoever may write what they lead to.
void demandTrustedWay(const std::vector<PathStep>& steps)
{
    for (const PathStep& step : std::span(steps).first(steps.size() - 1))
        if (const auto exposure = exposureOf(step))
            throw std::runtime_error(fmt::format("{} {}", step.path.string(), exposure->reason));
}

void setMissing(PathStep& step, int error)
{
    step.kind = PathStep::Kind::missing;
    step.error = error;
}

} // namespace

std::vector<PathStep> walkPath(const fs::path& path, FileDescriptor* folder)
{
    const fs::path root = "/";
    const auto openRoot = [&] {
        return FileDescriptor(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    };
    FileDescriptor here = openRoot();
    fs::path herePath = root;
    std::vector<PathStep> steps{stepTo(root, here)};
    std::deque<fs::path> ahead;
    prepend(ahead, path);
    for (int linkCount = 0; !ahead.empty() && steps.back().kind != PathStep::Kind::missing;) {
        const fs::path component = std::move(ahead.front());
        ahead.pop_front();
        if (component.empty() || component == ".")
            continue;
        FileDescriptor entry = openEntry(here, component);
        PathStep& step = steps.emplace_back(
            stepTo(component == ".." ? herePath.parent_path() : herePath / component, entry));
        if (step.kind == PathStep::Kind::folder) {
            here = std::move(entry);
            herePath = step.path;
        } else if (step.kind == PathStep::Kind::link && ++linkCount <= maximumLinkCount) {
            const fs::path target = linkTarget(entry);
            prepend(ahead, target);
            if (target.is_absolute()) {
                here = openRoot();
                herePath = root;
            }
        } else if (step.kind == PathStep::Kind::link) {
            setMissing(step, ELOOP);
        } else if (!ahead.empty()) {
            setMissing(step, step.error != 0 ? step.error : ENOTDIR);
        }
    }
    if (folder != nullptr)
        *folder = std::move(here);
    return steps;
}

std::optional<std::string> distrustReason(const std::vector<PathStep>& steps)
{
    for (const PathStep& step : steps)
        if (const auto exposure = exposureOf(step))
            return fmt::format("{} {}: {}", step.path.string(), exposure->reason, exposure->fix);
    return std::nullopt;
}

void preparePrivateFolder(const fs::path& folder)
{
    demandTrustedWay(walkPath(folder)); // Before anything is made there.
    createPrivateFolders(folder);
    FileDescriptor found;
    const auto steps = walkPath(folder, &found);
    demandTrustedWay(steps);
    const PathStep& last = steps.back();
    if (last.kind != PathStep::Kind::folder)
        throw std::system_error(ENOTDIR, std::generic_category(), folder.string());
    if (last.status.st_uid != ::geteuid())
        throw std::runtime_error(fmt::format("{} belongs to user {}", folder.string(), last.status.st_uid));
    if ((last.status.st_mode & (S_IRWXG | S_IRWXO)) == 0)
        return;
    const FileDescriptor opened(::openat(found.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened || ::fchmod(opened.get(), S_IRWXU) != 0)
        throw std::system_error(errno, std::generic_category(), folder.string());
}

} // namespace Platform::Storage
