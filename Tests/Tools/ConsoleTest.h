#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Outcome.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Fakes/TextTable.h"
#include "Tests/Trials/StoreFile.h"
#include "Tools/qvctl/CommandLine.h"

#include <boost/algorithm/string/replace.hpp>
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <iomanip>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

/// A device in a temporary folder, which is the current folder, without an app and a session bus. Commands
/// run in this process.
class ConsoleTest : public testing::Test {
protected:
    struct Printed {
        int exitCode;
        /// Standard output and standard error.
        std::string output;
        std::string diagnostics;
    };
    ConsoleTest()
    {
        ::pthread_sigmask(SIG_SETMASK, nullptr, &m_signals);
        std::filesystem::current_path(folder.path());
        std::filesystem::permissions(folder.path(),
                                     std::filesystem::perms(0711)); // Other users can enter it.
        setEnvironment("HOME", folder.path());
        setEnvironment("XDG_DATA_HOME", folder.path("data"));
        setEnvironment("XDG_RUNTIME_DIR", folder.path("run"));
        setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
        setEnvironment("QUORVANE_MANAGED_CONFIGURATION", folder.path("managed.json"));
        for (const char* name : {"COLUMNS", "UNIFIEDPUSH_DISTRIBUTOR"})
            setEnvironment(name, "");
    }
    ~ConsoleTest() override { std::filesystem::current_path(m_currentPath); }

    /// The constructor resets the variables that tests set.
    static void setEnvironment(const char* name, const std::string& value)
    {
        ::setenv(name, value.c_str(), 1);
    }

    /// Runs a command: "config lint FILE"; words may be in double quotes. Its output must not contain
    /// "canary" without --reveal, control characters, and with --json anything but JSON.
    Printed run(const std::string& words, std::string_view input = {}) const
    {
        using Platform::Storage::FileDescriptor;
        std::vector<std::string> arguments{"qvctl"};
        std::istringstream stream(words);
        for (std::string word; stream >> std::quoted(word);)
            arguments.push_back(word);
        std::vector<const char*> pointers;
        for (const std::string& argument : arguments)
            pointers.push_back(argument.c_str());
        folder.write("input", input);
        const FileDescriptor oldInput(::dup(STDIN_FILENO));
        ::dup2(FileDescriptor(::open("input", O_RDONLY | O_CLOEXEC)).get(), STDIN_FILENO);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Printed outcome{};
        outcome.exitCode = Qvctl::CommandLine().run(static_cast<int>(pointers.size()), pointers.data());
        outcome.output = testing::internal::GetCapturedStdout();
        outcome.diagnostics = testing::internal::GetCapturedStderr();
        ::dup2(oldInput.get(), STDIN_FILENO);
        ::pthread_sigmask(SIG_SETMASK, &m_signals, nullptr); // Commands that wait block signals.
        checkPrinted(words, outcome);
        return outcome;
    }

    /// Returns the cells of a table; see `rowsOf`. Replaces DEVICE with the folder, \n with a line break and
    /// \e with an escape character.
    [[nodiscard]] static std::vector<std::vector<std::string>> tableRows(const std::string& table)
    {
        auto rows = rowsOf(table);
        for (auto& row : rows) {
            for (std::string& cell : row) {
                boost::replace_all(cell, "\\n", "\n");
                boost::replace_all(cell, "\\e", "\x1b");
                boost::replace_all(cell, "DEVICE", std::filesystem::current_path().string());
            }
        }
        return rows;
    }

    /// Runs a command. `row` is its words, its exit code and parts of what it prints on standard output and
    /// standard error; where the part is empty or missing, it must print nothing.
    void check(std::vector<std::string> row, std::string_view input = {}) const
    {
        row.resize(4);
        const Printed printed = run(row[0], input);
        const std::string trace = row[0] + ": " + printed.output + printed.diagnostics;
        EXPECT_EQ(std::to_string(printed.exitCode), row[1]) << trace;
        EXPECT_THAT(printed.output, testing::HasSubstr(row[2])) << trace;
        EXPECT_THAT(printed.diagnostics, testing::HasSubstr(row[3])) << trace;
        EXPECT_EQ(printed.output.empty(), row[2].empty()) << trace;
        EXPECT_EQ(printed.diagnostics.empty(), row[3].empty()) << trace;
    }
    void checkAll(const std::string& table) const
    {
        for (const auto& row : tableRows(table))
            check(row);
    }

    static Core::ValidatedConfig configOf(std::string_view policy)
    {
        return Core::validateManagedConfiguration(
            *Platform::PropertyLists::readPropertyList(policy).root.dictionary());
    }
    /// Stores the snapshot of this policy, applied at 2001-01-01T00:16:40Z.
    void storeSnapshot(std::string_view policy, std::int64_t version) const
    {
        const auto snapshot = Core::ConfigurationSnapshot::make(configOf(policy), version, {1000});
        StoreFile(paths().suite(Core::Constants::appGroupSuiteName))
            ->set(Core::Constants::SnapshotKeys::configSnapshot, snapshot.encode());
    }

    /// Stores the last outcome. `subject` is "upload", "push" or "configurationError".
    static void storeOutcome(const std::string& subject, const std::string& result, const std::string& kind,
                             std::int64_t code, Platform::Date time)
    {
        using Platform::Outcome;
        const auto named = [](auto value, const std::string& name) {
            while (outcomeName(value) != name)
                value = decltype(value)(static_cast<int>(value) + 1);
            return value;
        };
        storeOutcomes(*StoreFile(paths().shellState()),
                      {{subject == "upload" ? Outcome::Subject::upload
                        : subject == "push" ? Outcome::Subject::push
                                            : Outcome::Subject::configurationError,
                        {named(Outcome::Result{}, result), named(Outcome::Kind{}, kind), code, time}}});
    }

    [[nodiscard]] static Platform::Linux::DevicePaths paths()
    {
        return Platform::Linux::DevicePaths::fromEnvironment({});
    }

    /// Locks the state folder as an app in another container does, which has no process here.
    [[nodiscard]] static Platform::Storage::FileDescriptor lockAsApplication()
    {
        const auto file = paths().instanceLock();
        std::filesystem::create_directories(file.parent_path());
        Platform::Storage::FileDescriptor held(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        struct flock lock {};
        lock.l_type = F_WRLCK;
        EXPECT_EQ(::fcntl(held.get(), F_OFD_SETLK, &lock), 0);
        return held;
    }

    const TemporaryFolder folder;

private:
    static void checkPrinted(const std::string& words, const Printed& outcome)
    {
        const std::string printed = outcome.output + outcome.diagnostics;
        const auto isControl = [](unsigned char byte) { return std::iscntrl(byte) != 0 && byte != '\n'; };
        EXPECT_TRUE(std::none_of(printed.begin(), printed.end(), isControl))
            << words << testing::PrintToString(printed);
        if (words.find("--reveal") == std::string::npos) {
            EXPECT_THAT(printed, testing::Not(testing::HasSubstr("canary"))) << words;
        }
        std::istringstream lines(words.find("--json") != std::string::npos ? outcome.output : "");
        for (std::string line; std::getline(lines, line);)
            EXPECT_THAT(line, testing::MatchesRegex(R"(\{"version":1,".*\})")) << words;
    }

    sigset_t m_signals{};
    const std::filesystem::path m_currentPath = std::filesystem::current_path();
};
