#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Storage/SQLiteUserDefaults.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <filesystem>

/// A store of a device, opened as another process would open it.
class StoreFile {
public:
    using Access = Platform::Storage::SQLiteUserDefaults::Access;

    explicit StoreFile(const std::filesystem::path& file, Access access = Access::readWrite)
        : m_values(file, access, m_clock, m_adapterLog)
    {}
    [[nodiscard]] Platform::Storage::SQLiteUserDefaults& operator*() { return m_values; }
    [[nodiscard]] Platform::Storage::SQLiteUserDefaults* operator->() { return &m_values; }

private:
    RecordingUnifiedLog m_log;
    const Platform::AdapterLog m_adapterLog{m_log, "test"};
    const Platform::SystemClock m_clock;
    Platform::Storage::SQLiteUserDefaults m_values;
};
