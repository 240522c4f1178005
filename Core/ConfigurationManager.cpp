#include "Core/ConfigurationManager.h"

#include "Core/Constants.h"
#include "Core/ErrorBridging.h"
#include "Core/Logger.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Platform/Clock.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Encoding.h"
#include "Platform/FatalError.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/Services.h"
#include "Platform/Timer.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <utility>

namespace Core {

using Platform::PropertyList;
using Platform::UserDefaults;

namespace {

/// Returns the key in the status dictionary: "has_api_key", "allowed_apps_count".
std::string statusKey(const ManagedKey& key)
{
    std::string noun(key.noun);
    std::replace(noun.begin(), noun.end(), ' ', '_');
    return key.isList() ? noun + "s_count" : "has_" + noun;
}

} // namespace

ConfigurationManager::ConfigurationManager(const Ports& ports) : m_ports(ports) {}

ConfigurationManager::~ConfigurationManager()
{
    unregisterForConfigurationChanges();
}

ConfigurationManager& ConfigurationManager::shared()
{
    static const auto& manager = *new std::shared_ptr<ConfigurationManager>([] {
        const Platform::Services& services = Platform::services();
        return std::make_shared<ConfigurationManager>(
            Ports{Logger::shared(), services.userDefaults, services.notificationCenter, services.mainQueue,
                  services.utilityQueue, services.timers, services.clock, services.outcomes});
    }());
    return *manager;
}

// Change notifications

void ConfigurationManager::registerForConfigurationChanges()
{
    unregisterForConfigurationChanges();
    auto token = m_ports.notificationCenter.addObserver(
        UserDefaults::didChangeNotification, &m_ports.userDefaults.standard(), &m_ports.mainQueue,
        [weakSelf = weak_from_this()](const Platform::Notification&) {
            if (const auto self = weakSelf.lock())
                self->scheduleDebouncedUpdate();
        });
    token.release();
}

/// Cancels the pending update. Observers stay registered with the notification center.
void ConfigurationManager::unregisterForConfigurationChanges()
{
    m_debounceTimer.reset();
}

void ConfigurationManager::scheduleDebouncedUpdate()
{
    if (m_debounceTimer)
        m_debounceTimer->invalidate();
    m_debounceTimer = m_ports.timers.scheduledTimer(debounceInterval, [weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock())
            self->handleDebouncedChange();
    });
}

void ConfigurationManager::handleDebouncedChange()
{
    const auto managed = readManagedConfiguration();
    if (!managed || isLastApplied(managedConfigFingerprint(*managed->dictionary())))
        return;
    m_ports.utilityQueue.async([weakSelf = weak_from_this(), &mainQueue = m_ports.mainQueue] {
        if (const auto self = weakSelf.lock())
            self->updateConfigurationFromMDM();
        mainQueue.async([weakSelf] {
            if (const auto self = weakSelf.lock())
                self->postConfigurationUpdateNotification();
        });
    });
}

void ConfigurationManager::postConfigurationUpdateNotification() const
{
    Platform::Notification notification{std::string(didUpdateNotification), nullptr, {}};
    for (const auto& [key, value] : getConfigurationStatus())
        notification.userInfo.emplace(key, value);
    m_ports.notificationCenter.post(std::move(notification));
}

// Updates

std::optional<PropertyList> ConfigurationManager::readManagedConfiguration() const
{
    auto managed = m_ports.userDefaults.standard().object(UserDefaults::managedConfigurationKey);
    return managed && managed->dictionary() != nullptr ? std::move(managed) : std::nullopt;
}

bool ConfigurationManager::isLastApplied(const std::string& fingerprint) const
{
    const auto last = m_lastManagedConfigHash.load();
    return last && *last == fingerprint;
}

void ConfigurationManager::updateConfigurationFromMDM()
{
    if (m_isUpdatingConfiguration) {
        m_ports.logger.info("Configuration update already in progress, skipping",
                            "updateConfigurationFromMDM()");
        return;
    }
    const auto managed = readManagedConfiguration();
    if (!managed) {
        m_ports.logger.info("No managed configuration available", "updateConfigurationFromMDM()");
        return;
    }
    std::string fingerprint = managedConfigFingerprint(*managed->dictionary());
    if (isLastApplied(fingerprint)) {
        m_ports.logger.info("Managed configuration unchanged, skipping update",
                            "updateConfigurationFromMDM()");
        return;
    }
    m_isUpdatingConfiguration = true;
    auto snapshot = ConfigurationSnapshot::make(validateManagedConfiguration(*managed->dictionary()),
                                                nextConfigVersion(), m_ports.clock.now());
    const std::int64_t version = snapshot.configVersion;
    const std::size_t appCount = snapshot.config.allowedAppBundleIds.size();
    saveConfigurationSnapshot(std::move(snapshot));
    m_lastManagedConfigHash = std::make_shared<const std::string>(std::move(fingerprint));
    m_ports.logger.info(
        [&] {
            return "Configuration updated - v" + std::to_string(version) +
                   ", apps: " + std::to_string(appCount);
        },
        "updateConfigurationFromMDM()");
    m_isUpdatingConfiguration = false;
}

std::int64_t ConfigurationManager::nextConfigVersion() const
{
    const UserDefaults* suite = m_ports.userDefaults.suite(Constants::appGroupSuiteName);
    const std::int64_t version =
        suite != nullptr ? suite->integer(Constants::SnapshotKeys::configVersion) : 0;
    if (version == std::numeric_limits<std::int64_t>::max())
        Platform::fatalError("the configuration version has reached its maximum");
    return version + 1;
}

// Snapshot store

void ConfigurationManager::saveConfigurationSnapshot(ConfigurationSnapshot snapshot)
{
    using Platform::Outcome;
    if (!store(std::move(snapshot)))
        m_ports.outcomes.record(Outcome::Subject::configurationError, Outcome::Result::failed,
                                Outcome::Kind::notStored);
}

bool ConfigurationManager::store(ConfigurationSnapshot snapshot)
{
    UserDefaults* suite = m_ports.userDefaults.suite(Constants::appGroupSuiteName);
    if (suite == nullptr) {
        m_ports.logger.error("Cannot access App Group defaults", "saveConfigurationSnapshot(_:)");
        return false;
    }
    try {
        namespace Keys = Constants::SnapshotKeys;
        Platform::Data encoded = snapshot.encode();
        // Frees a large list before the store needs as much memory again.
        static_cast<void>(std::exchange(snapshot.config, {}));
        const std::array<UserDefaults::Entry, 4> entries{{
            {Keys::configSnapshot, std::move(encoded)},
            {Keys::configVersion, snapshot.configVersion},
            {Keys::lastUpdated, snapshot.lastUpdated},
            {Keys::schemaVersion, snapshot.schemaVersion},
        }};
        const bool isWritten = suite->write(entries);
        suite->synchronize();
        return isWritten;
    } catch (const std::exception& error) {
        m_ports.logger.error(
            [&] { return "Error saving configuration: " + bridge(error).localizedDescription; },
            "saveConfigurationSnapshot(_:)", {.error = error});
        return false;
    }
}

std::optional<ConfigurationSnapshot> ConfigurationManager::loadConfigurationSnapshot() const
{
    const UserDefaults* suite = m_ports.userDefaults.suite(Constants::appGroupSuiteName);
    if (suite == nullptr) {
        m_ports.logger.error("Cannot access App Group defaults", "loadConfigurationSnapshot()");
        return std::nullopt;
    }
    const auto stored = suite->data(Constants::SnapshotKeys::configSnapshot);
    if (!stored)
        return ConfigurationSnapshot::defaultSnapshot(m_ports.clock.now());
    try {
        return ConfigurationSnapshot::decode(*stored);
    } catch (const std::exception& error) {
        m_ports.logger.error(
            [&] { return "Error loading configuration: " + bridge(error).localizedDescription; },
            "loadConfigurationSnapshot()", {.error = error});
        return ConfigurationSnapshot::defaultSnapshot(m_ports.clock.now());
    }
}

void ConfigurationManager::clearConfiguration()
{
    for (const auto key : Constants::SnapshotKeys::all) {
        if (UserDefaults* suite = m_ports.userDefaults.suite(Constants::appGroupSuiteName))
            suite->removeObject(key);
    }
    if (UserDefaults* suite = m_ports.userDefaults.suite(Constants::appGroupSuiteName))
        suite->synchronize();
}

// Getters

template <typename Value>
Value ConfigurationManager::storedValue(Value ValidatedConfig::*member) const
{
    auto snapshot = loadConfigurationSnapshot();
    return snapshot ? std::move(snapshot->config.*member) : Value();
}

bool ConfigurationManager::isAppAllowedForSSO(std::string_view bundleId) const
{
    const TextList allowed = storedValue(&ValidatedConfig::allowedAppBundleIds);
    return std::find(allowed.begin(), allowed.end(), bundleId) != allowed.end();
}

std::vector<std::string> ConfigurationManager::getAllowedAppBundleIds() const
{
    const TextList allowed = storedValue(&ValidatedConfig::allowedAppBundleIds);
    return {allowed.begin(), allowed.end()};
}

std::optional<std::string> ConfigurationManager::getOrganizationId() const
{
    return storedValue(&ValidatedConfig::organizationId);
}

std::optional<std::string> ConfigurationManager::getBaseDomain() const
{
    return storedValue(&ValidatedConfig::baseDomain);
}

std::optional<std::string> ConfigurationManager::getApiKey() const
{
    return storedValue(&ValidatedConfig::apiKey);
}

std::optional<std::string> ConfigurationManager::getDeviceId() const
{
    return storedValue(&ValidatedConfig::deviceId);
}

PropertyList::Dictionary ConfigurationManager::getConfigurationStatus() const
{
    const auto snapshot = loadConfigurationSnapshot();
    if (!snapshot)
        return {{"status", "no_configuration"}, {"config_version", 0}, {"last_updated", "never"}};
    PropertyList::Dictionary status{
        {"status", "active"},
        {"config_version", snapshot->configVersion},
        {"schema_version", snapshot->schemaVersion},
        {"last_updated", snapshot->lastUpdated},
    };
    for (const ManagedKey& key : managedKeys()) {
        if (!key.isStored())
            continue;
        const std::size_t count = valuesOf(key, snapshot->config).size();
        status.emplace(statusKey(key), key.isList() ? PropertyList(count) : PropertyList(count > 0));
    }
    return status;
}

std::string managedConfigFingerprint(const PropertyList::Dictionary& managed)
{
    // Distinguishes an array from the string '["a"]': strings are UTF-8 and never contain this byte.
    constexpr const char* otherTypeMark = "\xFF";
    Platform::Base64Writer fingerprint;
    for (const ManagedKey& key : managedKeys()) {
        const auto found = managed.find(key.name);
        if (found == managed.end())
            continue;
        const PropertyList& value = found->second;
        fingerprint.append(key.name);
        fingerprint.append(":");
        if (const auto* text = value.text()) {
            fingerprint.append(*text);
        } else {
            if (!value.isNumber() || value.boolean() != nullptr)
                fingerprint.append(otherTypeMark);
            fingerprint.append(value.description());
        }
        fingerprint.append(";");
    }
    return std::move(fingerprint).finish();
}

} // namespace Core
