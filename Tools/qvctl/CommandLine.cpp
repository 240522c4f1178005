#include "Tools/qvctl/CommandLine.h"

#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/SystemClock.h"
#include "Tools/qvctl/Completion.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Spelling.h"
#include "Tools/qvctl/TimeText.h"

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

/// Takes one of `choices` by its name.
template <typename Value>
CLI::Option* addChoice(CLI::App& verb, const std::string& name, Value& value,
                       const std::vector<std::pair<std::string, Value>>& choices,
                       const std::string& description)
{
    std::vector<std::string> names;
    names.reserve(choices.size());
    for (const auto& choice : choices)
        names.push_back(choice.first);
    const auto take = [&value, choices](const std::string& chosen) {
        for (const auto& choice : choices) {
            if (choice.first == chosen)
                value = choice.second;
        }
    };
    return verb.add_option_function<std::string>(name, take, description)->check(CLI::IsMember(names));
}

CLI::Validator nameOfFile()
{
    return {[](const std::string& name) {
                return name.empty() ? std::string("the name of a file is needed, and this one is empty")
                                    : std::string();
            },
            ""};
}

void addLimit(CLI::App& verb, std::optional<std::int64_t>& limit)
{
    verb.add_option("--limit", limit, "Show at most so many, the newest")
        ->type_name("N")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{INT32_MAX}));
}

/// Of the verbs in `group` and in the groups in there, the one that `word` was probably meant to be, with the
/// groups it belongs to; empty when there is none.
std::string closestCommand(std::string_view word, const CLI::App& group)
{
    std::vector<std::string> names;
    std::vector<std::string> paths;
    const std::function<void(const CLI::App&, const std::string&)> collect = [&](const CLI::App& from,
                                                                                 const std::string& prefix) {
        for (const CLI::App* verb : commandsOf(from)) {
            names.push_back(verb->get_name());
            paths.push_back(prefix + verb->get_name());
            collect(*verb, paths.back() + " ");
        }
    };
    collect(group, group.get_parent() != nullptr ? group.get_name() + " " : "");
    const auto closest = closestWord(word, {names.begin(), names.end()});
    return closest ? paths[*closest] : std::string();
}

} // namespace

CommandLine::CommandLine()
    : m_parser(std::make_unique<CLI::App>(
          "Looks into and after the managed configuration and the notifications of this device.", "qvctl"))
{
    m_parser->set_version_flag("--version", "qvctl " QV_VERSION, "Print the version");
    m_parser->get_help_ptr()->description("Print what there is to say, here or after a verb");
    m_parser->require_subcommand(1);
    m_parser->fallthrough();
    m_parser
        ->add_option("--managed-configuration", m_options.managedConfiguration,
                     "Policy file to work on instead of /etc/quorvane-mdm/managed.plist or managed.json "
                     "(environment: QUORVANE_MANAGED_CONFIGURATION)")
        ->type_name("FILE");
    m_parser->add_flag("--json", m_options.isJSON, "Print JSON for programs: one object, or one per line");
    m_parser->add_flag("--reveal", m_options.isRevealing,
                       "Show secrets and texts of notifications instead of masking them");

    addStateCommands();
    addDoctor();
    addConfigCommands();
    addNotificationCommands();
}

CommandLine::~CommandLine() = default;

void CommandLine::addStateCommands()
{
    addCommand(*m_parser, "status", "Show the configuration version, what it holds and whether the app runs",
               [this] { return status(m_options); });
    addCommand(*m_parser, "snapshot", "Show what the single-sign-on extension reads",
               [this] { return snapshot(m_options); });
    addCommand(*m_parser, "watch", "Show each configuration version as it is applied, until interrupted",
               [this] { return watch(m_options); });

    CLI::App& logCommand =
        addCommand(*m_parser, "log", "Show the app's lines in the journal, oldest first", [this] {
            m_log.limit = m_limit;
            return log(m_options, m_log);
        });
    logCommand
        .add_option_function<std::string>(
            "--since",
            [this](const std::string& text) {
                m_log.since = timeFromText(text, Platform::SystemClock().now());
            },
            "Only lines from then on: an age such as 90s, 10m, 2h or 3d, or a time such as 2026-11-21, "
            "2026-11-21T15:04 or 2026-11-21T15:04:05Z, local without the Z")
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
    addChoice(logCommand, "--level", m_log.lowestLevel, levels, "Only lines of that severity or a higher one")
        ->type_name("LEVEL");
    logCommand.add_flag(
        "--all", m_log.isOfAll,
        "Also lines of other users and programs, each marked with its writer; anyone can write them");
    logCommand.add_flag("-f,--follow", m_log.isFollowing, "Go on with new lines, until interrupted");
    addLimit(logCommand, m_limit);
}

void CommandLine::addDoctor()
{
    CLI::App& examination =
        addCommand(*m_parser, "doctor", "Examine the whole chain, check by check; exit 1 if a check fails",
                   [this] { return doctor(m_options, m_doctor); });
    examination.add_flag("--offline", m_doctor.isOffline, "Leave the network alone");
    examination
        .add_option_function<double>(
            "--timeout",
            [this](double seconds) {
                m_doctor.timeout = std::chrono::milliseconds(std::lround(seconds * 1000));
            },
            "Time limit of each step that waits; connecting to the backend is one step (default: 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 600.0));
}

void CommandLine::addConfigCommands()
{
    CLI::App& config = addGroup("config", "Show, check and change the managed configuration");
    addCommand(config, "show", "Show the managed dictionary", [this] { return configShow(m_options); });
    addCommand(config, "lint", "Check policy files: list every problem with its location, effect and fix",
               [this] { return configLint(m_options, m_files); })
        .add_option("FILE", m_files, "The files to check; - reads standard input")
        ->required()
        ->check(nameOfFile());
    addCommand(config, "explain", "Show the effective value of every key, and why",
               [this] { return configExplain(m_options, m_file); })
        .add_option(
            "FILE", m_file,
            "A file to explain instead of the managed configuration of this device; - reads standard input")
        ->check(nameOfFile());
    CLI::App& set = addCommand(config, "set", "Check a policy file and install it in one step",
                               [this] { return configSet(m_options, *m_file, m_isForced); });
    set.add_option("FILE", m_file, "The file to install; - reads standard input")
        ->required()
        ->check(nameOfFile());
    set.add_flag("--force", m_isForced, "Install it even if it has errors that lint reports");
    addCommand(config, "clear", "Remove the managed configuration",
               [this] { return configClear(m_options); });
    addCommand(config, "forget", "Delete this user's stored snapshot, the API key included",
               [this] { return configForget(m_options); });
    addChoice<SchemaFormat>(
        addCommand(config, "schema", "Describe the keys for editors and management consoles",
                   [this] { return configSchema(m_options, m_schemaFormat); }),
        "--format", m_schemaFormat,
        {{"json-schema", SchemaFormat::jsonSchema},
         {"appconfig", SchemaFormat::appConfig},
         {"sample", SchemaFormat::sample}},
        "json-schema (draft 2020-12, the default), appconfig (the XML of which management consoles make a "
        "form) or sample (a policy to start from)")
        ->type_name("FORMAT");
}

void CommandLine::addNotificationCommands()
{
    addLimit(addCommand(*m_parser, "notifications", "Show the history of notifications, newest first",
                        [this] { return notifications(m_options, m_limit.value_or(INT32_MAX)); }),
             m_limit);
    addCommand(*m_parser, "push", "Deliver a payload to the app, which must run with --push local",
               [this] { return push(m_options, *m_file); })
        .add_option("FILE", m_file, "A JSON object of at most 4096 bytes; - reads standard input")
        ->required()
        ->check(nameOfFile());
    CLI::App& privacy = addGroup("privacy", "Decide in the user's place");
    using Platform::AuthorizationStatus;
    addPrivacyCommand(privacy, "grant", "Allow in the user's place", AuthorizationStatus::authorized);
    addPrivacyCommand(privacy, "revoke", "Refuse in the user's place", AuthorizationStatus::denied);
    addPrivacyCommand(privacy, "reset", "Have the user asked again", AuthorizationStatus::notDetermined);
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
        return m_verb();
    } catch (const CLI::Success& helpOrVersion) {
        std::ostringstream text;
        const int code = m_parser->exit(helpOrVersion, text, text);
        writeOutput(text.str());
        return code;
    } catch (const CLI::ParseError& error) {
        // Parsing may have ended before this option.
        m_options.isJSON |= std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
        return failUsage(usageError(error));
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

/// What is wrong with the command line. For a mistyped verb the library only knows that a verb is missing.
std::string CommandLine::usageError(const CLI::ParseError& error) const
{
    const CLI::App* last = m_parser.get();
    while (!last->get_subcommands().empty())
        last = last->get_subcommands().front();
    const bool isCommandMissing =
        dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !commandsOf(*last).empty();
    const auto unknown = m_parser->remaining(true);
    if (!isCommandMissing || unknown.empty())
        return error.what();
    const std::string& word = unknown.front();
    if (word.starts_with('-'))
        return fmt::format("there is no option '{}'", word);
    auto suggestion = closestCommand(word, *last);
    if (suggestion.empty())
        suggestion = closestCommand(word, *m_parser);
    return fmt::format("there is no verb '{}'{}", word,
                       suggestion.empty() ? "" : fmt::format(". Did you mean 'qvctl {}'?", suggestion));
}

CLI::App& CommandLine::addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                                  std::function<ExitCode()> verb)
{
    CLI::App& subcommand = *parent.add_subcommand(name, description);
    subcommand.fallthrough();
    subcommand.callback([this, verb = std::move(verb)] { m_verb = verb; });
    return subcommand;
}

/// A word that is followed by one of its verbs.
CLI::App& CommandLine::addGroup(const std::string& name, const std::string& description)
{
    CLI::App& group = *m_parser->add_subcommand(name, description);
    group.require_subcommand(1);
    return group;
}

void CommandLine::addPrivacyCommand(CLI::App& parent, const std::string& name, const std::string& description,
                                    Platform::AuthorizationStatus status)
{
    addCommand(parent, name, description, [=, this] { return setNotificationPermission(m_options, status); })
        .add_option("SERVICE", m_service, "What is decided about: notifications")
        ->required()
        ->check(CLI::IsMember({"notifications"}));
}

} // namespace Qvctl
