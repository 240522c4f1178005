#pragma once

#include "Platform/UserNotificationCenter.h"
#include "Tools/qvctl/Commands.h"

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

/// The command line and, once parsed, the verb that it names.
class CommandLine {
public:
    CommandLine();
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// Parses and runs the verb; returns its exit code when all it printed has arrived. Throws `OutputError`.
    int run(int argc, const char* const* argv);

    /// Every verb and option, for those who describe them.
    [[nodiscard]] const CLI::App& parser() const { return *m_parser; }

private:
    [[nodiscard]] int parseAndRun(int argc, const char* const* argv);
    [[nodiscard]] int failUsage(const std::string& reason) const;
    [[nodiscard]] std::string usageError(const CLI::ParseError& error) const;
    void addStateCommands();
    void addDoctor();
    void addConfigCommands();
    void addNotificationCommands();
    CLI::App& addCommand(CLI::App& parent, const std::string& name, const std::string& description,
                         std::function<ExitCode()> verb);
    CLI::App& addGroup(const std::string& name, const std::string& description);
    void addPrivacyCommand(CLI::App& parent, const std::string& name, const std::string& description,
                           Platform::AuthorizationStatus status);

    std::unique_ptr<CLI::App> m_parser;
    Options m_options;
    std::optional<std::string> m_file;
    std::vector<std::string> m_files;
    bool m_isForced = false;
    std::string m_service;
    SchemaFormat m_schemaFormat = SchemaFormat::jsonSchema;
    std::optional<std::int64_t> m_limit;
    LogOptions m_log;
    DoctorOptions m_doctor;
    std::function<ExitCode()> m_verb;
};

} // namespace Qvctl
