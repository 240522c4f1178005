#include "Platform/Linux/LocalPushService.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/ProcessFigures.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"
#include "Tools/Backend/PushSender.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

struct Member {
    std::string id;
    std::unique_ptr<TrialDevice> device;
    std::unique_ptr<ChildProcess> application = nullptr;

    void expectLine(std::string_view text) const
    {
        require(application->waitForLine(text, 120s), "{} did not log: {}", id, text);
    }
};

/// Prints minimum, median and maximum of all devices.
void printRow(std::string_view name, std::vector<double> values, std::string_view unit)
{
    std::sort(values.begin(), values.end());
    fmt::print("{:<46} {:>9.1f} {:>9.1f} {:>9.1f}  {}\n", name, values.front(), values[values.size() / 2],
               values.back(), unit);
}

template <typename Figure>
std::vector<double> figures(const std::vector<Member>& fleet, Figure figureOf)
{
    std::vector<double> values;
    for (const Member& member : fleet)
        values.push_back(static_cast<double>(figureOf(member.application->processId())));
    return values;
}

/// Requires one upload per device, with the token that the device has stored.
void requireTokens(TestBackend& backend, const std::vector<Member>& fleet)
{
    std::map<std::string, std::vector<std::string>> tokens;
    for (const TestBackend::Request& request : backend.takeRequests()) {
        const auto token = uploadedToken(request);
        const auto identifier = request.headerFields.find("X-Device-Id");
        require(token && identifier != request.headerFields.end(), "the request uploads no token: {}",
                request.target);
        require(request.target.find("/" + identifier->second + "/token") != std::string::npos,
                "{} uploads for another device: {}", identifier->second, request.target);
        tokens[identifier->second].push_back(*token);
    }
    require(tokens.size() == fleet.size(), "{} of {} devices uploaded a token", tokens.size(), fleet.size());
    for (const Member& member : fleet) {
        const auto& uploaded = tokens[member.id];
        require(uploaded.size() == 1, "{} uploaded {} times", member.id, uploaded.size());
        require(uploaded[0] == member.device->inspect().deviceToken,
                "{} uploaded a token other than the stored one", member.id);
    }
}

} // namespace

void fleetTrial(const TrialPrograms& programs, int devices)
{
    const TemporaryFolder folder;
    TestBackend backend({.folder = folder.path()});
    std::vector<Member> fleet;
    for (int i = 1; i <= devices; ++i) {
        const std::string id = fmt::format("DEV-{}", i);
        fleet.push_back({id, std::make_unique<TrialDevice>(programs.folder, backend, id)});
        fleet.back().device->replacePolicy(fleet.back().device->policy({"mail"}));
    }
    fmt::print("{:<46} {:>9} {:>9} {:>9}\n", fmt::format("{} devices", devices), "min", "median", "max");

    for (Member& member : fleet)
        member.application = member.device->start();
    for (const Member& member : fleet)
        member.expectLine("Device token uploaded to backend");
    requireTokens(backend, fleet);

    const Platform::SystemClock clock;
    std::vector<double> times;
    for (const Member& member : fleet) {
        times.push_back(-clock.now().secondsSinceReferenceDate);
        member.device->replacePolicy(member.device->policy({"mail", "files"}));
    }
    for (std::size_t i = 0; i < fleet.size(); ++i) {
        fleet[i].expectLine("apps: 2");
        times[i] =
            (times[i] + fleet[i].device->inspect().snapshot->lastUpdated.secondsSinceReferenceDate) * 1000;
    }
    printRow("policy renamed into place -> applied", times, "ms");

    std::vector<std::thread> senders;
    std::vector<std::string> answers(fleet.size());
    for (std::size_t i = 0; i < fleet.size(); ++i)
        senders.emplace_back([&, i] {
            const auto begin = steady_clock::now();
            answers[i] = Platform::Linux::sendToLocalPushService(
                fleet[i].device->pushSocket(), R"({"aps": {"alert": "Maintenance tonight"}})");
            times[i] = std::chrono::duration<double, std::milli>(steady_clock::now() - begin).count();
        });
    for (std::thread& sender : senders)
        sender.join();
    for (std::size_t i = 0; i < fleet.size(); ++i)
        require(answers[i] == "ok", "{} refused the push: {}", fleet[i].id, answers[i]);
    printRow("push sent -> stored and answered", times, "ms");

    std::this_thread::sleep_for(35s); // Until banners and idle threads are gone.
    const auto mebibytes = [&](std::int64_t (*bytesOf)(pid_t)) {
        constexpr double mebibyte = 1024.0 * 1024.0;
        return figures(fleet,
                       [=](pid_t process) { return static_cast<double>(bytesOf(process)) / mebibyte; });
    };
    printRow("memory, resident", mebibytes(residentBytes), "MiB");
    printRow("memory, private", mebibytes(privateBytes), "MiB");
    auto sleeps = figures(fleet, sleepCount);
    std::this_thread::sleep_for(10s);
    const auto later = figures(fleet, sleepCount);
    for (std::size_t i = 0; i < sleeps.size(); ++i)
        sleeps[i] = later[i] - sleeps[i];
    printRow("wake-ups in 10 s", sleeps, "");
    printRow("descriptors", figures(fleet, descriptorCount), "");
    require(backend.takeRequests().empty(), "the backend received unexpected requests");

    for (const Member& member : fleet)
        member.application->signal(SIGTERM);
    for (const Member& member : fleet) {
        require(member.application->waitForExit(60s) == 0, "{} did not exit with 0", member.id);
        const StoredState state = member.device->inspect();
        require(state.configVersion == 2, "{} is at version {}", member.id, state.configVersion);
        require(state.history.size() == 1, "{} has {} history records", member.id, state.history.size());
    }
    fmt::print("one request for each device, with its token; every change applied, every push stored\n");
}
