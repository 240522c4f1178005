#include "Tools/qvctl/Conditions.h"

#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Network/ExchangeRecord.h"
#include "Tools/qvctl/DevicePolicy.h"
#include "Tools/qvctl/InspectedStore.h"
#include "Tools/qvctl/LastOutcomes.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/RequestRehearsal.h"

#include <fmt/format.h>

#include <algorithm>

namespace Qvctl {

namespace {

using Core::ConfigurationSnapshot;
using Platform::Linux::Files::PolicyFileReading;
using Platform::PropertyLists::WithPlaces;

constexpr const char* noSnapshot = "no configuration was applied yet";

/// The policy file's values, or why there are none.
struct PolicyValues {
    std::optional<Core::ValidatedConfig> values;
    PolicyFileReading file;
    Verification failure;
};

PolicyValues readValues(const Options& options)
{
    const auto policy = DevicePolicy::read(options.managedConfiguration, WithPlaces::no);
    PolicyValues result{.values = {}, .file = policy.bestReading(), .failure = {}};
    if (result.file.state == PolicyFileReading::State::good)
        result.values = Core::validateManagedConfiguration(*result.file.document.root.dictionary());
    else if (result.file.state == PolicyFileReading::State::missing)
        result.failure = {.reason = "there is no policy file: " + policy.absence()};
    else
        result.failure = {.reason = "the policy file cannot be applied: " + result.file.diagnostic(),
                          .obstacle = configuration};
    return result;
}

Verification matching(const std::optional<ConfigurationSnapshot>& snapshot, const PolicyValues& policy)
{
    if (!policy.values)
        return policy.failure;
    if (!snapshot)
        return {.reason = noSnapshot};
    const std::string keys = differingKeys(snapshot->config, *policy.values);
    if (keys.empty())
        return {.isMet = true};
    return {.reason = fmt::format("the applied configuration differs from the policy file in {}", keys)};
}

} // namespace

Verification Conditions::applied() const
{
    try {
        const PolicyValues policy = readValues(m_options);
        return matching(m_device.storedSnapshot(), policy);
    } catch (const CommandError& error) {
        return {.reason = error.what()};
    }
}

Verification Conditions::installedApplied(std::string_view content) const
{
    const PolicyValues policy = readValues(m_options);
    const PolicyFileReading& file = policy.file;
    const bool isContentKnown = !file.bytes.empty() || file.state == PolicyFileReading::State::missing;
    if (isContentKnown && file.bytes != content)
        return {.reason = fmt::format("{} was {} before the app applied it", file.path.string(),
                                      file.bytes.empty() ? "removed" : "replaced"),
                .obstacle = checkFailed};
    try {
        return matching(m_device.storedSnapshot(), policy);
    } catch (const CommandError& error) {
        return {.reason = error.what()};
    }
}

Verification Conditions::reached(std::int64_t version) const
{
    const std::int64_t stored = this->version();
    if (stored >= version)
        return {.isMet = true};
    return {.reason =
                stored > 0 ? fmt::format("the applied configuration has version {}", stored) : noSnapshot};
}

Verification Conditions::running() const
{
    const auto holder = Platform::Linux::InstanceLock::holder(m_device.paths.instanceLock());
    if (holder && holder->isApplication())
        return {.isMet = true};
    return {.reason = "the app is not running"};
}

Verification Conditions::uploaded() const
{
    std::optional<ConfigurationSnapshot> snapshot;
    try {
        snapshot = m_device.storedSnapshot();
    } catch (const CommandError& error) {
        return {.reason = error.what()};
    }
    if (!snapshot)
        return {.reason = noSnapshot};
    if (!snapshot->config.baseDomain || !snapshot->config.deviceId)
        return {.reason = fmt::format("no device token is uploaded because {} is not set",
                                      snapshot->config.baseDomain ? "device_id" : "base_domain")};
    const auto target = uploadAddress(snapshot->config);
    if (!target)
        return {.reason = "the applied configuration allows no upload"};
    const InspectedStore shell(m_device.paths.shellState());
    const auto exchanges = Platform::Network::storedExchanges(shell.values);
    const auto found = exchanges.find(target->endpoint());
    if (!shell.problem().empty())
        return {.reason = shell.problem()};
    if (found == exchanges.end() || !isUpload(found->second, target->url))
        return {.reason = "the device token was not uploaded to the applied backend yet"};
    const auto& upload = found->second;
    if (upload.isSuccess())
        return {.isMet = true};
    return {.reason = upload.statusCode != 0
                          ? fmt::format("the last upload failed with status {}", upload.statusCode)
                          : "the last upload failed: " + networkErrorClause(upload.errorCode)};
}

std::int64_t Conditions::version() const
{
    try {
        const auto snapshot = m_device.storedSnapshot();
        return snapshot ? snapshot->configVersion : 0;
    } catch (const CommandError&) {
        return 0;
    }
}

Platform::Linux::Files::PolicyPlaces Conditions::watchedFiles() const
{
    auto places = Platform::Linux::DevicePaths::policyPlaces(m_options.managedConfiguration);
    // Writers of a store touch its bell file after each commit.
    for (std::filesystem::path store :
         {m_device.paths.suite(Core::Constants::appGroupSuiteName), m_device.paths.shellState()})
        places.files.push_back(store.replace_extension(".bell"));
    return places;
}

Verifications verify(const Options& options, const std::vector<std::string>& names)
{
    Verifications verifications;
    if (names.empty())
        return verifications;
    const Device device(options, Device::Access::inspect);
    const Conditions conditions(device, options);
    for (const NamedCondition& condition : namedConditions) {
        if (std::find(names.begin(), names.end(), condition.name) != names.end())
            verifications.emplace_back(condition.name, (conditions.*condition.verify)());
    }
    return verifications;
}

void printConditions(const Verifications& verifications)
{
    for (const auto& [name, verification] : verifications)
        printRow(fmt::format("check {}", name),
                 verification.isMet ? toned(Tone::good, "met")
                                    : styled("{}: {}", toned(Tone::bad, "not met"), verification.reason));
}

boost::json::array conditionsJSON(const Verifications& verifications)
{
    boost::json::array conditions;
    for (const auto& [name, verification] : verifications)
        conditions.push_back({{"name", name},
                              {"isMet", verification.isMet},
                              {"reason", verification.isMet ? boost::json::value()
                                                            : boost::json::value(verification.reason)}});
    return conditions;
}

} // namespace Qvctl
