#include "Platform/Storage/PathWalk.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace Platform::Storage {

namespace {

namespace fs = std::filesystem;

/// The kernel's limit; see path_resolution(7).
constexpr int maximumLinkCount = 40;

/// Opens an entry of a folder as O_PATH, without following a symbolic link.
FileDescriptor openEntry(const FileDescriptor& folder, const fs::path& name)
{
    constexpr int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    // Opening it as a folder first triggers an automount.
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

std::optional<Exposure> exposureOf(const PathStep& step)
{
    if (step.kind == PathStep::Kind::missing)
        return std::nullopt;
    if (step.status.st_uid != 0 && step.status.st_uid != ::geteuid())
        return Exposure{fmt::format("belongs to user {}", step.status.st_uid),
                        "change its owner to root (chown root)"};
    const bool isSticky = step.kind == PathStep::Kind::folder && (step.status.st_mode & S_ISVTX) != 0;
    const bool isWritableByOthers = (step.status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isWritableByOthers && !isSticky && step.kind != PathStep::Kind::link)
        return Exposure{fmt::format("can be written by others (mode {:04o})", step.status.st_mode & 07777),
                        "remove that permission (chmod go-w)"};
    return std::nullopt;
}

std::optional<std::string> distrustReason(const std::vector<PathStep>& steps)
{
    for (const PathStep& step : steps)
        if (const auto exposure = exposureOf(step))
            return fmt::format("{} {}: {}", step.path.string(), exposure->reason, exposure->fix);
    return std::nullopt;
}

} // namespace Platform::Storage
