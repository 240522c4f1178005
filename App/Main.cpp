#include "App/Launch.h"
#include "App/LaunchOptions.h"
#include "Platform/Desktop/GuiApplication.h"
#include "Platform/ExitCode.h"
#include "Platform/Linux/Device.h"
#include "Platform/Linux/ProgramRestart.h"

#include <cstdio>
#include <exception>
#include <variant>

// The adapters for the target system.
namespace System = Platform::Linux;

namespace {

Platform::ExitCode fail(Platform::ExitCode exitCode, const std::exception& error)
{
    std::fprintf(stderr, "quorvane-mdm: %s\n", error.what());
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    System::prepareProcess();
    const auto parsed = App::parseCommandLine(argc, argv);
    if (const auto* exitCode = std::get_if<Platform::ExitCode>(&parsed))
        return *exitCode;
    const auto& options = std::get<Platform::DeviceOptions>(parsed);
    System::ProgramRestart restart(App::backgroundArguments(argc, argv, options));
    Platform::ExitCode failure = Platform::configuration;
    try {
        const auto paths = System::DevicePaths::fromEnvironment(options.managedConfiguration);
        failure = Platform::internal;
        const auto makeDevice = [&](const Platform::EventLoop& loop, const Platform::DeviceStrings& strings) {
            return System::Device::make(options, paths, loop, strings, restart);
        };
        const auto exitCode = App::launch(argc, argv, options, makeDevice);
        restart.performIfRequested();
        return exitCode;
    } catch (const System::InvalidPolicyPath& error) {
        fail(Platform::usage, error);
        std::fputs("Try quorvane-mdm --help.\n", stderr);
        return Platform::usage;
    } catch (const Platform::Desktop::NoDisplay& error) {
        return fail(Platform::unavailable, error);
    } catch (const std::exception& error) {
        return fail(failure, error);
    }
}
