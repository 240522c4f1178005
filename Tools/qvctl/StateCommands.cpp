#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Network/ExchangeRecord.h"
#include "Platform/Push/PushServiceState.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Conditions.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/LastOutcomes.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/OwnState.h"
#include "Tools/qvctl/TimeText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;
using Core::ConfigurationSnapshot;
using Core::ManagedKey;
using namespace Platform::PropertyLists;
using namespace Platform::Storage;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;
using namespace Platform::Network;
using namespace Platform::Push;

std::string_view stateName(PolicyFileReading::State state)
{
    constexpr std::array<std::string_view, 5> names{"missing", "untrusted", "unreadable", "malformed",
                                                    "good"};
    return names.at(static_cast<std::size_t>(state));
}

/// What `status` reports.
struct DeviceState {
    std::optional<ConfigurationSnapshot> snapshot;
    DevicePolicy policy;
    Platform::AuthorizationStatus permission;
    std::optional<std::string> token;
    std::size_t historyCount;
    std::optional<PushServiceState> pushService;
    /// To any server.
    std::optional<ExchangeRecord> lastRequest;
    Platform::Outcomes outcomes;
    std::optional<InstanceLock::Holder> lockHolder;
    /// The first thing that could not be read; empty if everything could.
    std::string problem;
    ExitCode exitCode = success;
    /// Whether `problem` is about the snapshot.
    bool isSnapshotDamaged = false;
};

std::optional<ExchangeRecord> newestExchange(const Platform::UserDefaults& store)
{
    std::optional<ExchangeRecord> newest;
    for (const auto& [server, record] : storedExchanges(store)) {
        if (!newest || newest->time.secondsSinceReferenceDate < record.time.secondsSinceReferenceDate)
            newest = record;
    }
    return newest;
}

DeviceState readState(const Options& options)
{
    using PushNotifications::NotificationPayloadProcessor;
    Device device(options, Device::Access::inspect);
    const auto& standard = device.defaults.standard();
    constexpr auto all = std::numeric_limits<std::int64_t>::max();
    DeviceState state{
        .snapshot = {},
        .policy = DevicePolicy::read(options.managedConfiguration, WithPlaces::no),
        .permission = device.shellState.authorizationStatus(),
        .token = standard.text(Core::Constants::StorageKeys::remoteNotificationDeviceToken),
        .historyCount = NotificationPayloadProcessor::payloadSummaries(standard, all).size(),
        .pushService = PushServiceState::stored(device.shellState.store()),
        .lastRequest = newestExchange(device.shellState.store()),
        .outcomes = Platform::storedOutcomes(device.shellState.store()),
        .lockHolder = InstanceLock::holder(device.paths.instanceLock()),
        .problem = device.firstProblem(),
        .exitCode = device.firstProblem().empty() ? success : unavailable,
    };
    try {
        state.snapshot = device.storedSnapshot();
    } catch (const CommandError& error) {
        state.isSnapshotDamaged = true;
        state.problem = error.what();
        state.exitCode = error.exitCode();
    }
    return state;
}

void printConfiguration(const DeviceState& state)
{
    if (state.isSnapshotDamaged) {
        printRow("Configuration", toned(Tone::bad, state.problem));
        return;
    }
    if (!state.snapshot) {
        printRow("Configuration", toned(Tone::warning, "none applied yet"));
        return;
    }
    printRow("Configuration", styled("version {}, applied {}", state.snapshot->configVersion,
                                     timeWithAge(state.snapshot->lastUpdated)));
    for (const ManagedKey& key : printedKeys()) {
        const std::size_t count = Core::valuesOf(key, state.snapshot->config).size();
        printRow(labelOf(key), key.isList() ? styled("{}", count)
                               : count > 0  ? toned(Tone::good, "present")
                                            : toned(Tone::warning, "absent"));
    }
}

void printPolicy(const DevicePolicy& policy)
{
    const PolicyFileReading& reading = policy.bestReading();
    printRow("Policy file", reading.state == PolicyFileReading::State::good
                                ? styled("{} ({})", reading.path, toned(Tone::good, "good"))
                            : reading.state == PolicyFileReading::State::missing
                                ? styled("{}: {}", toned(Tone::warning, "missing"), policy.absence())
                                : toned(Tone::bad, reading.diagnostic()));
    if (!policy.ignored.empty())
        printRow("", toned(Tone::warning, policy.ignoredText()));
    for (const auto& fragment : policy.fragmentPaths())
        printRow("fragment", styled("{}", fragment));
}

Styled pushServiceText(const std::optional<PushServiceState>& service)
{
    if (!service)
        return toned(Tone::warning, "unknown");
    const auto name = pushServiceName(service->kind);
    return service->failure ? styled("{}, {}", name, toned(Tone::bad, "registration failed"))
                            : styled("{}", name);
}

Styled applicationText(const std::optional<InstanceLock::Holder>& holder)
{
    if (!holder)
        return toned(Tone::warning, "not running");
    if (!holder->isApplication())
        return styled("{}; another program holds its lock: {} (process {})",
                      toned(Tone::warning, "not running"), holder->program, *holder->process);
    if (!holder->process)
        return styled("{} in another container or on another machine", toned(Tone::good, "running"));
    if (holder->isOutdated() == true)
        return styled("{}, process {}, {}", toned(Tone::good, "running"), *holder->process,
                      toned(Tone::warning, "an older version; restart it"));
    return styled("{}, process {}", toned(Tone::good, "running"), *holder->process);
}

void printStatus(const DeviceState& state, const Options& options)
{
    printConfiguration(state);
    printPolicy(state.policy);
    const auto permission = permissionName(state.permission);
    printRow("Notifications", toned(permission == "allowed" ? Tone::good : Tone::warning, permission));
    printRow("device token", !state.token          ? toned(Tone::warning, "absent")
                             : options.isRevealing ? styled("{}", *state.token)
                                                   : styled("{}, {} bytes", toned(Tone::good, "present"),
                                                            state.token->size() / 2));
    printRow("push service", pushServiceText(state.pushService));
    printOutcomes(state.outcomes);
    printRow("history", std::to_string(state.historyCount));
    printRow("Application", applicationText(state.lockHolder));
}

/// Returns null for 0, which means "none".
json::value codeJSON(std::int64_t code)
{
    return code != 0 ? json::value(code) : json::value();
}

json::object pushServiceJSON(const std::optional<PushServiceState>& service)
{
    const auto failure = service ? service->failure : std::nullopt;
    return {{"kind", service ? json::value(pushServiceName(service->kind)) : json::value()},
            {"failureCode", failure ? json::value(failure->code) : json::value()},
            {"failureTime", failure ? json::value(failure->time.utcText()) : json::value()}};
}

json::object requestJSON(const std::optional<ExchangeRecord>& request)
{
    if (!request)
        return {{"time", nullptr}, {"method", nullptr}, {"statusCode", nullptr}, {"errorCode", nullptr}};
    return {{"time", request->time.utcText()},
            {"method", request->method},
            {"statusCode", codeJSON(request->statusCode)},
            {"errorCode", codeJSON(request->errorCode)}};
}

json::object statusJSON(const DeviceState& state, const Options& options)
{
    const auto& snapshot = state.snapshot;
    const PolicyFileReading& policy = state.policy.bestReading();
    json::object object{{"configVersion", snapshot ? snapshot->configVersion : 0}};
    object["lastUpdated"] = snapshot ? json::value(snapshot->lastUpdated.utcText()) : json::value();
    const Core::ValidatedConfig none;
    for (const ManagedKey& key : printedKeys()) {
        const std::size_t count = Core::valuesOf(key, snapshot ? snapshot->config : none).size();
        object[statusMemberOf(key)] = key.isList() ? json::value(count) : json::value(count > 0);
    }
    object["policyFile"] = {{"path", policy.path.string()},
                            {"state", stateName(policy.state)},
                            {"reason", policy.reason.empty() ? json::value() : json::value(policy.reason)},
                            {"places", pathsJSON(state.policy.places.files)},
                            {"ignored", pathsJSON(state.policy.ignored)},
                            {"fragments", pathsJSON(state.policy.fragmentPaths())}};
    object["notificationPermission"] = permissionName(state.permission);
    object["hasDeviceToken"] = state.token.has_value();
    if (options.isRevealing && state.token)
        object["deviceToken"] = *state.token;
    object["pushService"] = pushServiceJSON(state.pushService);
    object["lastRequest"] = requestJSON(state.lastRequest);
    addOutcomes(object, state.outcomes);
    object["historyCount"] = state.historyCount;
    const bool isRunning = state.lockHolder && state.lockHolder->isApplication();
    object["isRunning"] = isRunning;
    object["processId"] =
        isRunning && state.lockHolder->process ? json::value(*state.lockHolder->process) : json::value();
    const auto isOutdated = isRunning ? state.lockHolder->isOutdated() : std::nullopt;
    object["isOutdated"] = isOutdated ? json::value(*isOutdated) : json::value();
    if (!state.problem.empty())
        object["error"] = state.problem;
    return object;
}

void printValue(const ManagedKey& key, const Core::ValidatedConfig& config)
{
    const auto values = Core::valuesOf(key, config);
    if (key.isList()) {
        printRow(labelOf(key), std::to_string(values.size()));
        for (const std::string_view value : values)
            printRow("", value);
    } else {
        printRow(labelOf(key),
                 values.empty() ? toned(Tone::warning, "absent") : styled("{}", values.front()));
    }
}

} // namespace

ExitCode status(const Options& options, const std::vector<std::string>& conditions)
{
    const DeviceState state = readState(options);
    const Verifications verified = verify(options, conditions);
    if (options.isJSON) {
        auto object = statusJSON(state, options);
        if (!conditions.empty())
            object["conditions"] = conditionsJSON(verified);
        printJSON(std::move(object));
    } else {
        printStatus(state, options);
        printConditions(verified);
    }
    const bool isEachMet = std::all_of(verified.begin(), verified.end(),
                                       [](const auto& condition) { return condition.second.isMet; });
    return state.exitCode == success && !isEachMet ? checkFailed : state.exitCode;
}

ExitCode snapshot(const Options& options)
{
    Device device(options, Device::Access::inspect);
    auto snapshot = device.storedSnapshot();
    if (!snapshot) {
        return fail(options, noInput,
                    fmt::format("no snapshot stored in {}",
                                device.paths.suite(Core::Constants::appGroupSuiteName).string()));
    }
    snapshot->config = maskedConfig(std::move(snapshot->config), options.isRevealing);
    if (options.isJSON) {
        printJSON(Core::JSONDecoder().decode(snapshot->encode()).get_object());
        return success;
    }
    printRow("version", fmt::format("{} (schema {})", snapshot->configVersion, snapshot->schemaVersion));
    printRow("last updated", timeWithAge(snapshot->lastUpdated));
    for (const ManagedKey& key : printedKeys())
        printValue(key, snapshot->config);
    return success;
}

ExitCode configForget(const Options& options)
{
    const auto paths = DevicePaths::fromEnvironment(options.managedConfiguration);
    const auto suite = paths.suite(Core::Constants::appGroupSuiteName);
    requireOwnState(paths);
    const bool isStored = std::filesystem::exists(suite);
    if (isStored) {
        const Device device(options, Device::Access::readWrite);
        const Platform::SystemClock clock;
        SQLiteUserDefaults store(suite, Device::Access::readWrite, clock, device.log());
        if (!store.erase(Core::Constants::SnapshotKeys::all)) {
            if (options.isJSON)
                printJSON({{"suite", suite.string()}, {"error", device.firstProblem()}});
            return unavailable; // The store printed why.
        }
    }
    const DevicePolicy policy = DevicePolicy::read(options.managedConfiguration, WithPlaces::no);
    const bool isPolicyGood = policy.reading.state == PolicyFileReading::State::good;
    if (options.isJSON)
        printJSON({{"suite", suite.string()}, {"removed", isStored}, {"policyInForce", isPolicyGood}});
    else
        print("{} {}\n", isStored ? "Deleted the snapshot in" : "No snapshot stored in", suite);
    if (isPolicyGood && !options.isJSON)
        print("{} still exists: the app stores a new snapshot when this file changes or the app restarts\n",
              policy.reading.path);
    return success;
}

} // namespace Qvctl
