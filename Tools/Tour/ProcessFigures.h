#pragma once

#include <chrono>
#include <cstdint>
#include <sys/types.h>

// Figures of a running process from proc(5). All throw `std::runtime_error` if the process has exited.

/// Resident memory, private and shared.
std::int64_t residentBytes(pid_t process);
/// Peak resident memory since the start of the process.
std::int64_t peakResidentBytes(pid_t process);
/// Memory that the process has written to and shares with no other process or file.
std::int64_t privateBytes(pid_t process);
/// Voluntary context switches of all threads.
std::int64_t sleepCount(pid_t process);
/// Processor time of all running threads.
std::chrono::nanoseconds processorTime(pid_t process);
std::int64_t descriptorCount(pid_t process);
std::int64_t threadCount(pid_t process);
