#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"
#include "Platform/Task.h"

#include <boost/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace Core {
class APIClientConfigProvider;
class Logger;
} // namespace Core
namespace Platform {
class DispatchQueue;
class OutcomeRecorder;
class URLSession;
class UserDefaultsDomains;
} // namespace Platform

namespace PushNotifications {

/// The body of a token upload.
struct DeviceTokenPayload {
    /// The device token in hexadecimal.
    std::string token;

    [[nodiscard]] boost::json::value toJSON() const { return boost::json::object{{"token", token}}; }
};

namespace PushNotificationRoutes {
/// Returns the upload path for a device's token. `deviceId` is not percent-encoded.
std::string deviceToken(std::string_view deviceId);
} // namespace PushNotificationRoutes

/// Handles the result of the push registration: stores the device token, logs it and uploads it.
///
/// Threads: main; uploads start on `taskQueue` and may run concurrently. Ownership: the ports must outlive
/// the uploads. Errors: a failed upload is logged as one line and not retried. The outcome of
/// each upload is recorded.
class RemoteNotificationHandler {
public:
    struct Ports {
        Core::Logger& logger;
        Platform::UserDefaultsDomains& userDefaults;
        const Core::APIClientConfigProvider& configProvider;
        Platform::URLSession& session;
        /// The queue on which uploads start.
        Platform::DispatchQueue& taskQueue;
        Platform::OutcomeRecorder& outcomes;
    };

    explicit RemoteNotificationHandler(const Ports& ports) : m_ports(ports) {}

    /// Returns the handler of this process, created on first use and never destroyed.
    static RemoteNotificationHandler& shared();

    void didRegisterForRemoteNotifications(const Platform::Data& deviceToken);
    void didFailToRegister(const Platform::Error& error);

    /// Starts an upload and returns. Sends nothing if the managed configuration has no device ID.
    void uploadTokenToBackend(const std::string& tokenString);

    /// Returns the token of the last registration in hexadecimal, if any.
    [[nodiscard]] std::optional<std::string> storedDeviceToken() const;

private:
    static Platform::Task<void> upload(Ports ports, std::string path, std::string tokenString);

    const Ports m_ports;
};

} // namespace PushNotifications
