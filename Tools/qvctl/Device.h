#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Platform/Linux/AdapterLog.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/SQLiteUserDefaults.h"
#include "Platform/Linux/ShellState.h"
#include "Platform/Linux/SystemClock.h"
#include "Platform/UnifiedLog.h"
#include "Tools/qvctl/Commands.h"

#include <optional>
#include <string>
#include <string_view>

namespace Qvctl {

/// The stores of the device, as another process than the application sees them.
class Device {
public:
    using Access = Platform::Linux::SQLiteUserDefaults::Access;

    /// With `Access::inspect` no file is created, moved or repaired.
    Device(const Options& options, Access access);

    /// Opens the store each time. Absent when none is stored. Throws `VerbError` when it is damaged or its
    /// store cannot be read.
    [[nodiscard]] std::optional<Core::ConfigurationSnapshot> storedSnapshot() const;

    /// The first problem that the other stores reported; empty while there is none.
    [[nodiscard]] const std::string& firstProblem() const { return m_log.firstProblem; }

    /// Prints to standard error.
    [[nodiscard]] const Platform::Linux::AdapterLog& log() const { return m_adapterLog; }

    const Platform::Linux::DevicePaths paths;

private:
    /// Prints the adapters' lines on standard error.
    class ConsoleLog final : public Platform::UnifiedLog {
    public:
        void write(const Platform::LogHandle& handle, Platform::LogType type,
                   Platform::LogVisibility visibility, std::string_view line) noexcept override;

        std::string firstProblem;
    };

    ConsoleLog m_log;
    Platform::Linux::SystemClock m_clock;
    Platform::Linux::AdapterLog m_adapterLog;
    Platform::Linux::SQLiteUserDefaults m_shellStore;

public:
    Platform::Linux::DeviceDefaults defaults;
    Platform::Linux::ShellState shellState;
};

/// "allowed", "denied" or "not asked yet".
std::string_view permissionName(Platform::AuthorizationStatus status);

} // namespace Qvctl
