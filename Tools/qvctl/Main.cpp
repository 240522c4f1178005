#include "Tools/qvctl/Commands.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <system_error>

namespace {

using namespace Qvctl;

/// The command line and, once parsed, the verb that it names.
class CommandLine {
public:
    CommandLine()
    {
        m_parser.set_version_flag("--version", "qvctl " QV_VERSION);
        m_parser.require_subcommand(1);
        m_parser.fallthrough();
        m_parser
            .add_option("--managed-configuration", m_options.managedConfiguration,
                        "Policy file to work on instead of /etc/quorvane-mdm/managed.plist or managed.json "
                        "(environment: QUORVANE_MANAGED_CONFIGURATION)")
            ->type_name("FILE");
        m_parser.add_flag("--json", m_options.isJSON, "Print one JSON object for programs");
        m_parser.add_flag("--reveal", m_options.isRevealing, "Show secrets instead of masking them");

        addVerb(m_parser, "status", "Show the configuration version, what it holds and whether the app runs",
                [this] { return status(m_options); });
        addVerb(m_parser, "snapshot", "Show what the single-sign-on extension reads",
                [this] { return snapshot(m_options); });
        CLI::App& config =
            *m_parser.add_subcommand("config", "Look at, judge and change the managed configuration");
        config.require_subcommand(1);
        addVerb(config, "show", "Show the managed dictionary", [this] { return configShow(m_options); });
        addVerb(config, "lint", "Judge a file: every finding with its place, its effect and the mend",
                [this] { return configLint(m_options, *m_file); })
            .add_option("FILE", m_file, "The file to judge")
            ->required();
        addVerb(config, "explain", "Show the effective value of every key, and why",
                [this] { return configExplain(m_options, m_file); })
            .add_option("FILE", m_file,
                        "A file to explain instead of the managed configuration of this device");
        addVerb(config, "set", "Put a file in force as the managed configuration, in one step",
                [this] { return configSet(m_options, *m_file); })
            .add_option("FILE", m_file, "The file to install")
            ->required();
        addVerb(config, "clear", "Remove the managed configuration",
                [this] { return configClear(m_options); });

        addVerb(m_parser, "notifications", "Show the history of notifications, newest first",
                [this] { return notifications(m_options, m_limit); })
            .add_option("--limit", m_limit, "Show at most so many")
            ->type_name("N")
            ->check(CLI::Range(std::int64_t{0}, std::int64_t{INT32_MAX}));
        addVerb(m_parser, "push", "Deliver a payload to the app, which must run with --push local",
                [this] { return push(m_options, *m_file); })
            .add_option("FILE", m_file, "A JSON object of at most 4096 bytes; - reads standard input")
            ->required();
        CLI::App& privacy = *m_parser.add_subcommand("privacy", "Decide in the user's place");
        privacy.require_subcommand(1);
        using Platform::AuthorizationStatus;
        addPrivacyVerb(privacy, "grant", "Allow", AuthorizationStatus::authorized);
        addPrivacyVerb(privacy, "revoke", "Refuse", AuthorizationStatus::denied);
        addPrivacyVerb(privacy, "reset", "Have the user asked again", AuthorizationStatus::notDetermined);
    }

    int run(int argc, char** argv)
    {
        try {
            m_parser.parse(argc, argv);
        } catch (const CLI::Success& helpOrVersion) {
            return m_parser.exit(helpOrVersion);
        } catch (const CLI::ParseError& error) {
            // For a mistyped verb the library misses the verb and does not tell which word stands in its
            // place.
            const auto unknown = m_parser.remaining(true);
            const bool isVerbMissing =
                dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !unknown.empty();
            fmt::print(stderr, "qvctl: {}\nTry qvctl --help.\n",
                       isVerbMissing ? fmt::format("there is no verb '{}'", unknown.front()) : error.what());
            return usage;
        }
        return m_verb();
    }

private:
    CLI::App& addVerb(CLI::App& parent, const std::string& name, const std::string& description,
                      std::function<ExitCode()> verb)
    {
        CLI::App& subcommand = *parent.add_subcommand(name, description);
        subcommand.fallthrough();
        subcommand.callback([this, verb = std::move(verb)] { m_verb = verb; });
        return subcommand;
    }

    void addPrivacyVerb(CLI::App& parent, const std::string& name, const std::string& description,
                        Platform::AuthorizationStatus status)
    {
        addVerb(parent, name, description, [=, this] { return setNotificationPermission(m_options, status); })
            .add_option("SERVICE", m_service, "What is decided about: notifications")
            ->required()
            ->check(CLI::IsMember({"notifications"}));
    }

    CLI::App m_parser{"Looks into and after the managed configuration and the notifications of this device.",
                      "qvctl"};
    Options m_options;
    std::optional<std::string> m_file;
    std::string m_service;
    std::int64_t m_limit = std::numeric_limits<std::int64_t>::max();
    std::function<ExitCode()> m_verb;
};

} // namespace

int main(int argc, char** argv)
{
    try {
        return CommandLine().run(argc, argv);
    } catch (const std::system_error& error) {
        fmt::print(stderr, "qvctl: {}\n", error.what());
        return unavailable;
    } catch (const std::exception& error) {
        fmt::print(stderr, "qvctl: {}\n", error.what());
        return internal;
    }
}
