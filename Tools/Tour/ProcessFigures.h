#pragma once

#include <chrono>
#include <cstdint>
#include <sys/types.h>

// What the kernel tells of a process that runs; see proc(5). All throw `std::runtime_error` when it does not.

/// Resident memory, private and shared.
std::int64_t residentBytes(pid_t process);
/// The most that was resident at any time since its start.
std::int64_t peakResidentBytes(pid_t process);
/// Memory that holds what no other process and no file has.
std::int64_t privateBytes(pid_t process);
/// How often its threads have gone to sleep of themselves, all together.
std::int64_t sleepCount(pid_t process);
/// How long its threads that still run have run, all together.
std::chrono::nanoseconds processorTime(pid_t process);
std::int64_t descriptorCount(pid_t process);
