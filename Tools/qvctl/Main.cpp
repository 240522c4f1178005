#include "Platform/Linux/ProcessSecrets.h"
#include "Platform/Linux/StandardDescriptors.h"
#include "Tools/qvctl/CommandLine.h"
#include "Tools/qvctl/Output.h"

#include <csignal>
#include <exception>

int main(int argc, char** argv)
{
    Platform::Linux::openMissingStandardDescriptors();
    // A closed pipe or a file-size limit must fail the write, not kill the process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    Platform::Linux::protectProcessSecrets(Platform::Linux::Logging::privateDataFromEnvironment());
    using namespace Qvctl;
    try {
        return CommandLine().run(argc, argv);
    } catch (const OutputError& error) {
        printError("{}", error.what());
        return unavailable;
    } catch (const std::exception& error) {
        printError("{}", error.what());
        return internal;
    }
}
