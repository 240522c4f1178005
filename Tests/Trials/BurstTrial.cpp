#include "Tests/Trials/RegisteredApplication.h"
#include "Tests/Trials/Trials.h"

#include <atomic>
#include <chrono>
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

/// A registered application, and the messages to deliver.
class Burst {
public:
    Burst(const TrialPrograms& programs, std::size_t messageCount) : m_application(programs.folder)
    {
        for (std::size_t number = 0; number < messageCount; ++number)
            m_messages.push_back(m_application.encrypted(recordedPush(titleOf(number))));
    }

    /// Sends all messages at once and waits until `isDone`, or until `answerTime` has passed. Returns the
    /// elapsed time.
    milliseconds send(const std::function<bool()>& isDone)
    {
        const auto begin = steady_clock::now();
        for (std::size_t number = 0; number < m_messages.size(); ++number) {
            const auto answered = [this, number](Distributor::Answer answer) {
                if (answer != Distributor::Answer::acknowledged)
                    return;
                m_lastAcknowledged = number;
                ++m_acknowledgedCount;
            };
            m_application.distributor().send(m_messages[number], answerTime, answered);
        }
        while (!isDone() && steady_clock::now() - begin < answerTime)
            std::this_thread::sleep_for(1ms);
        return duration_cast<milliseconds>(steady_clock::now() - begin);
    }

    /// Sends SIGTERM and returns the time until the application exits.
    milliseconds end()
    {
        const auto begin = steady_clock::now();
        m_application.end();
        return duration_cast<milliseconds>(steady_clock::now() - begin);
    }

    /// Returns the number of pushes processed. They are processed in order, so the newest record tells.
    [[nodiscard]] std::size_t processedCount() const
    {
        const auto history = m_application.device().inspect().history;
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
    std::vector<std::string> m_messages;
    std::atomic<std::size_t> m_acknowledgedCount = 0;
    std::atomic<std::size_t> m_lastAcknowledged = 0;
    RegisteredApplication m_application; // Destroyed first: its bus thread uses the other members.
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
