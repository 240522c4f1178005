#include "Platform/Linux/DeviceDefaults.h"

#include "Platform/DispatchQueue.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/Linux/Files/PolicyFileReading.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"

#include <sys/inotify.h>
#include <utility>
#include <vector>

namespace Platform::Linux {

namespace {

Outcome::Kind kindOf(Files::PolicyFileReading::State state)
{
    using State = Files::PolicyFileReading::State;
    switch (state) {
    case State::untrusted:
        return Outcome::Kind::untrusted;
    case State::unreadable:
        return Outcome::Kind::unreadable;
    case State::malformed:
        return Outcome::Kind::malformed;
    case State::missing:
    case State::good:
        break;
    }
    return Outcome::Kind::none;
}

} // namespace

/// The application's database, with the read-only managed configuration on top.
class DeviceDefaults::Standard final : public UserDefaults {
public:
    Standard(Storage::SQLiteUserDefaults& database, Files::ManagedPolicyFile& policyFile)
        : m_database(database), m_policyFile(policyFile)
    {}

    [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const override
    {
        return key == managedConfigurationKey ? m_policyFile.dictionary() : m_database.object(key);
    }
    bool write(std::span<const Entry> entries) override
    {
        std::vector<Entry> own(entries.begin(), entries.end());
        std::erase_if(own, [](const Entry& entry) { return entry.key == managedConfigurationKey; });
        return m_database.write(own) && own.size() == entries.size();
    }
    bool removeObject(std::string_view key) override
    {
        return key != managedConfigurationKey && m_database.removeObject(key);
    }
    void synchronize() override { m_database.synchronize(); }

private:
    Storage::SQLiteUserDefaults& m_database;
    Files::ManagedPolicyFile& m_policyFile;
};

DeviceDefaults::DeviceDefaults(DevicePaths paths, Storage::SQLiteUserDefaults::Access access,
                               const Clock& clock, const AdapterLog& log)
    : m_paths(std::move(paths)),
      m_access(access),
      m_clock(clock),
      m_log(log),
      m_policyFile(m_paths.policy, log),
      m_database(m_paths.standardDefaults(), access, clock, log),
      m_standard(std::make_unique<Standard>(m_database, m_policyFile))
{}

DeviceDefaults::~DeviceDefaults() = default;

UserDefaults& DeviceDefaults::standard()
{
    return *m_standard;
}

UserDefaults* DeviceDefaults::suite(std::string_view name)
{
    if (name.empty() || name.front() == '.' ||
        name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos)
        return nullptr; // Not a valid file name.
    const std::lock_guard lock(m_mutex);
    auto suite = m_suites.find(name);
    if (suite == m_suites.end())
        suite = m_suites.try_emplace(std::string(name), m_paths.suite(name), m_access, m_clock, m_log).first;
    return suite->second.isAvailable() ? &suite->second : nullptr;
}

void DeviceDefaults::announceChanges(Files::FileSystemWatcher& watcher, NotificationCenter& center,
                                     DispatchQueue& mainQueue)
{
    const auto onChange = [this, &center, &mainQueue] { announce(center, mainQueue); };
    m_policyFile.watch(watcher, onChange);
    // The bell file is created with the database.
    if (m_database.isAvailable()) {
        const int handler = watcher.addHandler([onChange](std::uint32_t, std::string_view) { onChange(); });
        watcher.setTargets(handler, {{m_database.bellFile().string(), IN_ATTRIB}});
    }
}

void DeviceDefaults::recordErrors(OutcomeRecorder& outcomes)
{
    m_policyFile.onError([&outcomes](Files::PolicyFileReading::State state) {
        outcomes.record(Outcome::Subject::configurationError, Outcome::Result::failed, kindOf(state));
    });
}

void DeviceDefaults::announce(NotificationCenter& center, DispatchQueue& mainQueue)
{
    mainQueue.async([this, &center] {
        center.post({std::string(UserDefaults::didChangeNotification), m_standard.get(), {}});
    });
}

void DeviceDefaults::reloadPolicy(NotificationCenter& center, DispatchQueue& mainQueue)
{
    m_policyFile.reload();
    announce(center, mainQueue);
}

} // namespace Platform::Linux
