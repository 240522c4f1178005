#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Platform/Linux/AdapterLog.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/PolicyFileReading.h"
#include "Platform/Linux/SystemClock.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <array>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;
using Core::ConfigurationSnapshot;
using namespace Platform::Linux;

/// What the adapters have to say goes to the person who asked.
class ConsoleLog final : public Platform::UnifiedLog {
public:
    void write(const Platform::LogHandle&, Platform::LogType, Platform::LogVisibility,
               std::string_view line) noexcept override
    {
        std::fprintf(stderr, "qvctl: %.*s\n", static_cast<int>(line.size()), line.data());
    }
};

/// The device as a second process sees it: nothing is made, moved or mended.
class InspectedDevice {
    ConsoleLog m_log;
    SystemClock m_clock;
    AdapterLog m_adapterLog{m_log, std::string(applicationIdentifier)};

public:
    explicit InspectedDevice(const Options& options)
        : paths(DevicePaths::fromEnvironment(options.managedConfiguration)),
          defaults(paths, SQLiteUserDefaults::Access::inspect, m_clock, m_adapterLog)
    {}

    /// Absent when none is stored. Throws `Core::DecodingError` for one that is damaged.
    std::optional<ConfigurationSnapshot> storedSnapshot()
    {
        const auto* suite = defaults.suite(Core::Constants::appGroupSuiteName);
        const auto bytes =
            suite != nullptr ? suite->data(Core::Constants::SnapshotKeys::configSnapshot) : std::nullopt;
        return bytes ? std::optional(ConfigurationSnapshot::decode(*bytes)) : std::nullopt;
    }

    const DevicePaths paths;
    DeviceDefaults defaults;
};

std::string_view stateName(PolicyFileReading::State state)
{
    constexpr std::array<std::string_view, 5> names{"missing", "untrusted", "unreadable", "malformed",
                                                    "good"};
    return names.at(static_cast<std::size_t>(state));
}

void printRow(std::string_view label, std::string_view text)
{
    fmt::print("{:<16}{}\n", label, text);
}

struct NamedValue {
    const char* name;
    const std::optional<std::string>& value;
};

std::array<NamedValue, 4> valuesOf(const ConfigurationSnapshot& snapshot)
{
    return {{{"organization id", snapshot.organizationId},
             {"base domain", snapshot.baseDomain},
             {"api key", snapshot.apiKey},
             {"device id", snapshot.deviceId}}};
}

void printStatus(const std::optional<ConfigurationSnapshot>& snapshot, const PolicyFileReading& policy,
                 std::optional<pid_t> process)
{
    if (snapshot) {
        printRow("Configuration", fmt::format("version {}, applied {}", snapshot->configVersion,
                                              snapshot->lastUpdated.utcText()));
        for (const NamedValue& entry : valuesOf(*snapshot))
            printRow(entry.name, entry.value ? toned(Tone::good, "present") : toned(Tone::warning, "absent"));
        printRow("allowed apps", std::to_string(snapshot->allowedAppBundleIds.size()));
    } else {
        printRow("Configuration", toned(Tone::warning, "none was ever applied"));
    }
    const bool isGood = policy.state == PolicyFileReading::State::good;
    printRow("Policy file",
             isGood ? fmt::format("{} ({})", policy.path.string(), toned(Tone::good, "good"))
             : policy.state == PolicyFileReading::State::missing
                 ? fmt::format("{} ({})", policy.path.string(), toned(Tone::warning, "missing"))
                 : toned(Tone::bad, policy.diagnostic()));
    printRow("Application", process ? fmt::format("{}, process {}", toned(Tone::good, "running"), *process)
                                    : toned(Tone::warning, "not running"));
}

} // namespace

ExitCode status(const Options& options)
{
    InspectedDevice device(options);
    const auto snapshot = device.storedSnapshot();
    std::vector<PolicyFileReading> passedOver;
    PolicyFileReading policy =
        readFirstPolicyFile(device.paths.managedConfigurationCandidates, WithPlaces::no, &passedOver);
    if (policy.state == PolicyFileReading::State::missing && !passedOver.empty())
        policy = std::move(passedOver.front());
    const auto process = InstanceLock::holder(device.paths.instanceLock());
    if (!options.isJSON) {
        printStatus(snapshot, policy, process);
        return success;
    }
    json::object object{{"configVersion", snapshot ? snapshot->configVersion : 0}};
    object["lastUpdated"] = snapshot ? json::value(snapshot->lastUpdated.utcText()) : json::value();
    object["hasOrganizationId"] = snapshot && snapshot->organizationId;
    object["hasBaseDomain"] = snapshot && snapshot->baseDomain;
    object["hasApiKey"] = snapshot && snapshot->apiKey;
    object["hasDeviceId"] = snapshot && snapshot->deviceId;
    object["allowedAppCount"] = snapshot ? snapshot->allowedAppBundleIds.size() : 0;
    object["policyFile"] = {{"path", policy.path.string()},
                            {"state", stateName(policy.state)},
                            {"reason", policy.reason.empty() ? json::value() : json::value(policy.reason)}};
    object["processId"] = process ? json::value(*process) : json::value();
    printJSON(std::move(object));
    return success;
}

ExitCode snapshot(const Options& options)
{
    InspectedDevice device(options);
    auto snapshot = device.storedSnapshot();
    if (!snapshot) {
        fmt::print(stderr, "qvctl: no snapshot is stored in {}\n",
                   device.paths.suite(Core::Constants::appGroupSuiteName).string());
        return noInput;
    }
    if (snapshot->apiKey && !options.isRevealing)
        snapshot->apiKey = mask;
    if (options.isJSON) {
        printJSON(Core::JSONDecoder().decode(snapshot->encode()).get_object());
        return success;
    }
    printRow("version", fmt::format("{} (schema {})", snapshot->configVersion, snapshot->schemaVersion));
    printRow("last updated", snapshot->lastUpdated.utcText());
    for (const NamedValue& entry : valuesOf(*snapshot))
        printRow(entry.name, entry.value ? printable(*entry.value) : toned(Tone::warning, "absent"));
    printRow("allowed apps", std::to_string(snapshot->allowedAppBundleIds.size()));
    for (const std::string& bundleId : snapshot->allowedAppBundleIds)
        printRow("", printable(bundleId));
    return success;
}

} // namespace Qvctl
