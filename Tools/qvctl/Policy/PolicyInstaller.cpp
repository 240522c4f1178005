#include "Tools/qvctl/Policy/PolicyInstaller.h"

#include "Platform/Linux/DevicePaths.h"
#include "Platform/Storage/PathWalk.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Policy/TrustedFolder.h"

#include <unistd.h>

namespace Qvctl::Policy {

namespace {

namespace fs = std::filesystem;
using Platform::PropertyLists::PropertyListFormat;
using Platform::Storage::PathStep;

constexpr mode_t rootFileMode = 0644;
constexpr mode_t rootFolderMode = 0755;
constexpr mode_t userFileMode = 0600;
constexpr mode_t userFolderMode = 0700;

bool isRoot()
{
    return ::geteuid() == 0;
}

const fs::path& candidateFor(PropertyListFormat format, const std::vector<fs::path>& candidates)
{
    const bool isJSON = format == PropertyListFormat::json;
    for (const fs::path& candidate : candidates) {
        if ((candidate.extension() == ".json") == isJSON)
            return candidate;
    }
    return candidates.front();
}

/// The candidates that exist. Throws `CommandError` if one of them is a folder.
std::vector<fs::path> existingFiles(const TrustedFolder& folder, const std::vector<fs::path>& candidates)
{
    std::vector<fs::path> files;
    for (const fs::path& candidate : candidates) {
        const auto status = folder.status(candidate.filename());
        if (status && S_ISDIR(status->st_mode))
            throw CommandError(configuration,
                               "nothing was changed: " + candidate.string() + " is a folder; move it away");
        if (status)
            files.push_back(candidate);
    }
    return files;
}

bool isInstalled(const TrustedFolder& folder, const fs::path& target, std::string_view bytes, mode_t mode)
{
    const auto status = folder.status(target.filename());
    return status && S_ISREG(status->st_mode) && status->st_uid == ::geteuid() &&
           (status->st_mode & 07777U) == mode && folder.read(target.filename(), bytes.size() + 1) == bytes;
}

fs::path closedFolder(const fs::path& file)
{
    for (const PathStep& step : Platform::Storage::walkPath(file)) {
        if (step.kind == PathStep::Kind::folder && (step.status.st_mode & S_IXOTH) == 0)
            return step.path;
    }
    return {};
}

} // namespace

Installation installPolicy(const std::vector<fs::path>& candidates, std::string_view bytes,
                           PropertyListFormat format)
{
    const fs::path& target = candidateFor(format, candidates);
    const mode_t fileMode = isRoot() ? rootFileMode : userFileMode;
    const auto folder =
        TrustedFolder::openOrCreate(target.parent_path(), isRoot() ? rootFolderMode : userFolderMode);
    const auto present = existingFiles(folder, candidates);
    Installation result;
    result.file = target;
    const bool isFolderWrong =
        isRoot() && folder.path() == Platform::Linux::policyFolder && folder.mode() != rootFolderMode;
    if (isFolderWrong)
        folder.setMode(rootFolderMode);
    if (isInstalled(folder, target, bytes, fileMode) && present.size() == 1) {
        result.isChanged = isFolderWrong;
        // Another program may have written the file, or an earlier attempt may have failed in the end.
        folder.synchronize(target.filename());
    } else {
        folder.replace(target.filename(), bytes, fileMode);
        for (const fs::path& file : present) {
            if (file != target)
                folder.remove(file.filename());
        }
    }
    folder.synchronize();
    if (isRoot())
        result.closedFolder = closedFolder(target);
    return result;
}

std::vector<fs::path> removePolicy(const std::vector<fs::path>& candidates)
{
    const auto folder = TrustedFolder::open(candidates.front().parent_path());
    if (!folder)
        return {};
    auto present = existingFiles(*folder, candidates);
    for (const fs::path& file : present)
        folder->remove(file.filename());
    if (!present.empty())
        folder->synchronize();
    return present;
}

} // namespace Qvctl::Policy
