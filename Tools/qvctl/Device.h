#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Platform/AdapterLog.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Push/ShellState.h"
#include "Platform/Storage/SQLiteUserDefaults.h"
#include "Platform/SystemClock.h"
#include "Platform/UnifiedLog.h"
#include "Tools/qvctl/Commands.h"

#include <optional>
#include <string>
#include <string_view>

namespace Qvctl {

/// The device's stores, opened by a process other than the app.
class Device {
public:
    using Access = Platform::Storage::SQLiteUserDefaults::Access;

    /// `Access::inspect` creates, moves and repairs no file.
    Device(const Options& options, Access access);

    /// Opens the suite at each call. Absent if no snapshot is stored. Throws `CommandError` if the snapshot
    /// is damaged or the suite cannot be read.
    [[nodiscard]] std::optional<Core::ConfigurationSnapshot> storedSnapshot() const;

    /// The first problem that the other stores reported; empty if they reported nothing.
    [[nodiscard]] const std::string& firstProblem() const { return m_log.firstProblem; }

    /// Writes to standard error.
    [[nodiscard]] const Platform::AdapterLog& log() const { return m_adapterLog; }

    const Platform::Linux::DevicePaths paths;

private:
    /// Writes the adapters' log lines to standard error.
    class ConsoleLog final : public Platform::UnifiedLog {
    public:
        void write(const Platform::LogHandle& handle, Platform::LogType type,
                   Platform::LogVisibility visibility, std::string_view line) noexcept override;

        std::string firstProblem;
    };

    ConsoleLog m_log;
    Platform::SystemClock m_clock;
    Platform::AdapterLog m_adapterLog;
    Platform::Storage::SQLiteUserDefaults m_shellStore;

public:
    Platform::Linux::DeviceDefaults defaults;
    Platform::Push::ShellState shellState;
};

/// "allowed", "denied" or "not asked yet".
std::string_view permissionName(Platform::AuthorizationStatus status);

} // namespace Qvctl
