#include "Tests/Fakes/TemporaryFolder.h"
#include "Tests/Trials/Distributor.h"
#include "Tests/Trials/TrialDevice.h"
#include "Tests/Trials/Trials.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/WebPushEncryption.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// How long the distributor waits for the reply to a message.
constexpr auto answerTime = 10s;

constexpr std::string_view titlePrefix = "push ";

std::string titleOf(std::size_t number)
{
    return fmt::format("{}{}", titlePrefix, number);
}

std::size_t numberIn(std::string_view title)
{
    return std::stoul(std::string(title.substr(titlePrefix.size())));
}

/// A registered application with a distributor and a backend, and the messages to deliver.
class Burst {
public:
    Burst(const TrialPrograms& programs, std::size_t messageCount) : m_device(programs.folder, m_backend)
    {
        m_device.replacePolicy(m_device.policy({"app"}));
        m_application = m_device.start("auto");
        require(m_distributor.waitForRegistration(), "the application did not register");
        m_distributor.sendEndpoint("https://push.example.org/1");
        require(m_application->waitForLine("Device token uploaded"), "the token was not uploaded");
        const std::string token = uploadedToken(m_backend.takeRequests().back()).value();
        const auto subscription = WebPushSubscription::parse(subscriptionText(token));
        for (std::size_t number = 0; number < messageCount; ++number)
            m_messages.push_back(encryptWebPush(subscription, recordedPush(titleOf(number))));
    }

    /// Sends all messages at once and waits until `isDone`, or until `answerTime` has passed. Returns the
    /// elapsed time.
    milliseconds send(const std::function<bool()>& isDone)
    {
        const auto begin = steady_clock::now();
        for (std::size_t number = 0; number < m_messages.size(); ++number) {
            m_distributor.send(m_messages[number], answerTime, [this, number](Distributor::Answer answer) {
                if (answer != Distributor::Answer::acknowledged)
                    return;
                m_lastAcknowledged = number;
                ++m_acknowledgedCount;
            });
        }
        while (!isDone() && steady_clock::now() - begin < answerTime)
            std::this_thread::sleep_for(1ms);
        return duration_cast<milliseconds>(steady_clock::now() - begin);
    }

    /// Sends SIGTERM and returns the time until the application exits.
    milliseconds end()
    {
        const auto begin = steady_clock::now();
        m_application->signal(SIGTERM);
        require(m_application->waitForExit() == 0, "the application did not exit with 0 after SIGTERM");
        return duration_cast<milliseconds>(steady_clock::now() - begin);
    }

    /// Returns the number of pushes processed. They are processed in order, so the newest record tells.
    [[nodiscard]] std::size_t processedCount() const
    {
        const auto history = m_device.inspect().history;
        return history.empty() ? 0 : numberIn(history.front().title.value_or("")) + 1;
    }
    /// Requires that every acknowledged push is stored.
    void requireAcknowledgedIsStored() const
    {
        require(m_acknowledgedCount == 0 || processedCount() > m_lastAcknowledged,
                "push {} was acknowledged but is not in the history", m_lastAcknowledged.load());
    }
    [[nodiscard]] std::size_t messageCount() const { return m_messages.size(); }
    [[nodiscard]] std::size_t acknowledgedCount() const { return m_acknowledgedCount; }

private:
    const TemporaryFolder m_folder;
    TestBackend m_backend{{.folder = m_folder.path()}};
    TrialDevice m_device;
    Distributor m_distributor{m_device, Distributor::Behavior::responsive};
    std::unique_ptr<ChildProcess> m_application;
    std::vector<std::string> m_messages;
    std::atomic<std::size_t> m_acknowledgedCount = 0;
    std::atomic<std::size_t> m_lastAcknowledged = 0;
};

/// Each push must be acknowledged as soon as it is stored, not after all of them.
void deliverAll(const TrialPrograms& programs, std::size_t messageCount)
{
    Burst burst(programs, messageCount);
    const auto time = burst.send([&] { return burst.acknowledgedCount() == messageCount; });
    const std::size_t acknowledged = burst.acknowledgedCount();
    const std::size_t processed = burst.processedCount();
    fmt::print("{} pushes: {} acknowledged within {} ms, {} processed; exited {} ms after SIGTERM\n",
               messageCount, acknowledged, time.count(), processed, burst.end().count());
    burst.requireAcknowledgedIsStored();
    require(acknowledged >= processed / 2, "acknowledgments wait for later pushes");
}

/// The application must exit without processing the rest of a burst.
void terminateDuringDelivery(const TrialPrograms& programs, std::size_t messageCount)
{
    Burst burst(programs, messageCount);
    burst.send([&] { return burst.acknowledgedCount() > 0; });
    const auto time = burst.end();
    fmt::print("{} pushes: exited {} ms after SIGTERM, {} acknowledged, {} processed\n", messageCount,
               time.count(), burst.acknowledgedCount(), burst.processedCount());
    burst.requireAcknowledgedIsStored();
    require(burst.processedCount() < messageCount,
            "the application exited only after processing the whole burst");
}

} // namespace

void burstTrial(const TrialPrograms& programs, int messages)
{
    const auto messageCount = static_cast<std::size_t>(messages);
    deliverAll(programs, messageCount);
    terminateDuringDelivery(programs, messageCount);
}
