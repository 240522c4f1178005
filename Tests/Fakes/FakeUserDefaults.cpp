#include "Tests/Fakes/FakeUserDefaults.h"

#include "Platform/DispatchQueue.h"

#include <utility>

using Platform::PropertyList;
using Platform::UserDefaults;

std::optional<PropertyList> FakeUserDefaults::object(std::string_view key) const
{
    const auto found = values.find(key);
    return found != values.end() ? std::optional(found->second) : std::nullopt;
}

bool FakeUserDefaults::write(std::span<const Entry> entries)
{
    if (!isWritable)
        return false;
    bool isComplete = true;
    for (const Entry& entry : entries) {
        if (entry.key != managedConfigurationKey)
            values.insert_or_assign(std::string(entry.key), entry.value);
        else
            isComplete = false;
    }
    ++commitCount;
    ++unsynchronizedCount;
    const auto notify = onChange; // The handler may replace itself.
    notify();
    return isComplete;
}

bool FakeUserDefaults::removeObject(std::string_view key)
{
    if (!isWritable || key == managedConfigurationKey)
        return false;
    values.erase(std::string(key));
    ++unsynchronizedCount;
    onChange();
    return true;
}

FakeUserDefaultsDomains::FakeUserDefaultsDomains(Platform::NotificationCenter& center,
                                                 Platform::DispatchQueue& mainQueue)
{
    m_standard.onChange = [this, &center, &mainQueue] {
        mainQueue.async([this, &center] {
            center.post({std::string(UserDefaults::didChangeNotification), &m_standard, {}});
        });
    };
}

UserDefaults* FakeUserDefaultsDomains::suite(std::string_view name)
{
    const bool isFileName = !name.empty() && name.front() != '.' &&
                            name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
    return areSuitesAvailable && isFileName ? &fakeSuite(name) : nullptr;
}

FakeUserDefaults& FakeUserDefaultsDomains::fakeSuite(std::string_view name)
{
    return m_suites[std::string(name)];
}

void FakeUserDefaultsDomains::deliver(std::optional<PropertyList> managed)
{
    m_standard.values.erase(std::string(UserDefaults::managedConfigurationKey));
    if (managed)
        m_standard.values.emplace(UserDefaults::managedConfigurationKey, *std::move(managed));
    m_standard.onChange();
}
