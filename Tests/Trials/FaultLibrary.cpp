// Preloaded before the C library. Makes file operations fail and the time of day jump according to the fault
// plan; everything else passes through unchanged. Records changes of files on request.

#include "Tests/Trials/FaultPlan.h"
#include "Tests/Trials/FileRecord.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

using Kind = FileRecord::Kind;

/// Returns the function that this library replaces.
template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Opens the file that an environment variable names, or returns -1. Does not use the functions below.
int openNamedBy(const char* variable, int flags)
{
    const char* file = std::getenv(variable);
    return file != nullptr
               ? static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file, flags | O_RDWR | O_CLOEXEC, 0))
               : -1;
}

bool isDeviceFile(const std::string& path)
{
    static const char* const folder = std::getenv(FaultPlan::folderVariable);
    return folder != nullptr && path.starts_with(folder);
}

std::string pathOf(const char* path)
{
    return path;
}

/// Returns an empty string for a closed descriptor.
std::string pathOf(int descriptor)
{
    const int error = errno;
    std::array<char, 4096> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (::readlink(link.c_str(), path.data(), path.size() - 1) < 0)
        errno = error;
    return path.data();
}

std::string absolutePath(int folder, const char* path)
{
    return *path == '/' ? path : (folder == AT_FDCWD ? "." : pathOf(folder)) + "/" + path;
}

/// The descriptor of the recording, or -1.
int recording()
{
    static const int descriptor = openNamedBy(FileRecord::fileVariable, O_APPEND);
    return descriptor;
}

std::uint64_t recordedBytes()
{
    struct stat status {};
    return ::fstat(recording(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

/// Appends a record by one system call, so that those of several threads and processes do not mix.
void record(Kind kind, std::string path, std::uint64_t offset = 0, std::string_view bytes = {})
{
    // The slash, because the path may be the device's folder itself.
    if (recording() < 0 || !isDeviceFile(path + '/'))
        return;
    FileRecord head{kind, static_cast<std::uint32_t>(path.size()), bytes.size(), offset};
    const std::array<iovec, 3> parts{
        {{&head, sizeof head}, {path.data(), path.size()}, {const_cast<char*>(bytes.data()), bytes.size()}}};
    const auto size = static_cast<ssize_t>(sizeof head + path.size() + bytes.size());
    if (::writev(recording(), parts.data(), parts.size()) != size)
        std::abort();
}

FaultPlan* mapPlan()
{
    const int descriptor = openNamedBy(FaultPlan::fileVariable, 0);
    void* plan = ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    ::close(descriptor);
    return plan != MAP_FAILED ? static_cast<FaultPlan*>(plan) : nullptr;
}

FaultPlan* plan()
{
    static FaultPlan* const mapped = mapPlan();
    return mapped;
}

enum class Outcome { passes, fails, halved };

/// Returns the outcome of an operation on `file`, a path or a descriptor.
template <typename File>
Outcome outcomeOf(FaultPlan::Operation operation, File file)
{
    FaultPlan* faults = plan();
    if (faults == nullptr || (faults->operations & operation) == 0 || faults->countdown <= 0 ||
        !isDeviceFile(pathOf(file)))
        return Outcome::passes;
    const FaultPlan::Kind kind = faults->kind;
    std::int64_t left = faults->countdown;
    do {
        if (left <= 0) // The trial has ended the fault.
            return Outcome::passes;
    } while (!faults->countdown.compare_exchange_weak(
        left, left == 1 && kind != FaultPlan::Kind::once ? 1 : left - 1));
    if (left > 1)
        return Outcome::passes;
    const bool isFirst = faults->failedCount.fetch_add(1) == 0;
    errno = faults->error;
    return kind == FaultPlan::Kind::half && isFirst ? Outcome::halved : Outcome::fails;
}

/// Calls the replaced function unless it fails.
template <typename Function, typename... Arguments>
auto unlessFailing(FaultPlan::Operation operation, const char* name, int descriptor, Arguments... arguments)
{
    using Result = decltype(next<Function>(name)(descriptor, arguments...));
    return outcomeOf(operation, descriptor) == Outcome::passes
               ? next<Function>(name)(descriptor, arguments...)
               : Result(-1);
}

/// `write` is called with the number of bytes, and returns how many it has written. They are recorded at
/// `offset`; if it is negative, before the current position.
template <typename Write>
ssize_t writing(int descriptor, const void* bytes, std::size_t count, off64_t offset, Write write)
{
    const Outcome outcome = outcomeOf(FaultPlan::writing, descriptor);
    const ssize_t written =
        outcome == Outcome::fails ? -1 : write(outcome == Outcome::halved ? count / 2 : count);
    if (written > 0 && recording() >= 0) {
        const off64_t begin = offset >= 0 ? offset : ::lseek64(descriptor, 0, SEEK_CUR) - written;
        record(Kind::write, pathOf(descriptor), static_cast<std::uint64_t>(begin),
               {static_cast<const char*>(bytes), static_cast<std::size_t>(written)});
    }
    return written;
}

int opening(int folder, const char* path, int flags, va_list arguments)
{
    const bool isMaking = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const auto mode = isMaking ? va_arg(arguments, mode_t) : mode_t(0);
    if (outcomeOf(FaultPlan::opening, path) != Outcome::passes)
        return -1;
    const bool isNew = recording() >= 0 && (flags & O_CREAT) != 0 &&
                       ::faccessat(folder, path, F_OK, AT_SYMLINK_NOFOLLOW) != 0;
    const int descriptor = next<decltype(::openat)>("openat")(folder, path, flags, mode);
    if (descriptor >= 0 && (isNew || (flags & O_TRUNC) != 0))
        record(isNew ? Kind::createFile : Kind::truncate, pathOf(descriptor));
    return descriptor;
}

/// Calls a replaced function that changes the folder of `path`, and records that.
template <typename Function, typename... Arguments>
int changing(const char* name, Kind kind, int folder, const char* path, const std::string& newPath,
             Arguments... arguments)
{
    const int result = next<Function>(name)(folder, path, arguments...);
    if (result == 0)
        record(kind, absolutePath(folder, path), 0, newPath);
    return result;
}

} // namespace

extern "C" {

ssize_t write(int descriptor, const void* bytes, std::size_t count)
{
    return writing(descriptor, bytes, count, -1, [=](std::size_t part) {
        return next<decltype(::write)>("write")(descriptor, bytes, part);
    });
}

ssize_t pwrite64(int descriptor, const void* bytes, std::size_t count, off64_t offset)
{
    return writing(descriptor, bytes, count, offset, [=](std::size_t part) {
        return next<decltype(::pwrite64)>("pwrite64")(descriptor, bytes, part, offset);
    });
}

ssize_t read(int descriptor, void* bytes, std::size_t count)
{
    return unlessFailing<decltype(::read)>(FaultPlan::reading, "read", descriptor, bytes, count);
}

ssize_t pread64(int descriptor, void* bytes, std::size_t count, off64_t offset)
{
    return unlessFailing<decltype(::pread64)>(FaultPlan::reading, "pread64", descriptor, bytes, count,
                                              offset);
}

int fsync(int descriptor)
{
    const auto begin = recordedBytes();
    const int result = unlessFailing<decltype(::fsync)>(FaultPlan::synchronizing, "fsync", descriptor);
    if (result == 0)
        record(Kind::synchronize, pathOf(descriptor), begin);
    return result;
}

int fdatasync(int descriptor)
{
    return ::fsync(descriptor);
}

int ftruncate64(int descriptor, off64_t length) noexcept
{
    const int result =
        unlessFailing<decltype(::ftruncate64)>(FaultPlan::truncating, "ftruncate64", descriptor, length);
    if (result == 0)
        record(Kind::truncate, pathOf(descriptor), static_cast<std::uint64_t>(length));
    return result;
}

int openat(int folder, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int result = opening(folder, path, flags, arguments);
    va_end(arguments);
    return result;
}

int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int result = opening(AT_FDCWD, path, flags, arguments);
    va_end(arguments);
    return result;
}

int open64(const char* path, int flags, ...) __attribute__((alias("open")));

// Never made to fail, only recorded.

int renameat(int folder, const char* path, int newFolder, const char* newPath) noexcept
{
    return changing<decltype(::renameat)>("renameat", Kind::rename, folder, path,
                                          absolutePath(newFolder, newPath), newFolder, newPath);
}

int rename(const char* path, const char* newPath) noexcept
{
    return ::renameat(AT_FDCWD, path, AT_FDCWD, newPath);
}

int unlinkat(int folder, const char* path, int flags) noexcept
{
    return changing<decltype(::unlinkat)>("unlinkat", Kind::remove, folder, path, "", flags);
}

int unlink(const char* path) noexcept
{
    return ::unlinkat(AT_FDCWD, path, 0);
}

int mkdirat(int folder, const char* path, mode_t mode) noexcept
{
    return changing<decltype(::mkdirat)>("mkdirat", Kind::createFolder, folder, path, "", mode);
}

int mkdir(const char* path, mode_t mode) noexcept
{
    return ::mkdirat(AT_FDCWD, path, mode);
}

/// Read by std::chrono::system_clock.
int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static auto* const original = next<decltype(::clock_gettime)>("clock_gettime");
    const int result = original(clock, time);
    if (clock == CLOCK_REALTIME && plan() != nullptr)
        time->tv_sec += plan()->clockOffsetSeconds;
    return result;
}
}
