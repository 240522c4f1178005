#include "PushNotifications/RemoteNotificationHandler.h"

#include "Core/APIClient.h"
#include "Core/APIError.h"
#include "Core/ConfigurationManager.h"
#include "Core/Constants.h"
#include "Core/Logger.h"
#include "Platform/Encoding.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/Services.h"
#include "Platform/UserDefaults.h"

#include <exception>
#include <utility>
#include <variant>

namespace PushNotifications {

using Core::LogCategory;
using Platform::Outcome;

namespace {

void recordFailure(Platform::OutcomeRecorder& outcomes, const std::exception& error)
{
    using Core::APIError;
    const auto record = [&](Outcome::Kind kind, std::int64_t code = 0) {
        outcomes.record(Outcome::Subject::upload, Outcome::Result::failed, kind, code);
    };
    const auto* apiError = dynamic_cast<const APIError*>(&error);
    if (apiError == nullptr)
        record(Outcome::Kind::none);
    else if (const auto* status = std::get_if<APIError::HTTPStatus>(&apiError->theCase()))
        record(Outcome::Kind::status, status->statusCode);
    else if (const auto* network = std::get_if<APIError::NetworkFailure>(&apiError->theCase()))
        record(Outcome::Kind::network, network->underlying.code);
    else if (std::holds_alternative<APIError::InvalidBaseURL>(apiError->theCase()))
        record(Outcome::Kind::address);
    else
        record(Outcome::Kind::response);
}

} // namespace

std::string PushNotificationRoutes::deviceToken(std::string_view deviceId)
{
    return std::string(Core::APIRoutes::mdmBackendPrefix)
        .append("/device-api/v1/device/apple/devices/")
        .append(deviceId)
        .append("/token");
}

RemoteNotificationHandler& RemoteNotificationHandler::shared()
{
    const Platform::Services& services = Platform::services();
    static auto& instance = *new RemoteNotificationHandler(
        {Core::Logger::shared(), services.userDefaults, Core::ConfigurationManager::shared(),
         services.urlSession, services.defaultQueue, services.outcomes});
    return instance;
}

void RemoteNotificationHandler::didRegisterForRemoteNotifications(const Platform::Data& deviceToken)
{
    const std::string tokenString = Platform::hexadecimalText(deviceToken);
    m_ports.userDefaults.standard().set(Core::Constants::StorageKeys::remoteNotificationDeviceToken,
                                        tokenString);
    m_ports.logger.info("Remote notifications registered", "didRegisterForRemoteNotifications(deviceToken:)",
                        {.category = LogCategory::notifications,
                         .context = {{"tokenLength", std::to_string(deviceToken.size())}}});
    m_ports.logger.debug([&] { return "APNs device token: " + tokenString; },
                         "didRegisterForRemoteNotifications(deviceToken:)",
                         {.category = LogCategory::notifications});
    uploadTokenToBackend(tokenString);
}

void RemoteNotificationHandler::didFailToRegister(const Platform::Error& error)
{
    m_ports.logger.error("Remote notification registration failed", "didFailToRegister(error:)",
                         {.category = LogCategory::notifications, .error = error});
}

void RemoteNotificationHandler::uploadTokenToBackend(const std::string& tokenString)
{
    const auto deviceId = m_ports.configProvider.deviceId();
    if (!deviceId || deviceId->empty()) {
        m_ports.logger.info("Skipping token upload: no device ID in managed config",
                            "uploadTokenToBackend(tokenString:)", {.category = LogCategory::notifications});
        return;
    }
    Platform::spawn(m_ports.taskQueue,
                    upload(m_ports, PushNotificationRoutes::deviceToken(*deviceId), tokenString));
}

Platform::Task<void> RemoteNotificationHandler::upload(Ports ports, std::string path, std::string tokenString)
{
    const Core::APIClient client(ports.configProvider, ports.session, Core::JSONDecoder(),
                                 Core::JSONEncoder(), ports.logger);
    try {
        auto request = client.post(path, std::optional(DeviceTokenPayload{std::move(tokenString)}));
        const auto [body, response] = co_await std::move(request);
        ports.outcomes.record(Outcome::Subject::upload, Outcome::Result::succeeded, Outcome::Kind::none,
                              response.statusCode);
        ports.logger.info("Device token uploaded to backend", "uploadTokenToBackend(tokenString:)",
                          {.category = LogCategory::notifications});
    } catch (const std::exception& error) {
        recordFailure(ports.outcomes, error);
        ports.logger.error("Device token upload failed", "uploadTokenToBackend(tokenString:)",
                           {.category = LogCategory::notifications, .error = error});
    }
}

std::optional<std::string> RemoteNotificationHandler::storedDeviceToken() const
{
    return m_ports.userDefaults.standard().text(Core::Constants::StorageKeys::remoteNotificationDeviceToken);
}

} // namespace PushNotifications
