#include "Platform/Linux/StandardDescriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Platform::Linux {

void openMissingStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF)
            continue;
        // The lowest free number is this one. Where there is no /dev/null, a descriptor without access keeps
        // the number taken.
        if (::open("/dev/null", O_RDWR) < 0)
            static_cast<void>(::open("/", O_PATH));
    }
}

} // namespace Platform::Linux
