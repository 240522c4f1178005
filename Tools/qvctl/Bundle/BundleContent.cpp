#include "Tools/qvctl/Bundle/BundleContent.h"

#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/Logging/JournalReader.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/SystemClock.h"
#include "Tools/qvctl/Bundle/Redaction.h"
#include "Tools/qvctl/Bundle/StoreDescription.h"
#include "Tools/qvctl/Bundle/SystemDescription.h"
#include "Tools/qvctl/Doctor/SecondProcess.h"
#include "Tools/qvctl/InspectedStore.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/PolicyFiles.h"

#include <fmt/format.h>

#include <cstdlib>
#include <exception>
#include <functional>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Qvctl::Bundle {

namespace {

namespace json = boost::json;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
namespace fs = std::filesystem;

/// Collects the files one by one.
class Collector {
public:
    explicit Collector(const Options& options)
        : m_paths(DevicePaths::fromEnvironment(options.managedConfiguration)), m_options(options)
    {
        hideUser();
        readConfigurations();
    }

    [[nodiscard]] std::vector<BundleFile> collect()
    {
        add("versions.json", "versions of the system and the packages",
            [] { return prettyJSON(describePlatform()); });
        addCommand("status.json", "what qvctl status shows", {"status"});
        addCommand("doctor.json", "the checks of qvctl doctor --offline", {"doctor", "--offline"});
        addLint();
        addCommand("explain.json", "why each managed key has its value, without the values",
                   {"config", "explain"});
        add("configuration.json", "type, length and hash of each configured value",
            [&] { return prettyJSON(m_configurations); });
        add("stores.json", "tables and keys of the stores, without the values",
            [&] { return prettyJSON(describeStores()); });
        add("files.txt", "mode, owner, size and time of each file", [&] {
            return listFiles({m_paths.stateFolder, policyFolder}, m_redaction);
        });
        add("log.txt", "public lines of the app's log", [&] { return logLines(); });
        return std::move(m_files);
    }

private:
    void hideUser()
    {
        const passwd* account = ::getpwuid(::geteuid());
        if (account != nullptr && ::geteuid() != 0)
            m_redaction.hideText(account->pw_name);
        const char* home = std::getenv("HOME");
        m_redaction.hideHome(home != nullptr ? home : account != nullptr ? account->pw_dir : "");
    }

    /// Describes the policy files and the snapshot. Their values do not appear in other files of the bundle.
    void readConfigurations()
    {
        for (const fs::path& file : policyFiles()) {
            struct stat status {};
            if (::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
                continue;
            m_policyFiles.push_back(file);
            const PolicyFileReading reading = Policy::readNamedPolicy(file);
            if (reading.state != PolicyFileReading::State::good)
                continue;
            m_redaction.hide(reading.document.root);
            m_configurations.push_back({{"source", m_redaction.redact(file.string())},
                                        {"content", m_redaction.describe(reading.document.root)}});
        }
        const InspectedStore suite(m_paths.suite(Core::Constants::appGroupSuiteName));
        const auto bytes = suite.values.data(Core::Constants::SnapshotKeys::configSnapshot);
        try {
            if (bytes)
                readSnapshot(Core::ConfigurationSnapshot::decode(*bytes));
        } catch (const Core::DecodingError&) {
            // status.json has the reason.
        }
        const InspectedStore standard(m_paths.standardDefaults());
        m_redaction.hideText(
            standard.values.text(Core::Constants::StorageKeys::remoteNotificationDeviceToken).value_or(""));
    }

    [[nodiscard]] std::vector<fs::path> policyFiles() const
    {
        std::vector<fs::path> files = m_paths.policy.files;
        if (m_paths.policy.fragments.empty())
            return files;
        for (const auto& entry : Platform::Linux::Files::listFragments(m_paths.policy.fragments).entries)
            files.push_back(m_paths.policy.fragments / entry.name);
        return files;
    }

    void readSnapshot(const Core::ConfigurationSnapshot& snapshot)
    {
        Platform::PropertyList::Dictionary values;
        for (const Core::ManagedKey& key : printedKeys()) {
            Platform::PropertyList::Array list;
            for (const std::string_view value : Core::valuesOf(key, snapshot.config))
                list.emplace_back(std::string(value));
            if (key.isList())
                values.emplace(key.name, std::move(list));
            else if (!list.empty())
                values.emplace(key.name, list.front());
        }
        const Platform::PropertyList content(std::move(values));
        m_redaction.hide(content);
        m_configurations.push_back({{"source", "snapshot"},
                                    {"configVersion", snapshot.configVersion},
                                    {"content", m_redaction.describe(content)}});
    }

    void add(const char* name, const char* description, const std::function<std::string()>& make)
    {
        std::string content;
        try {
            content = make();
        } catch (const std::exception& error) {
            content = "not available: " + m_redaction.redact(error.what());
        }
        m_files.push_back({name, description, content + (content.ends_with('\n') ? "" : "\n")});
    }

    /// Runs the command in a process of its own, because a damaged or locked store could stop it.
    [[nodiscard]] json::value outputOf(std::vector<std::string> arguments) const
    {
        constexpr std::chrono::seconds timeLimit{60};
        arguments.emplace_back("--json");
        if (m_options.managedConfiguration)
            arguments.insert(arguments.end(), {"--managed-configuration", *m_options.managedConfiguration});
        const auto outcome = Doctor::runSecondProcess(Doctor::thisProgram, arguments, timeLimit);
        json::object object{{"exitCode", outcome.hasEnded ? json::value(outcome.exitCode) : json::value()}};
        auto& objects = object["output"].emplace_array();
        std::istringstream lines(outcome.output);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with('{')) // The others are messages, which JSON repeats.
                objects.push_back(m_redaction.redactJSON(json::parse(line)));
        }
        return object;
    }

    void addCommand(const char* name, const char* description, const std::vector<std::string>& arguments)
    {
        add(name, description, [&] { return prettyJSON(outputOf(arguments)); });
    }

    void addLint()
    {
        std::vector<std::string> arguments{"config", "lint"};
        for (const fs::path& file : m_policyFiles)
            arguments.push_back(file.string());
        add("lint.json", "problems of the policy files", [&] {
            return m_policyFiles.empty() ? "there is no policy file" : prettyJSON(outputOf(arguments));
        });
    }

    [[nodiscard]] json::array describeStores() const
    {
        json::array stores;
        for (const fs::path& file : {m_paths.standardDefaults(), m_paths.shellState(),
                                     m_paths.suite(Core::Constants::appGroupSuiteName)})
            stores.push_back(describeStore(file, m_redaction));
        return stores;
    }

    [[nodiscard]] std::string logLines() const
    {
        using namespace Platform::Linux::Logging;
        constexpr std::uint64_t maximumLineCount = 2000;
        JournalReader reader(
            {.identifier = std::string(journalIdentifier), .user = ::geteuid(), .limit = maximumLineCount});
        std::string text;
        while (const auto entry = reader.next()) {
            // A private line has its message in the development profile.
            const bool isPublic = entry->privacy == "public";
            text += logLine(entry->time, m_redaction.redact(entry->level),
                            m_redaction.redact(entry->subsystem), m_redaction.redact(entry->category),
                            isPublic ? m_redaction.redact(entry->text) : "<private>");
        }
        return text;
    }

    const DevicePaths m_paths;
    const Options& m_options;
    Redaction m_redaction;
    std::vector<fs::path> m_policyFiles;
    json::array m_configurations;
    std::vector<BundleFile> m_files;
};

} // namespace

std::vector<BundleFile> collectBundle(const Options& options)
{
    return Collector(options).collect();
}

} // namespace Qvctl::Bundle
