#include "Platform/Linux/LocalPushService.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"
#include "Tools/Backend/PushSender.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Random = std::mt19937;
using Kind = FaultPlan::Kind;

int between(Random& random, int least, int most)
{
    return std::uniform_int_distribution(least, most)(random);
}

/// Sends numbered pushes one after the other until destroyed, even while no application runs. Accepted pushes
/// are recorded in the history, whether the application is in the foreground or not.
class PushSeries {
public:
    PushSeries(std::filesystem::path socket, int& number)
        : m_thread([this, socket = std::move(socket), &number](const std::stop_token& isStopping) {
              while (!isStopping.stop_requested()) {
                  ++number;
                  const std::string title = std::to_string(number);
                  try {
                      if (Platform::Linux::sendToLocalPushService(socket, recordedPush(title)) == "ok")
                          m_acknowledged.push_back(title);
                  } catch (const std::system_error&) {
                      std::this_thread::sleep_for(1ms); // Not started yet, or killed.
                  }
              }
          })
    {}

    /// Stops sending and returns the titles of the acknowledged pushes.
    const std::vector<std::string>& end()
    {
        m_thread.request_stop();
        m_thread.join();
        return m_acknowledged;
    }

private:
    std::vector<std::string> m_acknowledged;
    std::jthread m_thread;
};

/// Checks the stored state after each kill against that of earlier rounds.
class Ledger {
public:
    void expectPolicy(const std::string& app) { m_apps.push_back("com.example." + app); }

    void check(const StoredState& state, const std::vector<std::string>& acknowledged,
               const std::vector<TestBackend::Request>& requests)
    {
        // At most one update at the start and one for the change while running.
        require(state.configVersion >= m_version && state.configVersion <= m_version + 2,
                "version {} after version {}", state.configVersion, m_version);
        if (state.snapshot) {
            const auto& apps = state.snapshot->config.allowedAppBundleIds;
            require(apps.size() == 1 && std::find(m_apps.begin(), m_apps.end(), apps[0]) != m_apps.end(),
                    "the snapshot matches none of the recent policies");
        }
        m_version = state.configVersion;
        m_apps.erase(m_apps.begin(), m_apps.end() - 1);
        if (state.snapshot)
            m_apps.emplace_back(state.snapshot->config.allowedAppBundleIds[0]);

        // Each push is stored once or twice, so the 100 records contain at least the newest 45 pushes.
        const std::size_t newest = std::min<std::size_t>(acknowledged.size(), 45);
        for (auto title = acknowledged.end() - static_cast<std::ptrdiff_t>(newest);
             title != acknowledged.end(); ++title)
            require(state.hasPush(*title), "push {} was acknowledged but is not in the history", *title);
        m_acknowledgedCount += acknowledged.size();

        require(requests.size() <= 1, "{} uploads in one run", requests.size());
        for (const TestBackend::Request& request : requests) {
            const auto token = uploadedToken(request);
            require(token.has_value(), "incomplete token upload: {}", request.body);
            require(*token == state.deviceToken, "the uploaded token differs from the stored one");
        }
        m_uploadCount += requests.size();
        require(m_token.empty() || m_token == state.deviceToken, "the device token has changed");
        m_token = state.deviceToken;
    }

    [[nodiscard]] std::int64_t version() const { return m_version; }
    [[nodiscard]] std::size_t acknowledgedCount() const { return m_acknowledgedCount; }
    [[nodiscard]] std::size_t uploadCount() const { return m_uploadCount; }

private:
    std::int64_t m_version = 0;
    std::vector<std::string> m_apps;
    std::string m_token;
    std::size_t m_acknowledgedCount = 0;
    std::size_t m_uploadCount = 0;
};

} // namespace

void crashTrial(const TrialPrograms& programs, int rounds, unsigned seed)
{
    fmt::print("seed {}\n", seed);
    Random random(seed);
    const TemporaryFolder folder;
    TestBackend backend({.folder = folder.path()});
    TrialDevice device(programs.folder, backend);
    Faults faults(device, programs.faultLibrary);
    Ledger ledger;
    int pushNumber = 0;
    int atOperationCount = 0;
    for (int round = 1; round <= rounds; ++round) {
        const std::string app = fmt::format("app{}", round);
        ledger.expectPolicy(app);
        device.replacePolicy(device.policy({app}));
        backend.setReply("*", {.delay = std::chrono::milliseconds(between(random, 0, 30))});

        const bool isAtOperation = round % 2 == 0;
        // The first run creates the stores, so it makes more operations than later ones.
        if (isAtOperation)
            faults.arm(FaultPlan::changing, random() % 2 == 0 ? Kind::kill : Kind::killHalfway, 0,
                       between(random, 1, 300));
        const auto application = device.start();
        PushSeries pushes(device.pushSocket(), pushNumber);
        if (!isAtOperation) {
            std::this_thread::sleep_for(std::chrono::milliseconds(between(random, 0, 350)));
            if (between(random, 0, 3) == 0) {
                ledger.expectPolicy(app + "-late");
                device.replacePolicy(device.policy({app + "-late"}));
                std::this_thread::sleep_for(std::chrono::microseconds(between(random, 495'000, 515'000)));
            }
            application->signal(SIGKILL);
        }
        auto exitCode = application->waitForExit(isAtOperation ? 2s : 20s);
        atOperationCount += isAtOperation && exitCode == -SIGKILL ? 1 : 0;
        application->signal(SIGKILL); // In case it did not reach the operation.
        exitCode = application->waitForExit();
        const auto& acknowledged = pushes.end();
        faults.disarm();
        require(exitCode == -SIGKILL, "the application exited by itself with {}", exitCode.value_or(-1));
        try {
            ledger.check(device.inspect(), acknowledged, backend.takeRequests());
        } catch (const std::exception& error) {
            for (const std::string& line : application->lines())
                fmt::print("  {}\n", line);
            throw Violation(fmt::format("round {}: {}", round, error.what()));
        }
    }
    fmt::print("{} kills, {} of them at a file operation; version {}, {} pushes acknowledged, {} uploads; "
               "all stores intact\n",
               rounds, atOperationCount, ledger.version(), ledger.acknowledgedCount(), ledger.uploadCount());
}
