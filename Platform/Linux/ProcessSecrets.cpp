#include "Platform/Linux/ProcessSecrets.h"

#include "Platform/Storage/FileDescriptor.h"

#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

namespace Platform::Linux {

namespace {

/// See core(5). Does not use PR_SET_DUMPABLE, which makes root the owner of the files in /proc/PID; a second
/// launch, qvctl and session managers read those.
void preventCoreDumps()
{
    // If core_pattern pipes dumps to a program, the kernel ignores a limit of 0, but 1 means "no dump". For
    // files, both limits are too small.
    constexpr rlimit none{.rlim_cur = 1, .rlim_max = 1};
    ::setrlimit(RLIMIT_CORE, &none);
    // In case another process raises the limit: the dump then contains no memory, only registers.
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
