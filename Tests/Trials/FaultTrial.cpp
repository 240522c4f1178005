#include "Tests/Trials/TestBed.h"

#include <cerrno>

namespace {

using namespace std::chrono_literals;
using Kind = FaultPlan::Kind;

struct FileFault {
    const char* name;
    std::uint32_t operations;
    Kind kind;
    int error;
};

constexpr FileFault fileFaults[] = {
    {"one write fails with EIO", FaultPlan::writing, Kind::once, EIO},
    {"all writes fail with EIO", FaultPlan::writing, Kind::fromThenOn, EIO},
    {"the disk is full", FaultPlan::changing, Kind::fromThenOn, ENOSPC},
    {"half a write, then the disk is full", FaultPlan::writing, Kind::half, ENOSPC},
    {"one sync fails with EIO", FaultPlan::synchronizing, Kind::once, EIO},
    {"all syncs fail with EIO", FaultPlan::synchronizing, Kind::fromThenOn, EIO},
    {"one truncation fails with EIO", FaultPlan::truncating, Kind::once, EIO},
    {"one read fails with EIO", FaultPlan::reading, Kind::once, EIO},
    {"all reads fail with EIO", FaultPlan::reading, Kind::fromThenOn, EIO},
    {"no file can be opened", FaultPlan::opening, Kind::fromThenOn, EMFILE},
    {"the file system is read-only", FaultPlan::changing, Kind::fromThenOn, EROFS},
};

/// Makes each of the first `depth` operations of a push and a change fail, one after the other.
void failWhileRunning(TestBed& testBed, const FileFault& fault, int depth)
{
    StoredState state = testBed.requireHealthy({});
    int tried = 0;
    int refused = 0;
    for (bool isReached = true; isReached && tried < depth; ++tried) {
        testBed.faults().arm(fault.operations, fault.kind, fault.error, tried + 1);
        testBed.change();
        const TestBed::Push pushed = testBed.push();
        refused += pushed.isAcknowledged() ? 0 : 1;
        // Waits for the update's operations; if the policy cannot be read, there is no update.
        testBed.application().waitForLine("Configuration updated", 800ms);
        isReached = testBed.faults()->failedCount > 0;
        testBed.faults().disarm();
        state = testBed.requireHealthy(testBed.requireNothingLost(state, pushed));
    }
    fmt::print("{:<40} {:>3} operations, {:>3} pushes refused\n", fault.name, tried, refused);
}

/// Starts the application with the fault, then removes the fault.
void failAtStart(TestBed& testBed, const FileFault& fault)
{
    const StoredState before = testBed.requireHealthy({});
    testBed.end();
    testBed.faults().arm(fault.operations, fault.kind, fault.error, 1);
    testBed.start();
    testBed.expectLine("Configuration manager initialized");
    testBed.faults().disarm();
    testBed.requireHealthy(testBed.requireNothingLost(before));
    fmt::print("{:<40} at the start: passed\n", fault.name);
}

} // namespace

void faultTrial(const TrialPrograms& programs, int depth)
{
    for (const FileFault& fault : fileFaults) {
        onTestBed(programs, fault.name, [&](TestBed& testBed) {
            failWhileRunning(testBed, fault, depth);
            if (fault.kind == Kind::fromThenOn)
                failAtStart(testBed, fault);
        });
    }
}
