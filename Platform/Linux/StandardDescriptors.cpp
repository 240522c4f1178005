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
        // open() returns the lowest free number, which is this one. If there is no /dev/null, a descriptor
        // without read or write access reserves the number.
        if (::open("/dev/null", O_RDWR) < 0)
            static_cast<void>(::open("/", O_PATH));
    }
}

} // namespace Platform::Linux
