#pragma once

#include "Platform/Application.h"
#include "Platform/Device.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/FakeAppearance.h"
#include "Tests/Fakes/FakeURLSession.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/FakeUserNotificationCenter.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <memory>
#include <string>
#include <vector>

using namespace Platform;

/// A minimal device in memory, on the main queue: about the least that a port must implement.
class TinyDevice final : public Device, public NotificationPreferences, public Application {
public:
    explicit TinyDevice(const EventLoop& loop) : m_loop(loop) {}

    // Platform::Device
    AppearanceSource& appearance() override { return reportedAppearance; }
    NotificationPreferences& notificationPreferences() override { return *this; }
    UserDefaults& systemStore() override { return store; }
    const Services& connect(const SystemInterface& interface) override
    {
        m_openSettings = interface.openSettings;
        return m_services;
    }
    void start() override { delegate()->didFinishLaunching(); }
    void stop() override { onStop(); }
    void setActive(bool isActive) override { activity.push_back(isActive); }
    [[nodiscard]] bool staysInBackground() const override { return true; }
    void setHasWindow(bool isThere) override { hasWindow = isThere; }

    // Platform::NotificationPreferences
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return notifications.status; }
    void setAllowed(bool) override {}
    [[nodiscard]] std::string notificationServer() const override { return {}; }
    [[nodiscard]] std::string pushSource() const override { return "Nowhere"; }

    // Platform::Application
    void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) override
    {
        m_delegate = std::move(delegate);
    }
    void registerForRemoteNotifications() override {}
    void open(std::string_view) override { m_openSettings(); }

    [[nodiscard]] std::shared_ptr<ApplicationDelegate> delegate() const { return m_delegate.lock(); }

private:
    const EventLoop m_loop;
    NotificationCenter m_center;
    SystemClock m_clock;
    std::function<void()> m_openSettings = [] {};
    std::weak_ptr<ApplicationDelegate> m_delegate;

public:
    bool hasWindow = false;
    std::function<void()> onStop = [] {};
    /// The values that were passed to `setActive()`.
    std::vector<bool> activity;
    FakeUserDefaults store;
    FakeUserNotificationCenter notifications{m_loop.mainQueue};
    FakeAppearance reportedAppearance;
    RecordingUnifiedLog log;
    FakeURLSession network{m_loop.mainQueue};
    FakeUserDefaultsDomains defaults{m_center, m_loop.mainQueue};

private:
    OutcomeRecorder m_outcomes{{store, m_clock, m_loop.mainQueue, m_loop.timers}};
    const Services m_services{.userDefaults = defaults,
                              .notificationCenter = m_center,
                              .mainQueue = m_loop.mainQueue,
                              .utilityQueue = m_loop.mainQueue,
                              .defaultQueue = m_loop.mainQueue,
                              .timers = m_loop.timers,
                              .clock = m_clock,
                              .log = log,
                              .urlSession = network,
                              .userNotificationCenter = notifications,
                              .outcomes = m_outcomes,
                              .application = *this,
                              .bundleIdentifier = "com.example.tiny"};
};
