#include "Tests/Trials/Patient.h"
#include "Tests/Trials/Trials.h"

#include <cerrno>
#include <chrono>

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
    {"a write ends with EIO", FaultPlan::writing, Kind::once, EIO},
    {"all writes end with EIO", FaultPlan::writing, Kind::fromThenOn, EIO},
    {"the disk is full", FaultPlan::changing, Kind::fromThenOn, ENOSPC},
    {"half a write, then the disk is full", FaultPlan::writing, Kind::half, ENOSPC},
    {"a synchronisation ends with EIO", FaultPlan::synchronizing, Kind::once, EIO},
    {"all synchronisations end with EIO", FaultPlan::synchronizing, Kind::fromThenOn, EIO},
    {"a truncation ends with EIO", FaultPlan::truncating, Kind::once, EIO},
    {"a read ends with EIO", FaultPlan::reading, Kind::once, EIO},
    {"all reads end with EIO", FaultPlan::reading, Kind::fromThenOn, EIO},
    {"no file can be opened", FaultPlan::opening, Kind::fromThenOn, EMFILE},
    {"the file system is read-only", FaultPlan::changing, Kind::fromThenOn, EROFS},
};

/// Lets the first, the second and so on of the operations of a push and a change fail.
void failWhileRunning(Patient& patient, const FileFault& fault, int depth)
{
    StoredState state = patient.demandHealth({});
    int tried = 0;
    int refused = 0;
    for (bool isReached = true; isReached && tried < depth; ++tried) {
        patient.faults().arm(fault.operations, fault.kind, fault.error, tried + 1);
        patient.change();
        const Patient::Push pushed = patient.push();
        refused += pushed.isAcknowledged() ? 0 : 1;
        // The rest of the operations are the update's, which does not come when the policy cannot be read.
        patient.application().waitForLine("Configuration updated", 800ms);
        isReached = patient.faults()->failedCount > 0;
        patient.faults().disarm();
        state = patient.demandHealth(patient.demandNothingLost(state, pushed));
    }
    fmt::print("{:<40} {:>3} operations, {:>3} pushes refused\n", fault.name, tried, refused);
}

/// Starts with the fault, which then goes.
void failAtStart(Patient& patient, const FileFault& fault)
{
    const StoredState before = patient.demandHealth({});
    patient.end();
    patient.faults().arm(fault.operations, fault.kind, fault.error, 1);
    patient.start();
    patient.expectLine("Configuration manager initialized");
    patient.faults().disarm();
    patient.demandHealth(patient.demandNothingLost(before));
    fmt::print("{:<40} at the start: survived\n", fault.name);
}

} // namespace

void faultTrial(const TrialPrograms& programs, int depth)
{
    for (const FileFault& fault : fileFaults) {
        Patient patient(programs);
        try {
            failWhileRunning(patient, fault, depth);
            if (fault.kind == Kind::fromThenOn)
                failAtStart(patient, fault);
            patient.end();
        } catch (const Violation& violation) {
            throw Violation(fmt::format("{}: {}", fault.name, violation.what()));
        }
    }
}
