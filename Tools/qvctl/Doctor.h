#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Linux/AdapterLog.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/SQLiteUserDefaults.h"
#include "Platform/Linux/SystemClock.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Findings.h"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

namespace Qvctl {

/// What the checks of one examination share, and what the earlier ones found for the later ones.
struct Examination {
    const Options& options;
    const DoctorOptions& limits;
    Findings findings;
    /// Absent without a home folder.
    std::optional<Platform::Linux::DevicePaths> paths = {};
    /// What the policy file says, validated; absent unless it is good.
    std::optional<Core::ValidatedConfig> policy = {};
    /// What the application has stored of it.
    std::optional<Core::ConfigurationSnapshot> snapshot = {};
    /// The process of the application.
    std::optional<pid_t> application = {};
};

// The chain, link by link. Each function makes the checks of one link in their order; what a check is called
// never changes. Nothing on the device is made, changed or started.
void examinePolicy(Examination& examination);
void examineState(Examination& examination);
void examineSuite(Examination& examination);
void examineNotifications(Examination& examination);
void examineBackend(Examination& examination);
void examineUpload(Examination& examination);

/// A store of the device that is only looked at, with what its adapter has to say about it.
class InspectedStore {
public:
    explicit InspectedStore(const std::filesystem::path& file)
        : values(file, Platform::Linux::SQLiteUserDefaults::Access::inspect, m_clock, m_adapterLog)
    {}

    /// Why it cannot be read; empty while nothing stood in the way, or while there is none.
    [[nodiscard]] const std::string& problem() const { return m_log.text; }

private:
    class FirstLine final : public Platform::UnifiedLog {
    public:
        void write(const Platform::LogHandle& handle, Platform::LogType type,
                   Platform::LogVisibility visibility, std::string_view line) noexcept override;
        std::string text;
    };

    FirstLine m_log;
    Platform::Linux::SystemClock m_clock;
    Platform::Linux::AdapterLog m_adapterLog{m_log, std::string(Platform::Linux::applicationIdentifier)};

public:
    Platform::Linux::SQLiteUserDefaults values;
};

/// "2026-11-21 15:04 UTC".
std::string timeText(Platform::Date date);

} // namespace Qvctl
