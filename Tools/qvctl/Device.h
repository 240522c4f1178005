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
#include <string_view>

namespace Qvctl {

/// The stores of the device, as a process beside the application sees them.
class Device {
public:
    using Access = Platform::Linux::SQLiteUserDefaults::Access;

    /// With `Access::inspect` nothing is made, moved or mended.
    Device(const Options& options, Access access);

    /// Absent when none is stored. Throws `Core::DecodingError` for one that is damaged.
    std::optional<Core::ConfigurationSnapshot> storedSnapshot();

    const Platform::Linux::DevicePaths paths;

private:
    /// What the adapters have to say goes to the person who asked.
    class ConsoleLog final : public Platform::UnifiedLog {
    public:
        void write(const Platform::LogHandle& handle, Platform::LogType type,
                   Platform::LogVisibility visibility, std::string_view line) noexcept override;
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
