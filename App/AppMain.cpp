#include "App/AppMain.h"

#include "Core/ConfigurationManager.h"
#include "Core/Logger.h"
#include "Platform/Services.h"
#include "Platform/UserDefaults.h"
#include "PushNotifications/NotificationPermissionManager.h"

#include <cstdlib>
#include <string_view>

namespace App {

AppMain::AppMain()
{
    setupLogging();
    setupManagedConfiguration();
}

ContentView& AppMain::body()
{
    const Platform::Services& services = Platform::services();
    m_contentView = std::make_unique<ContentView>(
        ContentView::Ports{Core::Logger::shared(), services.userDefaults.standard(),
                           PushNotifications::NotificationPermissionManager::shared(), services.application,
                           services.mainQueue});
    return *m_contentView;
}

void AppMain::installDelegate(Platform::Application& application)
{
    m_appDelegate = std::make_shared<NotificationAppDelegate>();
    application.setDelegate(m_appDelegate);
}

void AppMain::setupLogging()
{
    Core::LoggingConfig::defaultPrivacy = Core::LogPrivacy::private_;
    Core::LoggingConfig::isDebugLoggingEnabled = false;
    Core::Logger::shared().info("Quorvane MDM App starting up", "setupLogging()");
}

void AppMain::setupManagedConfiguration()
{
    Core::ConfigurationManager& manager = Core::ConfigurationManager::shared();
    manager.registerForConfigurationChanges();
    manager.updateConfigurationFromMDM();
    Core::Logger::shared().info("Configuration manager initialized", "setupManagedConfiguration()");
}

} // namespace App
