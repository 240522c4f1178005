#pragma once

#include "Core/ConfigurationSnapshot.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tests/Trials/FaultPlan.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ThrowawayDevice.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// A requirement of a trial is not met.
class Violation : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename... Arguments>
void require(bool isTrue, fmt::format_string<Arguments...> what, Arguments&&... arguments)
{
    if (!isTrue)
        throw Violation(fmt::format(what, std::forward<Arguments>(arguments)...));
}

struct StoredState {
    std::optional<Core::ConfigurationSnapshot> snapshot;
    /// 0 before the first update.
    std::int64_t configVersion = 0;
    /// Newest first.
    std::vector<PushNotifications::NotificationPayloadProcessor::Summary> history;
    /// Hexadecimal; empty before the first registration.
    std::string deviceToken;
    bool isAuthorized = false;

    [[nodiscard]] bool hasPush(std::string_view title) const
    {
        return std::any_of(history.begin(), history.end(),
                           [=](const auto& entry) { return entry.title == title; });
    }
};

/// Returns a payload whose alert is in the history before the push is acknowledged. Without
/// "content-available", an alert that arrives before a window is active waits in the shell's store.
inline std::string recordedPush(std::string_view title)
{
    return fmt::format(R"({{"aps": {{"alert": {{"title": "{}"}}, "content-available": 1}}}})", title);
}

/// A device whose user has completed the welcome screen and allowed notifications, so the application
/// registers as soon as it starts.
class TrialDevice : public ThrowawayDevice {
public:
    TrialDevice(const std::filesystem::path& programs, const TestBackend& backend);

    /// Returns a policy that allows `apps`; its `api_key` is "trial-key".
    [[nodiscard]] std::string policy(const std::vector<std::string>& apps) const;

    /// Reads the stores as a second process. Throws `Violation` unless every database is intact, the four
    /// keys of the suite are from one commit, no store was moved aside, and only the user can access the
    /// files.
    [[nodiscard]] StoredState inspect() const;

private:
    const std::string m_baseURL;
};

/// Injects faults into programs started on `device` after construction.
class Faults {
public:
    Faults(ThrowawayDevice& device, const std::filesystem::path& library);
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    FaultPlan* operator->() { return m_plan; }

    /// Makes the `number`th of the selected operations, counted from now, the first to fail.
    void arm(std::uint32_t operations, FaultPlan::Kind kind, int error, std::int64_t number);
    void disarm() { m_plan->countdown = 0; }

private:
    FaultPlan* m_plan = nullptr;
};
