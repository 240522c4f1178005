#pragma once

#include "Platform/Push/WebPush.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Push {

/// The registration of this application with a UnifiedPush distributor. It is stored, so that the device
/// keeps its token and endpoint across restarts.
///
/// Threads: one at a time.
class UnifiedPushRegistration {
public:
    /// In bytes.
    static constexpr std::size_t maximumTokenSize = 100;
    // The keys under which `distributor()` and `replacedDistributor()` are stored.
    static constexpr std::string_view distributorKey = "UnifiedPush.Distributor";
    static constexpr std::string_view replacedDistributorKey = "UnifiedPush.ReplacedDistributor";

    /// Returns the stored registration; absent if it is missing or invalid.
    static std::optional<UnifiedPushRegistration> stored(const UserDefaults& store);
    /// Creates a registration and stores it in place of the previous one. Absent if it cannot be stored.
    /// Throws `WebPushError` if the system cannot provide random bytes.
    static std::optional<UnifiedPushRegistration> make(UserDefaults& store);

    /// A random UUID. It authenticates the distributor's calls, so treat it as a secret.
    [[nodiscard]] const std::string& token() const { return m_token; }
    [[nodiscard]] const WebPushKeys& keys() const { return m_keys; }
    /// The bus name of the distributor that registered this application; empty if none has.
    [[nodiscard]] const std::string& distributor() const { return m_distributor; }
    /// The previous distributor; empty if there was none.
    [[nodiscard]] const std::string& replacedDistributor() const { return m_replacedDistributor; }
    /// The URL for sending pushes; empty until the first registration.
    [[nodiscard]] const std::string& endpoint() const { return m_endpoint; }

    /// Sets distributor and endpoint, and stores them. Returns whether they are stored; this object has the
    /// new values in any case.
    bool setEndpoint(UserDefaults& store, const std::string& distributor, const std::string& endpoint);

private:
    UnifiedPushRegistration(std::string token, WebPushKeys keys);

    std::string m_token;
    WebPushKeys m_keys;
    std::string m_distributor;
    std::string m_replacedDistributor;
    std::string m_endpoint;
    bool m_isEndpointStored = true;
};

/// Returns whether the URL is a valid endpoint: https, or http to this device.
bool isUsablePushEndpoint(std::string_view endpoint);

} // namespace Platform::Push
