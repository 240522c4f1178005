#include "Tools/qvctl/Policy/PolicyFiles.h"

#include "Platform/Storage/FileDescriptor.h"
#include "Tools/qvctl/Output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Qvctl::Policy {

using namespace Platform::PropertyLists;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;

PolicyFileReading readNamedPolicy(const std::string& name)
{
    if (name == "-")
        return readPolicyStream(STDIN_FILENO, name, WithPlaces::yes);
    struct stat status {};
    const bool isStream =
        ::stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    // Unlike the app, this waits for the writer of a pipe.
    const FileDescriptor stream(isStream ? ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY) : -1);
    return stream ? readPolicyStream(stream.get(), name, WithPlaces::yes)
                  : readPolicyFile(name, TrustCheck::skipped, WithPlaces::yes);
}

ExitCode failUnusable(const Options& options, const PolicyFileReading& reading)
{
    const std::string reason = reading.state == PolicyFileReading::State::missing
                                   ? reading.path.string() + ": no such file"
                                   : reading.diagnostic();
    const bool isAbsent = reading.state == PolicyFileReading::State::missing ||
                          reading.state == PolicyFileReading::State::unreadable;
    return fail(options, isAbsent ? noInput : configuration, reason, {{"path", reading.path.string()}});
}

} // namespace Qvctl::Policy
