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
#include <optional>
#include <string>

/// A minimal device in memory, on the main queue: about the least that a port must implement.
class TinyDevice final : public Platform::Device,
                         public Platform::NotificationPreferences,
                         public Platform::Application {
public:
    explicit TinyDevice(const Platform::EventLoop& loop) : m_loop(loop) {}

    // Platform::Device
    Platform::AppearanceSource& appearance() override { return reportedAppearance; }
    Platform::NotificationPreferences& notificationPreferences() override { return *this; }
    Platform::UserDefaults& systemStore() override { return m_systemStore; }
    const Platform::Services& connect(const Platform::SystemInterface& interface) override
    {
        m_openSettings = interface.openSettings;
        return m_services;
    }
    void start() override
    {
        if (const auto delegate = m_delegate.lock())
            delegate->didFinishLaunching();
        isStarted = true;
    }
    void stop() override { isStarted = false; }
    void setActive(bool) override {}
    [[nodiscard]] bool staysInBackground() const override { return false; }
    void setHasWindow(bool) override {}

    // Platform::NotificationPreferences
    [[nodiscard]] Platform::AuthorizationStatus authorizationStatus() const override
    {
        return m_notifications.status;
    }
    void setAllowed(bool) override {}
    [[nodiscard]] std::string notificationServer() const override { return {}; }
    [[nodiscard]] std::string pushSource() const override { return "Nowhere"; }

    // Platform::Application
    void setDelegate(std::weak_ptr<Platform::ApplicationDelegate> delegate) override
    {
        m_delegate = std::move(delegate);
    }
    void registerForRemoteNotifications() override
    {
        m_loop.mainQueue.async([this] {
            if (const auto delegate = m_delegate.lock())
                delegate->didRegisterForRemoteNotifications({std::byte{0xab}, std::byte{0xcd}});
        });
    }
    void open(std::string_view) override { m_openSettings(); }

private:
    const Platform::EventLoop m_loop;
    Platform::NotificationCenter m_center;
    Platform::SystemClock m_clock;
    FakeUserDefaults m_systemStore;
    Platform::OutcomeRecorder m_outcomes{{m_systemStore, m_clock, m_loop.mainQueue, m_loop.timers}};
    FakeUserNotificationCenter m_notifications{m_loop.mainQueue};
    std::function<void()> m_openSettings = [] {};
    std::weak_ptr<Platform::ApplicationDelegate> m_delegate;

public:
    bool isStarted = false;
    FakeAppearance reportedAppearance;
    RecordingUnifiedLog log;
    FakeURLSession network{m_loop.mainQueue};
    FakeUserDefaultsDomains defaults{m_center, m_loop.mainQueue};

private:
    const Platform::Services m_services{.userDefaults = defaults,
                                        .notificationCenter = m_center,
                                        .mainQueue = m_loop.mainQueue,
                                        .utilityQueue = m_loop.mainQueue,
                                        .defaultQueue = m_loop.mainQueue,
                                        .timers = m_loop.timers,
                                        .clock = m_clock,
                                        .log = log,
                                        .urlSession = network,
                                        .userNotificationCenter = m_notifications,
                                        .outcomes = m_outcomes,
                                        .application = *this,
                                        .bundleIdentifier = "com.example.tiny"};
};
