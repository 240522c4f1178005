#pragma once

#include <chrono>
#include <cstdint>
#include <sys/types.h>

// Figures of a running process from proc(5). All throw `std::runtime_error` when it has ended.

/// Resident memory, private and shared.
std::int64_t residentBytes(pid_t process);
/// The most that was resident at any time since its start.
std::int64_t peakResidentBytes(pid_t process);
/// Memory that it wrote to and shares with no other process or file.
std::int64_t privateBytes(pid_t process);
/// Voluntary context switches of all its threads.
std::int64_t sleepCount(pid_t process);
/// Processor time of all threads that have not ended.
std::chrono::nanoseconds processorTime(pid_t process);
std::int64_t descriptorCount(pid_t process);
