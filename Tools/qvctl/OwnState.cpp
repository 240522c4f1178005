#include "Tools/qvctl/OwnState.h"

#include "Core/Constants.h"
#include "Platform/Storage/PathWalk.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/UserAccounts.h"

#include <fmt/format.h>

#include <array>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace Qvctl {

namespace {

namespace fs = std::filesystem;
using Platform::Storage::PathStep;

[[noreturn]] void refuse(const std::string& reason)
{
    throw CommandError(unavailable, "nothing was changed: " + reason);
}

void requireOwner(const fs::path& path, uid_t owner)
{
    if (owner != ::geteuid())
        refuse(fmt::format("{} belongs to user {}; run this command as that user", path.string(),
                           userName(owner)));
}

/// The files of a store must belong to this user and must not be symbolic links.
void requireOwnFiles(const fs::path& store)
{
    for (const char* ending : {"", "-wal", "-shm"}) {
        const fs::path file = store.string() + ending;
        struct stat status {};
        if (::lstat(file.c_str(), &status) != 0)
            continue;
        if (S_ISLNK(status.st_mode))
            refuse(fmt::format("{} is a symbolic link; remove it", file.string()));
        requireOwner(file, status.st_uid);
    }
}

} // namespace

std::string requireOwnState(const Platform::Linux::DevicePaths& paths)
{
    const auto steps = Platform::Storage::walkPath(paths.stateFolder);
    const PathStep& last = steps.back();
    if (last.kind != PathStep::Kind::missing)
        requireOwner(paths.stateFolder, last.status.st_uid);
    // Missing folders are created on first write, so for root the existing part of the path must be trusted.
    if (::geteuid() == 0) {
        if (const auto reason = Platform::Storage::distrustReason(steps))
            refuse(fmt::format("root's state would be stored in {}, but {}", paths.stateFolder.string(),
                               *reason));
    }
    const fs::path suite = paths.suite(Core::Constants::appGroupSuiteName);
    for (const fs::path& store : {paths.shellState(), suite}) {
        requireOwnFiles(store);
        requireOwnFiles(fs::path(store).replace_extension(".bell"));
    }
    return userName(::geteuid());
}

} // namespace Qvctl
