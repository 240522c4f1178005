#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Linux/ApplicationProcess.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/ProcessSignals.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Device.h"
#include "Tools/qvctl/FileChanges.h"
#include "Tools/qvctl/LiveSession.h"
#include "Tools/qvctl/ManagedValues.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/PolicyFiles.h"
#include "Tools/qvctl/UserAccounts.h"

#include <fmt/format.h>

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Qvctl {

namespace {

namespace json = boost::json;
using namespace std::chrono_literals;
using Core::ConfigurationSnapshot;
using Core::ManagedKey;
using namespace Platform::Linux;
using namespace Platform::Linux::Files;

/// For reading and storing a large configuration after the debounce.
constexpr std::chrono::milliseconds applyTimeout = 10s;

/// For the first steps of an app that is just starting. Only then does it block the signals that it handles.
constexpr std::chrono::milliseconds startTimeout = 2s;

/// Reloads the app that uses the state of `device`.
ApplicationProcess requestReload(const Device& device)
{
    using Outcome = ApplicationProcess::Outcome;
    const auto lock = device.paths.instanceLock();
    const auto holder = InstanceLock::holder(lock);
    if (!holder)
        throw CommandError(unavailable, "the app is not running; it reads the policy when it starts");
    auto process = holder->process ? ApplicationProcess::open(*holder->process) : std::nullopt;
    // If the ID was reused before the process was opened, the holder is another one now.
    const auto confirmed = InstanceLock::holder(lock);
    const bool isHolder = process && confirmed && confirmed->process == holder->process;
    const Outcome outcome = isHolder ? process->send(ProcessSignals::reloadSignal) : Outcome::unreachable;
    if (outcome == Outcome::unsupported)
        throw CommandError(unavailable,
                           "the running app is an older version, which cannot reload; restart it");
    if (outcome == Outcome::unreachable)
        throw CommandError(unavailable, "the app cannot be reached: it has just ended, or runs in another "
                                        "container or on another machine");
    return *std::move(process);
}

/// Waits for a snapshot other than `before`.
ConfigurationSnapshot waitForChange(LiveSession& session, const FileChanges& commits, const Device& device,
                                    const std::optional<ConfigurationSnapshot>& before)
{
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + applyTimeout;
    for (auto left = applyTimeout; left > 0ms;
         left = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now())) {
        if (const auto now = device.storedSnapshot(); now && now != before)
            return *now;
        if (session.waitForEvent(commits.descriptor(), left) == LiveSession::Event::signal)
            session.endBySignal();
        commits.reset();
    }
    throw CommandError(unavailable, "the app applied no change within 10 seconds; it may use another policy "
                                    "file, or its log shows why: qvctl log");
}

json::object applicationJSON(const ApplicationProcess& process)
{
    return {{"user", userName(process.user())}, {"processId", process.identifier()}};
}

void printResult(const Options& options, const ApplicationProcess& process,
                 const ConfigurationSnapshot& snapshot, const std::vector<ManagedKey>& changed)
{
    json::array names;
    std::string labels;
    for (const ManagedKey& key : changed) {
        names.emplace_back(key.codingKey);
        labels += (labels.empty() ? "" : ", ") + labelOf(key);
    }
    if (options.isJSON)
        printJSON({{"configVersion", snapshot.configVersion},
                   {"changed", std::move(names)},
                   {"applications", json::array{applicationJSON(process)}}});
    else if (changed.empty())
        print("No value changed; version {} stays in effect\n", snapshot.configVersion);
    else
        print("Applied version {}; changed: {}\n", snapshot.configVersion, labels);
}

/// Sends the signal for reloading, again and again until `deadline` to a process that does not handle it yet.
ApplicationProcess::Outcome sendReload(const ApplicationProcess& process,
                                       std::chrono::steady_clock::time_point deadline)
{
    using Outcome = ApplicationProcess::Outcome;
    Outcome outcome = process.send(ProcessSignals::reloadSignal);
    for (bool isLast = false; outcome == Outcome::unsupported && !isLast;) {
        isLast = std::chrono::steady_clock::now() >= deadline;
        std::this_thread::sleep_for(20ms);
        const auto now = ApplicationProcess::open(process.identifier());
        outcome = now ? now->send(ProcessSignals::reloadSignal) : Outcome::unreachable;
    }
    return outcome;
}

/// Reloads the apps of all users. What changes for each of them depends on its state.
ExitCode reloadAll(const Options& options)
{
    using Outcome = ApplicationProcess::Outcome;
    json::array reached;
    std::string outdated;
    const auto deadline = std::chrono::steady_clock::now() + startTimeout;
    for (const ApplicationProcess& process : ApplicationProcess::all()) {
        const Outcome outcome = sendReload(process, deadline);
        if (outcome == Outcome::unsupported)
            outdated += (outdated.empty() ? "" : ", ") + userName(process.user());
        if (outcome != Outcome::delivered)
            continue;
        reached.push_back(applicationJSON(process));
        if (!options.isJSON)
            print("Reloaded the app of {} (process {})\n", userName(process.user()), process.identifier());
    }
    if (reached.empty() && outdated.empty())
        throw CommandError(unavailable, "the app runs for no user");
    if (options.isJSON && !reached.empty())
        printJSON({{"configVersion", nullptr}, {"changed", nullptr}, {"applications", std::move(reached)}});
    if (!outdated.empty())
        throw CommandError(
            unavailable,
            fmt::format("an older version, which cannot reload, runs for {}; restart it", outdated));
    return success;
}

} // namespace

ExitCode reload(const Options& options)
{
    LiveSession session;
    const Device device(options, Device::Access::inspect);
    if (::geteuid() == 0 && !InstanceLock::holder(device.paths.instanceLock()))
        return reloadAll(options);
    const DevicePolicy policy = Policy::readDevicePolicy(options);
    if (policy.bestReading().state != PolicyFileReading::State::good)
        return Policy::failUnusable(options, policy.bestReading());
    const auto expected = Core::validateManagedConfiguration(*policy.reading.document.root.dictionary());
    const auto before = device.storedSnapshot();
    // Writers touch this file after each commit.
    const auto bell = device.paths.suite(Core::Constants::appGroupSuiteName).replace_extension(".bell");
    const FileChanges commits({.files = {bell}}, device.log());
    const ApplicationProcess process = requestReload(device);
    if (before && before->config == expected) {
        printResult(options, process, *before, {});
        return success;
    }
    const auto after = waitForChange(session, commits, device, before);
    auto changed = printedKeys();
    std::erase_if(changed, [&](const ManagedKey& key) {
        return !isDifferent(key, before ? before->config : Core::ValidatedConfig{}, after.config);
    });
    printResult(options, process, after, changed);
    return success;
}

} // namespace Qvctl
