#pragma once

#include <atomic>
#include <cstdint>

/// The faults to inject into a program that loads the fault library, shared with it through a mapped file.
///
/// The selected `operations` on files in the device's folder start to fail when `countdown` reaches zero.
struct FaultPlan {
    /// Environment variable with the path of the mapped file.
    static constexpr const char* fileVariable = "QUORVANE_FAULT_PLAN";
    /// Environment variable with the folder whose files are affected.
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
        /// One operation fails with `error`.
        once,
        /// This operation and all later ones fail with `error`.
        fromThenOn,
        /// One write is cut to half its bytes, then all operations fail with `error`.
        half,
    };

    std::atomic<std::uint32_t> operations = 0;
    std::atomic<Kind> kind = Kind::once;
    std::atomic<std::int32_t> error = 0;
    /// Operations left until the fault; 0 or less: no fault.
    std::atomic<std::int64_t> countdown = 0;
    std::atomic<std::int64_t> failedCount = 0;
    /// Added to the time of day.
    std::atomic<std::int64_t> clockOffsetSeconds = 0;

    static_assert(std::atomic<std::int64_t>::is_always_lock_free);
};
