#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/PolicyFileReading.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/SnapshotFields.h"

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <limits>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;
using Core::ConfigurationSnapshot;
using namespace Platform::Linux;

std::string_view stateName(PolicyFileReading::State state)
{
    constexpr std::array<std::string_view, 5> names{"missing", "untrusted", "unreadable", "malformed",
                                                    "good"};
    return names.at(static_cast<std::size_t>(state));
}

/// What the device knows of notifications.
struct NotificationState {
    Platform::AuthorizationStatus permission;
    std::optional<std::string> token;
    std::size_t historyCount;
};

NotificationState notificationState(Device& device)
{
    const auto& standard = device.defaults.standard();
    using PushNotifications::NotificationPayloadProcessor;
    return {device.shellState.authorizationStatus(),
            standard.text(Core::Constants::StorageKeys::remoteNotificationDeviceToken),
            NotificationPayloadProcessor::payloadSummaries(standard, std::numeric_limits<std::int64_t>::max())
                .size()};
}

void printStatus(const std::optional<ConfigurationSnapshot>& snapshot, const PolicyFileReading& policy,
                 const NotificationState& notifications, std::optional<pid_t> process, const Options& options)
{
    if (snapshot) {
        printRow("Configuration", fmt::format("version {}, applied {}", snapshot->configVersion,
                                              snapshot->lastUpdated.utcText()));
        for (const SnapshotField& field : fieldsOf(*snapshot))
            printRow(field.label,
                     field.value ? toned(Tone::good, "present") : toned(Tone::warning, "absent"));
        printRow("allowed apps", std::to_string(snapshot->allowedAppBundleIds.size()));
    } else {
        printRow("Configuration", toned(Tone::warning, "none was ever applied"));
    }
    const bool isGood = policy.state == PolicyFileReading::State::good;
    printRow("Policy file", isGood ? styled("{} ({})", policy.path, toned(Tone::good, "good"))
                            : policy.state == PolicyFileReading::State::missing
                                ? styled("{} ({})", policy.path, toned(Tone::warning, "missing"))
                                : toned(Tone::bad, policy.diagnostic()));
    const bool isAllowed = permissionName(notifications.permission) == "allowed";
    printRow("Notifications",
             toned(isAllowed ? Tone::good : Tone::warning, permissionName(notifications.permission)));
    printRow("device token", !notifications.token  ? toned(Tone::warning, "absent")
                             : options.isRevealing ? styled("{}", *notifications.token)
                                                   : styled("{}, {} bytes", toned(Tone::good, "present"),
                                                            notifications.token->size() / 2));
    printRow("history", std::to_string(notifications.historyCount));
    printRow("Application", process ? styled("{}, process {}", toned(Tone::good, "running"), *process)
                                    : toned(Tone::warning, "not running"));
}

} // namespace

ExitCode status(const Options& options)
{
    Device device(options, Device::Access::inspect);
    const auto snapshot = device.storedSnapshot();
    std::vector<PolicyFileReading> passedOver;
    PolicyFileReading policy =
        readFirstPolicyFile(device.paths.managedConfigurationCandidates, WithPlaces::no, &passedOver);
    if (policy.state == PolicyFileReading::State::missing && !passedOver.empty())
        policy = std::move(passedOver.front());
    const NotificationState notifications = notificationState(device);
    const auto process = InstanceLock::holder(device.paths.instanceLock());
    if (!options.isJSON) {
        printStatus(snapshot, policy, notifications, process, options);
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
    object["notificationPermission"] = permissionName(notifications.permission);
    object["hasDeviceToken"] = notifications.token.has_value();
    if (options.isRevealing && notifications.token)
        object["deviceToken"] = *notifications.token;
    object["historyCount"] = notifications.historyCount;
    object["processId"] = process ? json::value(*process) : json::value();
    printJSON(std::move(object));
    return success;
}

ExitCode snapshot(const Options& options)
{
    Device device(options, Device::Access::inspect);
    auto snapshot = device.storedSnapshot();
    if (!snapshot) {
        return fail(options, noInput,
                    fmt::format("no snapshot is stored in {}",
                                device.paths.suite(Core::Constants::appGroupSuiteName).string()));
    }
    if (snapshot->apiKey && !options.isRevealing)
        snapshot->apiKey = mask;
    if (options.isJSON) {
        printJSON(Core::JSONDecoder().decode(snapshot->encode()).get_object());
        return success;
    }
    printRow("version", fmt::format("{} (schema {})", snapshot->configVersion, snapshot->schemaVersion));
    printRow("last updated", snapshot->lastUpdated.utcText());
    for (const SnapshotField& field : fieldsOf(*snapshot))
        printRow(field.label, field.value ? styled("{}", *field.value) : toned(Tone::warning, "absent"));
    printRow("allowed apps", std::to_string(snapshot->allowedAppBundleIds.size()));
    for (const std::string& bundleId : snapshot->allowedAppBundleIds)
        printRow("", bundleId);
    return success;
}

} // namespace Qvctl
