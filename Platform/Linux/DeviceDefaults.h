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
} // namespace Platform

namespace Platform::Linux::Files {
class FileSystemWatcher;
} // namespace Platform::Linux::Files

namespace Platform::Linux {

/// The defaults domains of this device: a database per domain, and in the standard one the dictionary of the
/// policy file under `UserDefaults::managedConfigurationKey`.
class DeviceDefaults final : public UserDefaultsDomains {
public:
    DeviceDefaults(DevicePaths paths, Storage::SQLiteUserDefaults::Access access, const Clock& clock,
                   const AdapterLog& log);
    ~DeviceDefaults() override;

    UserDefaults& standard() override;
    UserDefaults* suite(std::string_view name) override;

    /// Posts `UserDefaults::didChangeNotification` for changes of the standard domain from now on. Once; this
    /// object must outlive the watcher.
    void announceChanges(Files::FileSystemWatcher& watcher, NotificationCenter& center,
                         DispatchQueue& mainQueue);

private:
    class Standard;

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
