#pragma once

#include "Platform/UserNotificationCenter.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/UserSelection.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace Qvctl {

/// Parses the command line and runs the command that it names.
class CommandLine {
public:
    CommandLine();
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// Returns the command's exit code once its output is flushed. Throws `OutputError`.
    int run(int argc, const char* const* argv);

    /// All commands and options, for manual pages and completions.
    [[nodiscard]] const CLI::App& parser() const { return *m_parser; }

private:
    [[nodiscard]] int parseAndRun(int argc, const char* const* argv);
    [[nodiscard]] int runReportingErrors(const std::function<int()>& action) const;
    [[nodiscard]] int failUsage(const std::string& reason) const;
    [[nodiscard]] ExitCode printHelp() const;
    void addHelp();
    void addStateCommands();
    void addLog();
    void addSnapshot();
    void addDoctor();
    void addBundle();
    void addConfigCommands();
    void addNotificationCommands();
    CLI::App& addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                         std::function<ExitCode()> action);
    /// Adds a command that can show the state of other users, too.
    CLI::App& addInspection(const std::string& name, const std::string& description,
                            std::function<ExitCode(const Options&)> action);
    CLI::App& addGroup(const std::string& name, const std::string& description);
    void addPrivacyCommand(CLI::App& parent, const std::string& name, const std::string& description,
                           Platform::AuthorizationStatus status);

    std::unique_ptr<CLI::App> m_parser;
    Options m_options;
    UserSelection m_users;
    std::optional<std::string> m_file;
    std::vector<std::string> m_files;
    std::vector<std::string> m_conditions;
    WaitOptions m_wait;
    InstallOptions m_install;
    /// The command to describe.
    std::vector<std::string> m_words;
    std::string m_service;
    bool m_isSchemaWanted = false;
    SchemaFormat m_schemaFormat = SchemaFormat::jsonSchema;
    std::optional<std::int64_t> m_limit;
    LogOptions m_log;
    DoctorOptions m_doctor;
    /// Runs the command; set by the parser.
    std::function<ExitCode()> m_action;
};

} // namespace Qvctl
