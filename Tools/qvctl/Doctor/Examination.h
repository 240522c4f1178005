#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Date.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Push/PushServiceState.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Doctor/CheckReport.h"
#include "Tools/qvctl/InspectedStore.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace Qvctl::Doctor {

/// What the checks of one examination share, and what the earlier ones found for the later ones.
struct Examination {
    const Options& options;
    const DoctorOptions& limits;
    CheckReport report;
    /// Absent without a home folder.
    std::optional<Platform::Linux::DevicePaths> paths = {};
    /// What the policy file says, validated; absent unless it is good.
    std::optional<Core::ValidatedConfig> policy = {};
    /// What the application has stored of it.
    std::optional<Core::ConfigurationSnapshot> snapshot = {};
    /// The running application.
    std::optional<Platform::Linux::InstanceLock::Holder> application = {};
    /// What the application has recorded about its push service; an older one has not.
    std::optional<Platform::Push::PushServiceState> pushService = {};
};

// The chain, link by link. Each function makes the checks of one link in their order; what a check is called
// never changes. Nothing on the device is made, changed or started.
void examinePolicy(Examination& examination);
void examineState(Examination& examination);
void examineSuite(Examination& examination);
void examineNotifications(Examination& examination);
void examineBackend(Examination& examination);
void examineUpload(Examination& examination);

/// "2026-11-21 15:04 UTC".
std::string timeText(Platform::Date date);

} // namespace Qvctl::Doctor
