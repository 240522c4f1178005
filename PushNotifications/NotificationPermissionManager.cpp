#include "PushNotifications/NotificationPermissionManager.h"

#include "Core/Logger.h"
#include "Platform/Services.h"

#include <exception>
#include <utility>

namespace PushNotifications {

using Core::LogCategory;
using Platform::AuthorizationStatus;
using Platform::Suspension;
using Platform::Task;

NotificationPermissionManager& NotificationPermissionManager::shared()
{
    static auto& instance = *new NotificationPermissionManager(Platform::services().userNotificationCenter,
                                                               Core::Logger::shared());
    return instance;
}

Task<AuthorizationStatus> NotificationPermissionManager::currentStatus() const
{
    Suspension<Platform::NotificationSettings> reply([this](auto continuation) {
        m_center.getNotificationSettings(
            [continuation](Platform::NotificationSettings settings) { continuation.resume(settings); });
    });
    const Platform::NotificationSettings settings = co_await reply;
    co_return settings.authorizationStatus;
}

Task<bool> NotificationPermissionManager::isAuthorized() const
{
    auto status = currentStatus();
    co_return co_await std::move(status) == AuthorizationStatus::authorized;
}

Task<bool> NotificationPermissionManager::requestAuthorization() const
{
    using Reply = std::pair<bool, std::optional<Platform::Error>>;
    constexpr unsigned options = Platform::AuthorizationOptions::alert |
                                 Platform::AuthorizationOptions::badge |
                                 Platform::AuthorizationOptions::sound;
    Suspension<Reply> reply([this](auto continuation) {
        m_center.requestAuthorization(options,
                                      [continuation](bool isGranted, std::optional<Platform::Error> error) {
                                          continuation.resume(Reply(isGranted, std::move(error)));
                                      });
    });
    const auto [isGranted, error] = co_await reply;
    if (error) {
        m_logger.error("Notification permission request failed", "requestAuthorization()",
                       {.category = LogCategory::notifications, .error = *error});
        co_return false;
    }
    m_logger.info(isGranted ? "Notification permission granted" : "Notification permission denied",
                  "requestAuthorization()", {.category = LogCategory::notifications});
    co_return isGranted;
}

} // namespace PushNotifications
