#include "Platform/Linux/ProcessSecrets.h"

#include "Platform/Storage/FileDescriptor.h"

#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

namespace Platform::Linux {

namespace {

/// See core(5). PR_SET_DUMPABLE would do, but it gives the files in /proc/PID to root, and those are read by
/// the second launch, qvctl and session managers.
void preventCoreDumps()
{
    // The kernel ignores a limit of 0 when core_pattern names a program, but takes 1 for "no dump" there; for
    // files, both are too small.
    constexpr rlimit none{.rlim_cur = 1, .rlim_max = 1};
    ::setrlimit(RLIMIT_CORE, &none);
    // In case the limit is raised from outside: a dump then holds registers, but no memory.
    constexpr std::string_view noMappings = "0";
    const Storage::FileDescriptor filter(::open("/proc/self/coredump_filter", O_WRONLY | O_CLOEXEC));
    if (filter)
        static_cast<void>(::write(filter.get(), noMappings.data(), noMappings.size()) < 0);
}

} // namespace

void protectProcessSecrets(Logging::PrivateData privateData)
{
    ::unsetenv("SSLKEYLOGFILE");
    if (privateData == Logging::PrivateData::redacted)
        preventCoreDumps();
}

} // namespace Platform::Linux
