#include "Tools/qvctl/CommandLine.h"

#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/SystemClock.h"
#include "Tools/qvctl/Completion.h"
#include "Tools/qvctl/HelpFormatter.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/TimeText.h"
#include "Tools/qvctl/UsageErrors.h"
#include "Tools/qvctl/WaitOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <utility>
#include <vector>

namespace Qvctl {

namespace {

using Platform::LogType;

/// Adds an option that accepts the names of `choices` and stores the chosen value.
template <typename Value>
CLI::Option* addChoice(CLI::App& command, const std::string& name, Value& value,
                       const std::vector<std::pair<std::string, Value>>& choices,
                       const std::string& description)
{
    std::vector<std::string> names;
    names.reserve(choices.size());
    for (const auto& choice : choices)
        names.push_back(choice.first);
    const auto store = [&value, choices](const std::string& chosen) {
        for (const auto& choice : choices) {
            if (choice.first == chosen)
                value = choice.second;
        }
    };
    return command.add_option_function<std::string>(name, store, description)->check(CLI::IsMember(names));
}

/// The heading in --help.
constexpr const char* changingCommands = "To change something";

/// For the process of each user, without the steps of doctor that have their own limit. Each locked store
/// takes 5 s.
constexpr std::chrono::seconds readingTimeLimit{20};

CLI::Validator nonEmptyFileName()
{
    return {[](const std::string& name) { return std::string(name.empty() ? "the file name is empty" : ""); },
            ""};
}

void addLimit(CLI::App& command, std::optional<std::int64_t>& limit)
{
    command.add_option("--limit", limit, "Show only the newest N")
        ->type_name("N")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{INT32_MAX}));
}

} // namespace

CommandLine::CommandLine()
    : m_parser(std::make_unique<CLI::App>("Inspect and manage this device's configuration and notifications.",
                                          "qvctl"))
{
    m_parser->formatter(std::make_shared<HelpFormatter>());
    m_parser->group("To see what happens"); // The heading in --help; commands inherit it.
    m_parser->set_version_flag("--version", "qvctl " QV_VERSION, "Print the version");
    m_parser->get_help_ptr()->description("Print this help");
    m_parser->require_subcommand(1);
    m_parser->fallthrough();
    m_parser
        ->add_option("--managed-configuration", m_options.managedConfiguration,
                     "Use this policy file or folder of fragments (default: those in "
                     "/etc/quorvane-mdm; environment: QUORVANE_MANAGED_CONFIGURATION)")
        ->type_name("FILE");
    m_parser->add_flag("--json", m_options.isJSON, "Print JSON, one object per line");
    m_parser->add_flag("--reveal", m_options.isRevealing,
                       "Show secrets and notifications (otherwise masked)");
    m_parser->add_flag_callback("--no-color", disableColor,
                                "Print no colors (default: colors only on terminals; environment: NO_COLOR)");

    addStateCommands();
    addLog();
    addDoctor();
    addBundle();
    addConfigCommands();
    addNotificationCommands();
    addHelp();
    m_parser->footer("Examples:\n"
                     "  qvctl config lint policy.json && sudo qvctl config set policy.json\n"
                     "  sudo qvctl doctor --offline --all-users");
}

CommandLine::~CommandLine() = default;

void CommandLine::addStateCommands()
{
    addConditions(addInspection("status", "Show the applied configuration and the app's state",
                                [this](const Options& options) { return status(options, m_conditions); }),
                  m_conditions);
    addSnapshot();
    addCommand(*m_parser, "watch", "Show each configuration version as it is applied",
               [this] { return watch(m_options); });
    addGoals(addCommand(*m_parser, "wait", "Wait until the policy file is applied or the token uploaded",
                        [this] { return wait(m_options, m_wait); }),
             m_wait);
    addCommand(*m_parser, "reload", "Make the app read its policy now; as root, the apps of all users",
               [this] { return reload(m_options); })
        .group(changingCommands);
}

void CommandLine::addLog()
{
    CLI::App& logCommand = addCommand(*m_parser, "log", "Show the app's log from the journal", [this] {
        m_log.limit = m_limit;
        return log(m_options, m_log);
    });
    logCommand
        .add_option_function<std::string>(
            "--since",
            [this](const std::string& text) {
                m_log.since = timeFromText(text, Platform::SystemClock().now());
            },
            "Show only lines since TIME: an age such as 90s, 10m, 2h or 3d, or a date such as 2026-11-21, "
            "2026-11-21T15:04 or 2026-11-21T15:04:05Z (local time without Z)")
        ->type_name("TIME")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return timeFromText(text, {}) ? std::string()
                                              : fmt::format("'{}' is neither an age such as 10m nor a time "
                                                            "such as 2026-11-21T15:04:05Z",
                                                            text);
            },
            ""));
    std::vector<std::pair<std::string, LogType>> levels;
    for (const auto level :
         {LogType::debug, LogType::info, LogType::default_, LogType::error, LogType::fault})
        levels.emplace_back(Platform::Linux::Logging::severityName(level), level);
    addChoice(logCommand, "--level", m_log.lowestLevel, levels,
              "Show only lines of this severity or higher: debug, info, warning, error, critical")
        ->type_name("LEVEL");
    logCommand.add_flag(
        "--all", m_log.isIncludingOthers,
        "Include lines of other users and programs, each marked with its source; any program can write such "
        "lines");
    logCommand.add_flag("-f,--follow", m_log.isFollowing, "Keep printing new lines until interrupted");
    addLimit(logCommand, m_limit);
}

void CommandLine::addSnapshot()
{
    CLI::App& command = addInspection(
        "snapshot", "Show what the single-sign-on extension reads", [this](const Options& options) {
            return m_isSchemaWanted ? snapshotSchema(options) : snapshot(options);
        });
    CLI::Option* schema =
        command.add_flag("--schema", m_isSchemaWanted, "Print a JSON Schema of the stored record instead");
    for (const char* option : {"--user", "--all-users"})
        schema->excludes(command.get_option(option));
}

void CommandLine::addDoctor()
{
    CLI::App& doctorCommand = addInspection(
        "doctor", "Diagnose problems, from the policy file to the backend; exit with 1 if a check fails",
        [this](const Options& options) { return doctor(options, m_doctor); });
    CLI::Option* offline =
        doctorCommand.add_flag("--offline", m_doctor.isOffline, "Skip the checks that use the network");
    // The proxy and the certificates that the user's session sets are not known.
    for (const char* option : {"--user", "--all-users"})
        doctorCommand.get_option(option)->needs(offline);
    doctorCommand
        .add_flag("--probe", m_doctor.isProbing,
                  "Also send a HEAD request to base_domain, without credentials, and report the status")
        ->excludes(offline);
    doctorCommand
        .add_option_function<double>(
            "--timeout",
            [this](double seconds) {
                m_doctor.timeout = std::chrono::milliseconds(std::lround(seconds * 1000));
            },
            "Time limit for each step that waits, such as connecting to the backend (default: 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 600.0));
}

void CommandLine::addBundle()
{
    addCommand(
        *m_parser, "bundle",
        "Collect what support needs, without secrets, in an archive; configured values are replaced by "
        "their length and a hash",
        [this] { return bundle(m_options, m_file); })
        .add_option(
            "FILE", m_file,
            "New file, with a name that ends with .tar.gz (default: qvctl-bundle-TIME.tar.gz); - writes "
            "to standard output")
        ->check(nonEmptyFileName());
}

void CommandLine::addConfigCommands()
{
    CLI::App& config = addGroup("config", "Show, check and change the managed configuration");
    addCommand(config, "show", "Show the content of the policy file",
               [this] { return configShow(m_options); });
    addCommand(config, "lint", "Check policy files: list every problem with its location, effect and fix",
               [this] { return configLint(m_options, m_files); })
        .add_option("FILE", m_files,
                    "Policy files to check, each alone (default: this device's, with all fragments); - reads "
                    "standard input")
        ->check(nonEmptyFileName());
    addCommand(config, "explain", "Show the effective value of each key, and why",
               [this] { return configExplain(m_options, m_file); })
        .add_option("FILE", m_file, "Policy file to explain (default: this device's); - reads standard input")
        ->check(nonEmptyFileName());
    CLI::App& set = addCommand(config, "set", "Check a policy file and install it atomically",
                               [this] { return configSet(m_options, *m_file, m_install); });
    set.add_option("FILE", m_file, "Policy file to install; - reads standard input")
        ->required()
        ->check(nonEmptyFileName());
    set.add_flag("--force", m_install.isForced, "Install the file even if lint reports errors in it");
    CLI::Option* waiting =
        set.add_flag("--wait", m_install.isWaiting, "Wait until the app has applied the file's values");
    addTimeout(set, m_install.timeout)->needs(waiting);
    addCommand(config, "clear", "Remove the policy file", [this] { return configClear(m_options); });
    addCommand(config, "forget", "Delete this user's snapshot, including the API key",
               [this] { return configForget(m_options); });
    addChoice<SchemaFormat>(addCommand(config, "schema", "Describe the managed keys for other programs",
                                       [this] { return configSchema(m_options, m_schemaFormat); }),
                            "--format", m_schemaFormat,
                            {{"json-schema", SchemaFormat::jsonSchema},
                             {"appconfig", SchemaFormat::appConfig},
                             {"sample", SchemaFormat::sample}},
                            "json-schema (draft 2020-12, the default), appconfig (XML from which management "
                            "consoles build a form) "
                            "or sample (a policy file to start from)")
        ->type_name("FORMAT");
}

void CommandLine::addNotificationCommands()
{
    addLimit(addInspection("notifications", "Show the notification history, newest first",
                           [this](const Options& options) {
                               return notifications(options, m_limit.value_or(INT32_MAX));
                           }),
             m_limit);
    CLI::App& pushCommand =
        addCommand(*m_parser, "push", "Deliver a push to an app that runs with --push local",
                   [this] { return push(m_options, *m_file); });
    pushCommand.group(changingCommands);
    pushCommand
        .add_option("FILE", m_file, "Payload, a JSON object of at most 4096 bytes; - reads standard input")
        ->required()
        ->check(nonEmptyFileName());
    CLI::App& privacy = addGroup("privacy", "Change permissions on the user's behalf");
    using Platform::AuthorizationStatus;
    addPrivacyCommand(privacy, "grant", "Grant a permission on the user's behalf",
                      AuthorizationStatus::authorized);
    addPrivacyCommand(privacy, "revoke", "Revoke a permission on the user's behalf",
                      AuthorizationStatus::denied);
    addPrivacyCommand(privacy, "reset", "Reset a permission so that the user is asked again",
                      AuthorizationStatus::notDetermined);
}

void CommandLine::addHelp()
{
    CLI::App& help =
        addCommand(*m_parser, "help", "Describe a command and its options", [this] { return printHelp(); });
    help.group(""); // The second line of --help mentions it.
    help.add_option("COMMAND", m_words, "Command, such as status or config set");
}

ExitCode CommandLine::printHelp() const
{
    const CLI::App* command = m_parser.get();
    std::string path = command->get_name();
    for (const std::string& word : m_words) {
        const auto commands = commandsOf(*command);
        const auto found = std::find_if(commands.begin(), commands.end(), [&](const CLI::App* candidate) {
            return candidate->get_name() == word;
        });
        if (found == commands.end())
            throw CommandError(usage, describeUnknownCommand(word, *command, *m_parser));
        command = *found;
        path += " " + word;
    }
    writeOutput(m_parser->get_formatter()->make_help(command, path, CLI::AppFormatMode::Normal));
    return success;
}

int CommandLine::run(int argc, const char* const* argv)
{
    int code = success;
    // From the shells' completion scripts; not for users, so the parser does not list it.
    if (argc > 1 && argv[1] == std::string_view("--complete"))
        writeOutput(completions(*m_parser, {argv + 2, argv + argc}));
    else
        code = parseAndRun(argc, argv);
    flushOutput();
    return code;
}

int CommandLine::parseAndRun(int argc, const char* const* argv)
{
    try {
        m_parser->parse(argc, argv);
    } catch (const CLI::Success& helpOrVersion) {
        std::ostringstream text;
        const int code = m_parser->exit(helpOrVersion, text, text);
        writeOutput(text.str());
        return code;
    } catch (const CLI::ParseError& error) {
        // The parser may have stopped before it reached this option.
        m_options.isJSON |= std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
        return failUsage(describeUsageError(error, *m_parser));
    }
    return runReportingErrors(m_action);
}

int CommandLine::runReportingErrors(const std::function<int()>& action) const
{
    try {
        return action();
    } catch (const Platform::Linux::InvalidPolicyPath& error) {
        return failUsage(error.what());
    } catch (const OutputError&) {
        throw;
    } catch (const CommandError& error) {
        return fail(m_options, error.exitCode(), error.what());
    } catch (const std::system_error& error) {
        return fail(m_options, unavailable, error.what());
    } catch (const std::exception& error) {
        return fail(m_options, internal, error.what());
    }
}

int CommandLine::failUsage(const std::string& reason) const
{
    const int code = fail(m_options, usage, reason);
    writeDiagnostics("Try qvctl --help.\n");
    return code;
}

CLI::App& CommandLine::addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                                  std::function<ExitCode()> action)
{
    CLI::App& subcommand = *parent.add_subcommand(name, description);
    subcommand.fallthrough();
    subcommand.callback([this, action = std::move(action)] { m_action = action; });
    return subcommand;
}

CLI::App& CommandLine::addInspection(const std::string& name, const std::string& description,
                                     std::function<ExitCode(const Options&)> action)
{
    CLI::App& command = addCommand(*m_parser, name, description, [this, action = std::move(action)] {
        constexpr int waitingStepCount = 4; // Of doctor without network.
        const auto timeLimit = readingTimeLimit + waitingStepCount * m_doctor.timeout;
        return runForSelection(m_options, m_users, timeLimit, [&](const Options& options) {
            return static_cast<ExitCode>(runReportingErrors([&] { return action(options); }));
        });
    });
    CLI::Option* all = command.add_flag("--all-users", m_users.isAllUsers,
                                        "As root, show the state of each user who has one, in turn");
    command
        .add_option(
            "--user", m_users.name,
            "As root, show the state of this user instead, without changing it; read from its default "
            "place in the user's home")
        ->type_name("USER")
        ->excludes(all);
    return command;
}

/// Adds a command that only holds other commands, such as "config".
CLI::App& CommandLine::addGroup(const std::string& name, const std::string& description)
{
    CLI::App& group = *m_parser->add_subcommand(name, description);
    group.group(changingCommands);
    group.require_subcommand(1);
    group.footer(fmt::format("For the options of a command: qvctl help {} COMMAND", name));
    return group;
}

void CommandLine::addPrivacyCommand(CLI::App& parent, const std::string& name, const std::string& description,
                                    Platform::AuthorizationStatus status)
{
    addCommand(parent, name, description, [=, this] { return setNotificationPermission(m_options, status); })
        .add_option("SERVICE", m_service, "Permission to change: notifications")
        ->required()
        ->check(CLI::IsMember({"notifications"}));
}

} // namespace Qvctl
