#include "App/LaunchOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace App {

using Platform::PushSource;
using enum Platform::ExitCode;

std::unique_ptr<CLI::App> makeCommandLine(Platform::DeviceOptions& options)
{
    auto commandLine = std::make_unique<CLI::App>(
        "The companion app of a managed device. Applies the organization's managed configuration, stores it "
        "for the single-sign-on extension and receives pushes.",
        "quorvane-mdm");
    commandLine->set_version_flag("--version", "quorvane-mdm " QV_VERSION, "Print the version and exit");
    commandLine->get_help_ptr()->description("Print this help and exit");
    commandLine
        ->add_option("--managed-configuration", options.managedConfiguration,
                     "Policy file, or folder of fragments, to use instead of those in /etc/quorvane-mdm "
                     "(environment variable: QUORVANE_MANAGED_CONFIGURATION)")
        ->type_name("FILE");
    static const std::map<std::string, PushSource> sources{
        {"auto", PushSource::automatic}, {"local", PushSource::local}, {"off", PushSource::off}};
    commandLine
        ->add_option_function<std::string>(
            "--push", [&options](const std::string& source) { options.push = sources.at(source); },
            "Source of pushes: auto (default, a UnifiedPush distributor on the session bus), local (a socket "
            "that the app opens, for tests) or off")
        ->type_name("SOURCE")
        ->check(CLI::IsMember(std::vector<std::string>{"auto", "local", "off"}));
    commandLine->add_flag("--log-stderr", options.isLoggingToStandardError,
                          "Log to standard error instead of the journal");
    commandLine->add_flag("--background,--dbus-activated", options.isInBackground,
                          "Start without a window, as at login or for a push; needs no display. The next "
                          "launch opens the window");
    return commandLine;
}

std::variant<Platform::DeviceOptions, Platform::ExitCode> parseCommandLine(int argc, char** argv)
{
    Platform::DeviceOptions options;
    const auto commandLine = makeCommandLine(options);
    try {
        commandLine->parse(argc, argv);
        return options;
    } catch (const CLI::Success& helpOrVersion) {
        return commandLine->exit(helpOrVersion) == 0 ? success : internal;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\nTry quorvane-mdm --help.\n", error.what());
        return usage;
    }
}

std::vector<std::string> backgroundArguments(int argc, const char* const* argv,
                                             const Platform::DeviceOptions& options)
{
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    if (!options.isInBackground)
        arguments.emplace_back("--background");
    return arguments;
}

} // namespace App
