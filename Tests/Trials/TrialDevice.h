#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tests/Trials/FaultPlan.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// Something that must hold does not.
class Violation : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename... Arguments>
void demand(bool isSo, fmt::format_string<Arguments...> what, Arguments&&... arguments)
{
    if (!isSo)
        throw Violation(fmt::format(what, std::forward<Arguments>(arguments)...));
}

/// What a device has stored.
struct StoredState {
    std::optional<Core::ConfigurationSnapshot> snapshot;
    /// 0 before the first update.
    std::int64_t configVersion = 0;
    /// Newest first.
    std::vector<PushNotifications::NotificationPayloadProcessor::Summary> history;
    /// Hexadecimal; empty before the first registration.
    std::string deviceToken;
};

/// A device whose user has been through the welcome screen and allows notifications, so that the application
/// registers as soon as it starts; and what must hold of its stores, whatever happened to the application.
class TrialDevice : public ThrowawayDevice {
public:
    TrialDevice(const std::filesystem::path& programs, const TestBackend& backend,
                std::string deviceId = "DEV-1");

    /// A policy with one allowed app for each text; `api_key` is "trial-key".
    [[nodiscard]] std::string policy(const std::vector<std::string>& apps) const;

    /// Starts the application, its log readable; it goes to the dashboard, and registers there.
    [[nodiscard]] std::unique_ptr<ChildProcess> start(const std::string& push = "local") const
    {
        return startApplication({"--log-stderr", "--push", push});
    }

    /// The stores as a second process finds them. Throws `Violation` unless every database is whole, the four
    /// keys of the suite belong together, nothing was moved aside, and all files are the user's alone.
    [[nodiscard]] StoredState inspect() const;

private:
    const std::string m_baseURL;
    const std::string m_deviceId;
};

/// A fault plan that programs started on `device` from now on obey.
class Faults {
public:
    Faults(ThrowawayDevice& device, const std::filesystem::path& library);
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    FaultPlan* operator->() { return m_plan; }

    /// The operation `number` of those named, counted from now and from 1, is the first to fail.
    void arm(std::uint32_t operations, FaultPlan::Kind kind, int error, std::int64_t number);
    void disarm() { m_plan->countdown = 0; }

private:
    FaultPlan* m_plan = nullptr;
};
