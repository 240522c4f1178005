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
class OutcomeRecorder;
class Timer;
class TimerScheduler;
class UserDefaultsDomains;
} // namespace Platform

namespace Core {

class Logger;

/// Manages the managed configuration: reads it from the standard defaults, validates it, stores it as a
/// numbered snapshot in the shared suite and applies changes. All getters read the stored snapshot.
///
/// Threads: `registerForConfigurationChanges()`, the debounce timer and the destructor run on the main
/// thread; `updateConfigurationFromMDM()` runs on the main thread at startup and on the utility queue
/// afterwards; getters may be called from any thread. Ownership: owned by a `std::shared_ptr`; callbacks hold
/// a weak reference. Errors: none are thrown; a failure is logged as one line and a default is used.
class ConfigurationManager final : public APIClientConfigProvider,
                                   public std::enable_shared_from_this<ConfigurationManager> {
public:
    using ConfigurationSnapshot = Core::ConfigurationSnapshot;

    /// Posted on the main queue after every debounced update. The sender is null; the user info is
    /// `getConfigurationStatus()`, each value a `Platform::PropertyList`.
    static constexpr std::string_view didUpdateNotification = "ManagedConfigurationDidUpdate";

    /// How long the standard defaults must stay unchanged before a change is processed.
    static constexpr std::chrono::milliseconds debounceInterval{500};

    struct Ports {
        Logger& logger;
        Platform::UserDefaultsDomains& userDefaults;
        Platform::NotificationCenter& notificationCenter;
        Platform::DispatchQueue& mainQueue;
        Platform::DispatchQueue& utilityQueue;
        Platform::TimerScheduler& timers;
        const Platform::Clock& clock;
        Platform::OutcomeRecorder& outcomes;
    };

    /// Does not read or observe the configuration yet.
    explicit ConfigurationManager(const Ports& ports);
    ~ConfigurationManager() override;
    ConfigurationManager(const ConfigurationManager&) = delete;
    ConfigurationManager& operator=(const ConfigurationManager&) = delete;

    /// Returns the manager of this process, created on first use and never destroyed.
    static ConfigurationManager& shared();

    /// Reads, validates and stores the managed configuration, unless it equals the one applied last.
    void updateConfigurationFromMDM();

    /// Returns the stored snapshot, or the default one if none can be read; absent only if the shared suite
    /// cannot be opened. Each call reads the store.
    [[nodiscard]] std::optional<ConfigurationSnapshot> loadConfigurationSnapshot() const;

    /// Returns whether the snapshot lists this bundle identifier (case-sensitive).
    [[nodiscard]] bool isAppAllowedForSSO(std::string_view bundleId) const;
    [[nodiscard]] std::vector<std::string> getAllowedAppBundleIds() const;
    [[nodiscard]] std::optional<std::string> getOrganizationId() const;
    [[nodiscard]] std::optional<std::string> getBaseDomain() const;
    [[nodiscard]] std::optional<std::string> getApiKey() const;
    [[nodiscard]] std::optional<std::string> getDeviceId() const;

    /// Returns "status", the versions, the date and which values are present, but never the values.
    [[nodiscard]] Platform::PropertyList::Dictionary getConfigurationStatus() const;

    /// Removes the stored snapshot. This process stores a new one only when the managed configuration
    /// changes.
    void clearConfiguration();

    /// Does nothing; a hook for diagnostic builds.
    void debugLogAppGroupContents() const {}

    /// Observes changes of the standard defaults. Each call adds an observer that is never removed and
    /// cancels a pending update; all observers share one debounce timer.
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
    /// Returns a default-constructed value if no snapshot can be loaded.
    template <typename Value>
    [[nodiscard]] Value storedValue(Value ValidatedConfig::*member) const;
    void saveConfigurationSnapshot(ConfigurationSnapshot snapshot);
    /// Logs errors. Returns whether the snapshot is stored.
    bool store(ConfigurationSnapshot snapshot);

    const Ports m_ports;
    std::atomic<bool> m_isUpdatingConfiguration = false;
    /// Fingerprint of the managed configuration applied last; null before the first.
    std::atomic<std::shared_ptr<const std::string>> m_lastManagedConfigHash;
    std::unique_ptr<Platform::Timer> m_debounceTimer;
};

/// Returns a string that changes with the value or type of any managed key; a number and its decimal string
/// count as equal. The encoding is reversible and contains the API key: keep it in memory only.
std::string managedConfigFingerprint(const Platform::PropertyList::Dictionary& managed);

} // namespace Core
