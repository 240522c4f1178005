// Preloaded before the C library. Makes file operations fail and the time of day jump according to the fault
// plan; everything else passes through unchanged. Records changes of files on request.

#include "Tests/Trials/FaultPlan.h"
#include "Tests/Trials/FileRecorder.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using Kind = FaultPlan::Kind;

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

FaultPlan* mapPlan()
{
    const char* file = std::getenv(FaultPlan::fileVariable);
    const int descriptor = file != nullptr ? ::open(file, O_RDWR | O_CLOEXEC) : -1;
    if (descriptor < 0)
        return nullptr;
    void* plan = ::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    ::close(descriptor);
    return plan != MAP_FAILED ? static_cast<FaultPlan*>(plan) : nullptr;
}

/// Returns null during the lookup, which itself opens a file.
FaultPlan* plan()
{
    static thread_local bool isLooking = false;
    if (isLooking)
        return nullptr;
    isLooking = true;
    static FaultPlan* const found = mapPlan();
    isLooking = false;
    return found;
}

/// The outcome of an operation on `file`, a path or a descriptor.
enum class Outcome { passes, fails, halved };

template <typename File>
Outcome outcomeOf(FaultPlan::Operation operation, File file)
{
    FaultPlan* faults = plan();
    if (faults == nullptr || (faults->operations & operation) == 0 || !isDeviceFile(file))
        return Outcome::passes;
    ++faults->seenCount;
    if (faults->countdown <= 0)
        return Outcome::passes;
    const Kind kind = faults->kind;
    const auto left = faults->countdown.fetch_sub(1) - 1;
    if (left > 0)
        return Outcome::passes;
    if (kind == Kind::kill)
        ::kill(::getpid(), SIGKILL);
    const bool isFirst = left == 0 && faults->failedCount.fetch_add(1) == 0;
    if (kind != Kind::once)
        faults->countdown = 1;
    const bool isHalving = kind == Kind::half || kind == Kind::killHalfway;
    if (isHalving && isFirst && operation == FaultPlan::writing)
        return Outcome::halved;
    if (kind == Kind::killHalfway)
        ::kill(::getpid(), SIGKILL);
    errno = faults->error;
    return Outcome::fails;
}

template <typename Write>
ssize_t writing(int descriptor, std::size_t count, Write write)
{
    switch (outcomeOf(FaultPlan::writing, descriptor)) {
    case Outcome::passes:
        return write(count);
    case Outcome::fails:
        return -1;
    case Outcome::halved:
        break;
    }
    const ssize_t written = write(count / 2);
    if (plan()->kind == Kind::killHalfway)
        ::kill(::getpid(), SIGKILL);
    return written;
}

template <typename Function, typename... Arguments>
auto unlessFailing(FaultPlan::Operation operation, const char* name, int descriptor, Arguments... arguments)
{
    using Result = decltype(next<Function>(name)(descriptor, arguments...));
    return outcomeOf(operation, descriptor) == Outcome::passes
               ? next<Function>(name)(descriptor, arguments...)
               : Result(-1);
}

int opening(int folder, const char* path, int flags, va_list arguments)
{
    const bool isMaking = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const auto mode = isMaking ? va_arg(arguments, mode_t) : mode_t(0);
    if (outcomeOf(FaultPlan::opening, path) != Outcome::passes)
        return -1;
    const bool isCreated = willCreate(folder, path, flags);
    const int descriptor = next<int(int, const char*, int, ...)>("openat")(folder, path, flags, mode);
    recordOpening(descriptor, flags, isCreated);
    return descriptor;
}

template <typename Function>
int synchronizing(const char* name, int descriptor)
{
    const auto begin = recordedLength();
    const int result = unlessFailing<Function>(FaultPlan::synchronizing, name, descriptor);
    if (result == 0)
        recordSynchronization(descriptor, begin);
    return result;
}

std::int64_t clockOffset()
{
    const FaultPlan* faults = plan();
    return faults != nullptr ? faults->clockOffsetSeconds.load() : 0;
}

} // namespace

extern "C" {

ssize_t write(int descriptor, const void* bytes, std::size_t count)
{
    return writing(descriptor, count, [=](std::size_t part) {
        const ssize_t written = next<decltype(::write)>("write")(descriptor, bytes, part);
        recordWrite(descriptor, bytes, written, -1);
        return written;
    });
}

ssize_t pwrite64(int descriptor, const void* bytes, std::size_t count, off64_t offset)
{
    return writing(descriptor, count, [=](std::size_t part) {
        const ssize_t written = next<decltype(::pwrite64)>("pwrite64")(descriptor, bytes, part, offset);
        recordWrite(descriptor, bytes, written, offset);
        return written;
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
    return synchronizing<decltype(::fsync)>("fsync", descriptor);
}

int fdatasync(int descriptor)
{
    return synchronizing<decltype(::fdatasync)>("fdatasync", descriptor);
}

int ftruncate64(int descriptor, off64_t length) noexcept
{
    const int result =
        unlessFailing<decltype(::ftruncate64)>(FaultPlan::truncating, "ftruncate64", descriptor, length);
    if (result == 0)
        recordTruncation(descriptor, length);
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

int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int result = opening(AT_FDCWD, path, flags, arguments);
    va_end(arguments);
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

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static auto* const original = next<decltype(::clock_gettime)>("clock_gettime");
    const int result = original(clock, time);
    if (clock == CLOCK_REALTIME)
        time->tv_sec += clockOffset();
    return result;
}

int gettimeofday(timeval* time, void* zone) noexcept
{
    static auto* const original = next<int(timeval*, void*)>("gettimeofday");
    const int result = original(time, zone);
    time->tv_sec += clockOffset();
    return result;
}

time_t time(time_t* result) noexcept
{
    static auto* const original = next<decltype(::time)>("time");
    const time_t now = original(nullptr) + clockOffset();
    if (result != nullptr)
        *result = now;
    return now;
}
}
