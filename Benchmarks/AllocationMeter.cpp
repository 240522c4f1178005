#include "Benchmarks/AllocationMeter.h"

#include <malloc.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

bool isCounting = false;
std::int64_t currentBytes = 0;
std::int64_t highestBytes = 0;

void count(std::int64_t bytes)
{
    currentBytes += bytes;
    highestBytes = std::max(highestBytes, currentBytes);
}

} // namespace

// Replaces the global operators; those for arrays call them.

void* operator new(std::size_t size)
{
    void* const place = std::malloc(size > 0 ? size : 1);
    if (place == nullptr)
        throw std::bad_alloc();
    if (isCounting) [[unlikely]]
        count(static_cast<std::int64_t>(::malloc_usable_size(place)));
    return place;
}

void operator delete(void* place) noexcept
{
    if (isCounting) [[unlikely]]
        count(-static_cast<std::int64_t>(::malloc_usable_size(place)));
    std::free(place);
}

void operator delete(void* place, std::size_t) noexcept
{
    ::operator delete(place);
}

AllocationMeter::AllocationMeter() : m_databaseBytes(::sqlite3_memory_used())
{
    ::sqlite3_memory_highwater(1);
    currentBytes = 0;
    highestBytes = 0;
    isCounting = true;
}

AllocationMeter::~AllocationMeter()
{
    isCounting = false;
}

std::size_t AllocationMeter::peakBytes() const
{
    return static_cast<std::size_t>(highestBytes + ::sqlite3_memory_highwater(0) - m_databaseBytes);
}
