#pragma once

#include "Core/APIClientConfigProvider.h"
#include "Core/ConfigurationSnapshot.h"
#include "Platform/PropertyList.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {
class Clock;
class DispatchQueue;
class NotificationCenter;
class Timer;
class TimerScheduler;
class UserDefaultsDomains;
} // namespace Platform

namespace Core {

class Logger;

/// The one owner of the managed configuration: takes it from the standard defaults, validates it, keeps it as
/// a numbered snapshot in the shared suite, follows its changes and answers what it says.
///
/// Threads: `registerForConfigurationChanges()`, the debounce and the destructor belong to the main thread;
/// `updateConfigurationFromMDM()` runs on the main thread at start-up and on the utility queue afterwards;
/// every getter may be called from any thread. Ownership: held by `std::shared_ptr`; every callback holds it
/// weakly. Errors: none reach the caller; a failure is one log line and a default.
class ConfigurationManager final : public APIClientConfigProvider,
                                   public std::enable_shared_from_this<ConfigurationManager> {
public:
    using ConfigurationSnapshot = Core::ConfigurationSnapshot;

    /// Posted on the main queue after every debounced update, without a sender, with
    /// `getConfigurationStatus()` as user info, each value a `Platform::PropertyList`.
    static constexpr std::string_view didUpdateNotification = "ManagedConfigurationDidUpdate";

    /// How long the standard defaults must rest before a change is looked at.
    static constexpr std::chrono::milliseconds debounceInterval{500};

    struct Ports {
        Logger& logger;
        Platform::UserDefaultsDomains& userDefaults;
        Platform::NotificationCenter& notificationCenter;
        Platform::DispatchQueue& mainQueue;
        Platform::DispatchQueue& utilityQueue;
        Platform::TimerScheduler& timers;
        const Platform::Clock& clock;
    };

    /// Neither reads the configuration nor starts observing.
    explicit ConfigurationManager(const Ports& ports);
    ~ConfigurationManager() override;
    ConfigurationManager(const ConfigurationManager&) = delete;
    ConfigurationManager& operator=(const ConfigurationManager&) = delete;

    /// The manager of this process, made on first use and never destroyed.
    static ConfigurationManager& shared();

    /// Reads, validates and persists the managed configuration, unless it is the one applied last.
    void updateConfigurationFromMDM();

    /// The stored snapshot, or the default one when nothing usable is stored; absent only while the shared
    /// suite cannot be opened. Reads the store anew at each call.
    [[nodiscard]] std::optional<ConfigurationSnapshot> loadConfigurationSnapshot() const;

    /// Whether the snapshot lists exactly this bundle identifier.
    [[nodiscard]] bool isAppAllowedForSSO(std::string_view bundleId) const;
    [[nodiscard]] std::vector<std::string> getAllowedAppBundleIds() const;
    [[nodiscard]] std::optional<std::string> getOrganizationId() const;
    [[nodiscard]] std::optional<std::string> getBaseDomain() const;
    [[nodiscard]] std::optional<std::string> getApiKey() const;
    [[nodiscard]] std::optional<std::string> getDeviceId() const;

    /// "status", versions, dates and which values are present; never a value itself.
    [[nodiscard]] Platform::PropertyList::Dictionary getConfigurationStatus() const;

    /// Removes the snapshot from the shared suite. The configuration applied last stays remembered, so an
    /// unchanged one is not applied again.
    void clearConfiguration();

    /// Does nothing in this build; a hook for diagnostics.
    void debugLogAppGroupContents() const {}

    /// Starts to follow changes of the standard defaults. Each call adds a registration that stays for good;
    /// all of them restart the one debounce timer.
    void registerForConfigurationChanges();

    [[nodiscard]] std::optional<std::string> baseDomain() const override { return getBaseDomain(); }
    [[nodiscard]] std::optional<std::string> apiKey() const override { return getApiKey(); }
    [[nodiscard]] std::optional<std::string> deviceId() const override { return getDeviceId(); }

private:
    void unregisterForConfigurationChanges();
    void scheduleDebouncedUpdate();
    void handleDebouncedChange();
    void postConfigurationUpdateNotification() const;
    [[nodiscard]] std::optional<Platform::PropertyList> readManagedConfiguration() const;
    [[nodiscard]] bool isLastApplied(const std::string& fingerprint) const;
    [[nodiscard]] std::int64_t nextConfigVersion() const;
    /// Absent or empty when no snapshot can be loaded.
    template <typename Value>
    [[nodiscard]] Value storedValue(Value ValidatedConfig::*member) const;
    void saveConfigurationSnapshot(const ConfigurationSnapshot& snapshot);

    const Ports m_ports;
    std::atomic<bool> m_isUpdatingConfiguration = false;
    /// The fingerprint of the managed dictionary applied last; null before the first.
    std::atomic<std::shared_ptr<const std::string>> m_lastManagedConfigHash;
    std::unique_ptr<Platform::Timer> m_debounceTimer;
};

/// Differs whenever the value of one of the managed keys differs, its type included; a text and a number
/// that reads the same count as equal. A reversible encoding, to be kept in memory only, since it holds the
/// API key.
std::string managedConfigFingerprint(const Platform::PropertyList::Dictionary& managed);

} // namespace Core
