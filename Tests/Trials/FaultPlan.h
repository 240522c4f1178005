#pragma once

#include <atomic>
#include <cstdint>

/// What goes wrong in a program that has the fault library loaded, shared with it through a mapped file.
///
/// Counted are the operations that `operations` names, on files below the device's folder; the one that
/// `countdown` reaches is the first that fails.
struct FaultPlan {
    /// Names the mapped file.
    static constexpr const char* fileVariable = "QUORVANE_FAULT_PLAN";
    /// Files below this folder alone are meant.
    static constexpr const char* folderVariable = "QUORVANE_FAULT_FOLDER";

    enum Operation : std::uint32_t {
        writing = 1,
        synchronizing = 2,
        truncating = 4,
        reading = 8,
        opening = 16
    };
    static constexpr std::uint32_t changing = writing | synchronizing | truncating | opening;

    enum class Kind : std::uint32_t {
        /// The operation fails with `error`, that one or all from then on.
        once,
        fromThenOn,
        /// Half of the bytes are written and counted, then all fails with `error`.
        half,
        /// The process is killed before the operation, or after half of its bytes.
        kill,
        killHalfway,
    };

    std::atomic<std::uint32_t> operations = 0;
    std::atomic<Kind> kind = Kind::once;
    std::atomic<std::int32_t> error = 0;
    /// How many operations are left until the fault; nothing fails while it is negative or 0.
    std::atomic<std::int64_t> countdown = 0;
    /// Operations seen, and how many of them failed.
    std::atomic<std::int64_t> seenCount = 0;
    std::atomic<std::int64_t> failedCount = 0;
    /// How far the time of day is off.
    std::atomic<std::int64_t> clockOffsetSeconds = 0;

    static_assert(std::atomic<std::int64_t>::is_always_lock_free);
};
