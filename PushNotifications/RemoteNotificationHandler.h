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
class URLSession;
class UserDefaultsDomains;
} // namespace Platform

namespace PushNotifications {

/// The body of a token upload.
struct DeviceTokenPayload {
    /// Hexadecimal.
    std::string token;

    [[nodiscard]] boost::json::value toJSON() const { return boost::json::object{{"token", token}}; }
};

namespace PushNotificationRoutes {
/// The path to which the token of a device is uploaded; the identifier stands in it as it is.
std::string deviceToken(std::string_view deviceId);
} // namespace PushNotificationRoutes

/// Takes what came of the registration for remote notifications: keeps the device token, logs it, and uploads
/// it to the backend.
///
/// Threads: the callbacks on the main thread; an upload is a task of its own, started on a queue. Several may
/// be under way. Ownership: refers to its ports, which must outlive the uploads. Errors: one log line.
/// Nothing is retried, and a token that could not be uploaded is not queued.
class RemoteNotificationHandler {
public:
    struct Ports {
        Core::Logger& logger;
        Platform::UserDefaultsDomains& userDefaults;
        const Core::APIClientConfigProvider& configProvider;
        Platform::URLSession& session;
        /// Where uploads start.
        Platform::DispatchQueue& taskQueue;
    };

    explicit RemoteNotificationHandler(const Ports& ports) : m_ports(ports) {}

    /// The handler of this process, made on first use and never destroyed.
    static RemoteNotificationHandler& shared();

    void didRegisterForRemoteNotifications(const Platform::Data& deviceToken);
    void didFailToRegister(const Platform::Error& error);

    /// Returns at once. Without a device identifier in the managed configuration nothing is sent.
    void uploadTokenToBackend(const std::string& tokenString);

    /// The token of the last registration, hexadecimal; absent if there was none.
    [[nodiscard]] std::optional<std::string> storedDeviceToken() const;

private:
    static Platform::Task<void> upload(Ports ports, std::string path, std::string tokenString);

    const Ports m_ports;
};

} // namespace PushNotifications
