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

/// What distributors know this application by, and what came of it: kept in a store, so that this device is
/// the same receiver after a restart.
///
/// Threads: one at a time.
class UnifiedPushRegistration {
public:
    /// In bytes.
    static constexpr std::size_t maximumTokenSize = 100;
    // Where `distributor()` and `replacedDistributor()` are stored, as text.
    static constexpr std::string_view distributorKey = "UnifiedPush.Distributor";
    static constexpr std::string_view replacedDistributorKey = "UnifiedPush.ReplacedDistributor";

    /// Absent when nothing is stored there, or nothing that makes sense.
    static std::optional<UnifiedPushRegistration> stored(const UserDefaults& store);
    /// A new one, which takes the place of what is stored; absent when it cannot be stored. Throws
    /// `WebPushError` when the system has no random bytes.
    static std::optional<UnifiedPushRegistration> make(UserDefaults& store);

    /// A random UUID: whoever knows it may call us as the distributor.
    [[nodiscard]] const std::string& token() const { return m_token; }
    [[nodiscard]] const WebPushKeys& keys() const { return m_keys; }
    /// The bus name of the one that registered us; empty: none yet.
    [[nodiscard]] const std::string& distributor() const { return m_distributor; }
    /// The one that registered us before that; empty: none.
    [[nodiscard]] const std::string& replacedDistributor() const { return m_replacedDistributor; }
    /// Where pushes are to be sent; empty: nowhere yet.
    [[nodiscard]] const std::string& endpoint() const { return m_endpoint; }

    /// Returns whether it is stored. If it is not, it holds for this object all the same.
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

/// Whether a backend may be told to send there: over https, or within this device.
bool isUsablePushEndpoint(std::string_view endpoint);

} // namespace Platform::Push
