#include "Platform/Linux/PathWalk.h"

#include <fmt/format.h>

#include <deque>
#include <unistd.h>

namespace Platform::Linux {

namespace {

namespace fs = std::filesystem;

/// As many as the kernel follows; see path_resolution(7).
constexpr int maximumLinkCount = 40;

PathStep stepTo(const fs::path& path)
{
    PathStep step;
    step.path = path;
    if (::lstat(path.c_str(), &step.status) != 0)
        step.kind = PathStep::Kind::missing;
    else if (S_ISDIR(step.status.st_mode))
        step.kind = PathStep::Kind::folder;
    else if (S_ISLNK(step.status.st_mode))
        step.kind = PathStep::Kind::link;
    else
        step.kind = PathStep::Kind::other;
    return step;
}

void prepend(std::deque<fs::path>& ahead, const fs::path& path)
{
    const fs::path relative = path.relative_path();
    ahead.insert(ahead.begin(), relative.begin(), relative.end());
}

} // namespace

std::vector<PathStep> walkPath(const fs::path& path)
{
    std::vector<PathStep> steps{stepTo("/")};
    std::deque<fs::path> ahead;
    prepend(ahead, path);
    fs::path here = "/";
    for (int linkCount = 0; !ahead.empty();) {
        const fs::path component = std::move(ahead.front());
        ahead.pop_front();
        if (component.empty() || component == ".")
            continue;
        if (component == "..") {
            here = here.parent_path();
            continue;
        }
        PathStep step = stepTo(here / component);
        if (step.kind == PathStep::Kind::link && ++linkCount > maximumLinkCount)
            step.kind = PathStep::Kind::missing;
        steps.push_back(step);
        if (step.kind == PathStep::Kind::folder) {
            here = step.path;
        } else if (step.kind == PathStep::Kind::link) {
            std::error_code error;
            const fs::path target = fs::read_symlink(step.path, error);
            prepend(ahead, target);
            if (target.is_absolute())
                here = "/";
        } else {
            break;
        }
    }
    return steps;
}

std::optional<std::string> distrustReason(const std::vector<PathStep>& steps)
{
    for (const PathStep& step : steps) {
        if (step.kind == PathStep::Kind::missing)
            continue;
        if (step.status.st_uid != 0 && step.status.st_uid != ::geteuid())
            return fmt::format("{} belongs to user {}: make it belong to root (chown root)",
                               step.path.string(), step.status.st_uid);
        const bool isSticky = step.kind == PathStep::Kind::folder && (step.status.st_mode & S_ISVTX) != 0;
        const bool isWritableByOthers = (step.status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
        if (isWritableByOthers && !isSticky && step.kind != PathStep::Kind::link)
            return fmt::format("{} can be written by others (mode {:04o}): take that away (chmod go-w)",
                               step.path.string(), step.status.st_mode & 07777);
    }
    return std::nullopt;
}

} // namespace Platform::Linux
