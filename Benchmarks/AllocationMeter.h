#pragma once

#include <cstddef>
#include <cstdint>

/// Tells by how much the memory that this process has allocated rose above what it had when the meter was
/// made: the objects of C++, and what SQLite took on top. Each part counts with its own peak.
///
/// One at a time, and no other thread may work meanwhile.
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
