#include "Tests/Trials/FileRecorder.h"

#include "Tests/Trials/FaultPlan.h"
#include "Tests/Trials/FileRecord.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

using Kind = FileRecord::Kind;

/// The descriptor of the recording, or -1.
int recording()
{
    static const int descriptor = [] {
        const char* file = std::getenv(FileRecord::fileVariable);
        constexpr int flags = O_RDWR | O_APPEND | O_CLOEXEC;
        // `open` is replaced by this library.
        return file != nullptr ? static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file, flags, 0)) : -1;
    }();
    return descriptor;
}

std::string absolutePath(int folder, const char* path)
{
    return *path == '/' ? path : (folder == AT_FDCWD ? "." : pathOf(folder)) + "/" + path;
}

/// Appends the record by one system call, so that those of several threads and processes do not mix.
void append(FileRecord record, const std::string& path, std::string_view bytes = {})
{
    // The slash, because the path may be the device's folder itself.
    if (recording() < 0 || !isDeviceFile((path + '/').c_str()))
        return;
    const int error = errno;
    record.pathLength = static_cast<std::uint32_t>(path.size());
    record.byteCount = bytes.size();
    const std::array<iovec, 3> parts{{{&record, sizeof record},
                                      {const_cast<char*>(path.data()), path.size()},
                                      {const_cast<char*>(bytes.data()), bytes.size()}}};
    const auto size = static_cast<ssize_t>(sizeof record + path.size() + bytes.size());
    if (::writev(recording(), parts.data(), parts.size()) != size)
        std::abort();
    errno = error;
}

std::uint64_t inodeOf(int descriptor)
{
    struct stat status {};
    ::fstat(descriptor, &status);
    return status.st_ino;
}

void appendFolder(const std::string& path)
{
    struct stat status {};
    ::lstat(path.c_str(), &status);
    append({.kind = Kind::createFolder, .inode = status.st_ino}, path);
}

/// Calls the function that this library replaces. `record` is called if it returns 0.
template <typename Function, typename Record, typename... Arguments>
int recorded(const char* name, Record record, Arguments... arguments)
{
    const int result = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name))(arguments...);
    if (result == 0 && recording() >= 0)
        record();
    return result;
}

} // namespace

bool isDeviceFile(const char* path)
{
    static const char* const folder = std::getenv(FaultPlan::folderVariable);
    return folder != nullptr && std::strncmp(path, folder, std::strlen(folder)) == 0;
}

bool isDeviceFile(int descriptor)
{
    return isDeviceFile(pathOf(descriptor).c_str());
}

std::string pathOf(int descriptor)
{
    const int error = errno;
    std::array<char, 32> link{};
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
    std::array<char, 4096> path{};
    if (::readlink(link.data(), path.data(), path.size() - 1) < 0)
        path.fill('\0');
    errno = error;
    return path.data();
}

bool willCreate(int folder, const char* path, int flags)
{
    const int error = errno;
    const bool isMissing = (flags & O_CREAT) != 0 && recording() >= 0 &&
                           ::faccessat(folder, path, F_OK, AT_SYMLINK_NOFOLLOW) != 0;
    errno = error;
    return isMissing;
}

void recordOpening(int descriptor, int flags, bool isCreated)
{
    if (descriptor < 0 || recording() < 0)
        return;
    if (isCreated)
        append({.kind = Kind::createFile, .inode = inodeOf(descriptor)}, pathOf(descriptor));
    else if ((flags & O_TRUNC) != 0)
        recordTruncation(descriptor, 0);
}

void recordWrite(int descriptor, const void* bytes, ssize_t count, off64_t offset)
{
    if (count <= 0 || recording() < 0)
        return;
    const std::string path = pathOf(descriptor);
    if (!isDeviceFile(path.c_str()))
        return;
    const auto begin = offset >= 0 ? offset : ::lseek64(descriptor, 0, SEEK_CUR) - count;
    append({.kind = Kind::write, .inode = inodeOf(descriptor), .offset = static_cast<std::uint64_t>(begin)},
           path, {static_cast<const char*>(bytes), static_cast<std::size_t>(count)});
}

void recordTruncation(int descriptor, off64_t length)
{
    append(
        {.kind = Kind::truncate, .inode = inodeOf(descriptor), .offset = static_cast<std::uint64_t>(length)},
        pathOf(descriptor));
}

std::uint64_t recordedLength()
{
    struct stat status {};
    return recording() >= 0 && ::fstat(recording(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size)
                                                                  : 0;
}

void recordSynchronization(int descriptor, std::uint64_t begin)
{
    append({.kind = Kind::synchronize, .inode = inodeOf(descriptor), .offset = begin}, pathOf(descriptor));
}

// Never made to fail, only recorded.
extern "C" {

int renameat(int folder, const char* path, int newFolder, const char* newPath) noexcept
{
    return recorded<decltype(::renameat)>(
        "renameat",
        [=] { append({.kind = Kind::rename}, absolutePath(folder, path), absolutePath(newFolder, newPath)); },
        folder, path, newFolder, newPath);
}

int rename(const char* path, const char* newPath) noexcept
{
    return ::renameat(AT_FDCWD, path, AT_FDCWD, newPath);
}

int unlinkat(int folder, const char* path, int flags) noexcept
{
    return recorded<decltype(::unlinkat)>(
        "unlinkat", [=] { append({.kind = Kind::remove}, absolutePath(folder, path)); }, folder, path, flags);
}

int unlink(const char* path) noexcept
{
    return ::unlinkat(AT_FDCWD, path, 0);
}

int mkdirat(int folder, const char* path, mode_t mode) noexcept
{
    return recorded<decltype(::mkdirat)>(
        "mkdirat", [=] { appendFolder(absolutePath(folder, path)); }, folder, path, mode);
}

int mkdir(const char* path, mode_t mode) noexcept
{
    return ::mkdirat(AT_FDCWD, path, mode);
}
}
