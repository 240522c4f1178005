#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Date.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/InstanceLock.h"
#include "Platform/Linux/SessionBusNames.h"
#include "Platform/Push/PushServiceState.h"
#include "Tools/qvctl/Commands.h"
#include "Tools/qvctl/Doctor/CheckReport.h"
#include "Tools/qvctl/InspectedStore.h"

#include <optional>
#include <string>

namespace Qvctl::Doctor {

/// The input of one run of `doctor`, and the results of earlier checks that later ones use.
struct Examination {
    const Options& options;
    const DoctorOptions& limits;
    CheckReport report;
    /// Absent if the user has no home folder.
    std::optional<Platform::Linux::DevicePaths> paths = {};
    /// The validated content of the policy file; absent if the file cannot be used.
    std::optional<Core::ValidatedConfig> policy = {};
    /// The snapshot that the app has stored.
    std::optional<Core::ConfigurationSnapshot> snapshot = {};
    /// The process of the app; absent if the app is not running.
    std::optional<Platform::Linux::InstanceLock::Holder> application = {};
    /// Absent if the session bus is not available.
    std::optional<Platform::Linux::SessionBusNames> busNames = {};
    /// What the app has recorded about its push service; absent if an older version of the app was used.
    std::optional<Platform::Push::PushServiceState> pushService = {};
};

// Each function runs a group of checks and adds their results in a fixed order. They create, change and start
// nothing on the device.
void examinePolicy(Examination& examination);
void examineState(Examination& examination);
void examineSuite(Examination& examination);
void examineBus(Examination& examination);
void examineNotifications(Examination& examination);
void examineBackend(Examination& examination);
void examineUpload(Examination& examination);
void examineOutcomes(Examination& examination);

/// "2026-11-21 15:04 UTC".
std::string timeText(Platform::Date date);

} // namespace Qvctl::Doctor
