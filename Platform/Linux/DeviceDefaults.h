#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/Files/ManagedPolicyFile.h"
#include "Platform/Storage/SQLiteUserDefaults.h"
#include "Platform/UserDefaults.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Platform {
class DispatchQueue;
class NotificationCenter;
class OutcomeRecorder;
} // namespace Platform

namespace Platform::Linux::Files {
class FileSystemWatcher;
} // namespace Platform::Linux::Files

namespace Platform::Linux {

/// This device's defaults domains, one database each. The standard domain also has the policy file's
/// dictionary under `UserDefaults::managedConfigurationKey`.
class DeviceDefaults final : public UserDefaultsDomains {
public:
    DeviceDefaults(DevicePaths paths, Storage::SQLiteUserDefaults::Access access, const Clock& clock,
                   const AdapterLog& log);
    ~DeviceDefaults() override;

    UserDefaults& standard() override;
    UserDefaults* suite(std::string_view name) override;

    /// Posts `UserDefaults::didChangeNotification` on the main queue whenever the standard domain changes.
    /// Call at most once; this object must outlive the watcher.
    void announceChanges(Files::FileSystemWatcher& watcher, NotificationCenter& center,
                         DispatchQueue& mainQueue);

    /// Records each new error of the policy file. Call at most once, before the first use of the standard
    /// domain.
    void recordErrors(OutcomeRecorder& outcomes);

    /// Makes the next access to the managed configuration read it again, and posts the same notification. Any
    /// thread.
    void reloadPolicy(NotificationCenter& center, DispatchQueue& mainQueue);

private:
    class Standard;

    void announce(NotificationCenter& center, DispatchQueue& mainQueue);

    const DevicePaths m_paths;
    const Storage::SQLiteUserDefaults::Access m_access;
    const Clock& m_clock;
    const AdapterLog& m_log;
    Files::ManagedPolicyFile m_policyFile;
    Storage::SQLiteUserDefaults m_database;
    std::unique_ptr<Standard> m_standard;
    std::mutex m_mutex;
    std::map<std::string, Storage::SQLiteUserDefaults, std::less<>> m_suites;
};

} // namespace Platform::Linux
