#include "App/LaunchOptions.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <map>
#include <set>

namespace App {

std::variant<LaunchOptions, ExitCode> parseCommandLine(int argc, char** argv)
{
    LaunchOptions options;
    CLI::App commandLine(
        "The companion app of a managed device: takes the configuration that the organisation sends, "
        "keeps it for the single-sign-on extension and follows its changes.",
        "quorvane-mdm");
    commandLine.set_version_flag("--version", "quorvane-mdm " QV_VERSION);
    commandLine
        .add_option("--managed-configuration", options.managedConfiguration,
                    "Policy file to follow instead of /etc/quorvane-mdm/managed.plist or managed.json "
                    "(environment: QUORVANE_MANAGED_CONFIGURATION)")
        ->type_name("FILE");
    const std::map<std::string, PushSource> sources{
        {"auto", PushSource::automatic}, {"local", PushSource::local}, {"off", PushSource::off}};
    std::string source = "auto";
    commandLine
        .add_option(
            "--push", source,
            "Where pushes come from: auto (a UnifiedPush distributor on the session bus, the default), "
            "local (a socket of this application, for tests) or off")
        ->type_name("SOURCE")
        ->check(CLI::IsMember(std::set<std::string>{"auto", "local", "off"}));
    commandLine.add_flag("--log-stderr", options.isLoggingToStandardError,
                         "Log to standard error instead of the journal");
    commandLine.add_flag("--dbus-activated", options.isStartedByBus,
                         "Start for a push that waits: without a window, and without a display");
    try {
        commandLine.parse(argc, argv);
        options.push = sources.at(source);
        return options;
    } catch (const CLI::Success& helpOrVersion) {
        return commandLine.exit(helpOrVersion) == 0 ? success : internal;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "quorvane-mdm: %s\nTry quorvane-mdm --help.\n", error.what());
        return usage;
    }
}

} // namespace App
