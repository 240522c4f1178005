#include "Platform/OutcomeRecorder.h"

#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"

#include <gtest/gtest.h>

#include <optional>

using namespace Platform;
using namespace std::chrono_literals;
using Kind = Outcome::Kind;
using Result = Outcome::Result;
using Subject = Outcome::Subject;

namespace {

class OutcomeRecorderTest : public testing::Test {
protected:
    void recordPush(std::int64_t code) { recorder->record(Subject::push, Result::failed, Kind::alert, code); }
    /// The code of the stored push, or -1 without one.
    [[nodiscard]] std::int64_t storedPush() const
    {
        const Outcomes stored = storedOutcomes(store);
        return stored.contains(Subject::push) ? stored.at(Subject::push).code : -1;
    }

    ManualScheduler scheduler;
    FakeUserDefaults store;
    std::optional<OutcomeRecorder> recorder{
        std::in_place, OutcomeRecorder::Ports{store, scheduler, scheduler.mainQueue, scheduler}};
};

TEST_F(OutcomeRecorderTest, WritesOneCommitPerSecondHoweverManyOutcomes)
{
    // The delay, the number of outcomes, and what has been committed afterwards.
    const std::tuple<const char*, std::chrono::milliseconds, int, int, std::int64_t> cases[] = {
        {"the first is written at once", 0ms, 1, 1, 1},
        {"later ones wait", 500ms, 500, 1, 1},
        {"until a second has passed", 500ms, 0, 2, 501},
        {"also after the second commit", 100ms, 3, 2, 501},
        {"the last one counts", 900ms, 0, 3, 504},
        {"nothing is written while nothing happens", 1h, 0, 3, 504},
        {"after which the next is written at once", 0ms, 2, 4, 506},
    };
    std::int64_t number = 0;
    for (const auto& [name, delay, count, commitCount, stored] : cases) {
        scheduler.advance(delay);
        for (int i = 0; i < count; ++i)
            recordPush(++number);
        scheduler.runUntilIdle();
        EXPECT_EQ(store.commitCount, commitCount) << name;
        EXPECT_EQ(storedPush(), stored) << name;
    }
}

TEST_F(OutcomeRecorderTest, KeepsTheOutcomesOfOtherAreasAndRuns)
{
    recorder->record(Subject::upload, Result::failed, Kind::status, 503);
    scheduler.advance(1s);
    const Date uploadTime = storedOutcomes(store).at(Subject::upload).time;
    recorder.emplace(OutcomeRecorder::Ports{store, scheduler, scheduler.mainQueue, scheduler});
    recordPush(7);
    recorder.reset(); // Before the main queue has written it.
    scheduler.advance(1s);
    EXPECT_EQ(storedPush(), 7);
    EXPECT_EQ(storedOutcomes(store).at(Subject::upload),
              (Outcome{Result::failed, Kind::status, 503, uploadTime}));
}

TEST_F(OutcomeRecorderTest, SkipsWhatItCannotReadOrWrite)
{
    store.isWritable = false;
    recordPush(1);
    scheduler.advance(1s);
    EXPECT_EQ(storedPush(), -1);
    store.isWritable = true;
    recordPush(2);
    scheduler.advance(1s);
    auto stored = *store.object("Outcomes")->dictionary();
    auto push = *stored.at("push").dictionary();
    push["kind"] = "of a later version";
    stored["upload"] = push;
    store.set("Outcomes", stored);
    EXPECT_EQ(storedPush(), 2);
    EXPECT_EQ(storedOutcomes(store).size(), 1U);
    store.set("Outcomes", "canary");
    EXPECT_TRUE(storedOutcomes(store).empty());
}

} // namespace
