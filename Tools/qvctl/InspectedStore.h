#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Storage/SQLiteUserDefaults.h"
#include "Platform/SystemClock.h"
#include "Platform/UnifiedLog.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace Qvctl {

/// Keeps the first line that an adapter logs.
class FirstLogLine final : public Platform::UnifiedLog {
public:
    void write(const Platform::LogHandle& handle, Platform::LogType type, Platform::LogVisibility visibility,
               std::string_view line) noexcept override;
    std::string text;
};

/// A store opened for inspection only, and the first problem that its adapter reported.
class InspectedStore {
public:
    explicit InspectedStore(const std::filesystem::path& file)
        : values(file, Platform::Storage::SQLiteUserDefaults::Access::inspect, m_clock, m_adapterLog)
    {}

    /// Why the store cannot be read; empty if it can, or if it does not exist.
    [[nodiscard]] const std::string& problem() const { return m_log.text; }

private:
    FirstLogLine m_log;
    Platform::SystemClock m_clock;
    Platform::AdapterLog m_adapterLog{m_log, std::string(Platform::Linux::applicationIdentifier)};

public:
    Platform::Storage::SQLiteUserDefaults values;
};

} // namespace Qvctl
