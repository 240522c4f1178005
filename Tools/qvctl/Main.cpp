#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/StandardDescriptors.h"
#include "Tools/qvctl/CommandLine.h"
#include "Tools/qvctl/LiveSession.h"

#include <fmt/format.h>

#include <csignal>
#include <exception>
#include <system_error>

namespace {

using namespace Qvctl;

/// Runs the verb and sees that all it printed has arrived. Throws `std::system_error`.
int run(int argc, char** argv)
{
    const int exitCode = CommandLine().run(argc, argv);
    flushOutput();
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    Platform::Linux::openMissingStandardDescriptors();
    // A closed pipe or a file-size limit must fail the write, not kill the process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::broken_pipe)
            return success; // Whoever reads has seen enough.
        fmt::print(stderr, "qvctl: {}\n", error.what());
        return unavailable;
    } catch (const Platform::Linux::InvalidPolicyPath& error) {
        fmt::print(stderr, "qvctl: {}\nTry qvctl --help.\n", error.what());
        return usage;
    } catch (const std::exception& error) {
        fmt::print(stderr, "qvctl: {}\n", error.what());
        return internal;
    }
}
