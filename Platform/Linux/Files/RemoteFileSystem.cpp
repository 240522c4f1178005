#include "Platform/Linux/Files/RemoteFileSystem.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <linux/magic.h>
#include <set>
#include <sys/vfs.h>

namespace Platform::Linux::Files {

namespace {

using Storage::PathStep;

/// Network file systems, those of a server program (FUSE, which includes virtiofs) and of a virtual machine's
/// host (9p). Not overlayfs: changes of its upper layer are reported, and a change of a lower layer has no
/// defined effect while it is mounted.
constexpr std::array<std::uint32_t, 10> remoteTypes{
    NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC,  CIFS_SUPER_MAGIC,  SMB2_SUPER_MAGIC, AFS_SUPER_MAGIC,
    CODA_SUPER_MAGIC, CEPH_SUPER_MAGIC, OCFS2_SUPER_MAGIC, FUSE_SUPER_MAGIC, V9FS_MAGIC,
};

} // namespace

bool hasRemoteFiles(const std::vector<PathStep>& steps)
{
    std::set<dev_t> localDevices;
    return std::any_of(steps.begin(), steps.end(), [&](const PathStep& step) {
        const bool isResolved = step.kind == PathStep::Kind::folder || step.kind == PathStep::Kind::other;
        if (!isResolved || !localDevices.insert(step.status.st_dev).second)
            return false;
        struct statfs status {};
        return ::statfs(step.path.c_str(), &status) == 0 &&
               std::find(remoteTypes.begin(), remoteTypes.end(), static_cast<std::uint32_t>(status.f_type)) !=
                   remoteTypes.end();
    });
}

} // namespace Platform::Linux::Files
