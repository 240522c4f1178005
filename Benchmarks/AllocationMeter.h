#pragma once

#include <cstddef>
#include <cstdint>

/// Measures the peak of the memory that this process allocates during the meter's lifetime: the peak of C++'s
/// operator new plus the peak of SQLite.
///
/// Use one meter at a time, while no other thread allocates.
class AllocationMeter {
public:
    AllocationMeter();
    ~AllocationMeter();
    AllocationMeter(const AllocationMeter&) = delete;
    AllocationMeter& operator=(const AllocationMeter&) = delete;

    [[nodiscard]] std::size_t peakBytes() const;

private:
    std::int64_t m_databaseBytes;
};
