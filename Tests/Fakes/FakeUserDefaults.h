#pragma once

#include "Platform/DispatchQueue.h"
#include "Platform/NotificationCenter.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <utility>
#include <vector>

/// A defaults domain in memory that can be made unavailable or read-only.
class FakeUserDefaults final : public Platform::UserDefaults {
public:
    [[nodiscard]] bool isAvailable() const override { return isReadable; }
    [[nodiscard]] std::optional<Platform::PropertyList> object(std::string_view key) const override
    {
        const auto found = values.find(key);
        return found != values.end() ? std::optional(found->second) : std::nullopt;
    }
    bool write(std::span<const Entry> entries) override
    {
        const auto isManaged = [](const Entry& entry) { return entry.key == managedConfigurationKey; };
        if (!isWritable || std::ranges::any_of(entries, isManaged))
            return false;
        for (const Entry& entry : entries)
            values.insert_or_assign(std::string(entry.key), entry.value);
        ++commitCount;
        ++unsynchronizedCount;
        const auto notify = onChange; // The handler may replace itself.
        notify();
        return true;
    }
    bool removeObject(std::string_view key) override
    {
        if (!isWritable || key == managedConfigurationKey)
            return false;
        values.erase(std::string(key));
        ++unsynchronizedCount;
        onChange();
        return true;
    }
    void synchronize() override { unsynchronizedCount = 0; }

    bool isReadable = true;
    bool isWritable = true;
    /// Number of successful calls of `write()`.
    int commitCount = 0;
    /// Number of successful changes since the last `synchronize()`.
    int unsynchronizedCount = 0;
    std::map<std::string, Platform::PropertyList, std::less<>> values;
    std::function<void()> onChange = [] {};
};

/// Defaults domains in memory. Changes of the standard domain are posted on the main queue.
class FakeUserDefaultsDomains final : public Platform::UserDefaultsDomains {
public:
    FakeUserDefaultsDomains(Platform::NotificationCenter& center, Platform::DispatchQueue& mainQueue)
    {
        m_standard.onChange = [this, &center, &mainQueue] {
            mainQueue.async([this, &center] {
                center.post({std::string(FakeUserDefaults::didChangeNotification), &m_standard, {}});
            });
        };
    }

    Platform::UserDefaults& standard() override { return m_standard; }
    FakeUserDefaults& fakeStandard() { return m_standard; }
    Platform::UserDefaults* suite(std::string_view name) override
    {
        const bool isFileName = !name.empty() && name.front() != '.' &&
                                name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
        return areSuitesAvailable && isFileName ? &fakeSuite(name) : nullptr;
    }
    FakeUserDefaults& fakeSuite(std::string_view name) { return m_suites[std::string(name)]; }

    /// Replaces or removes the managed configuration, as device management does.
    void deliver(std::optional<Platform::PropertyList> managed)
    {
        m_standard.values.erase(std::string(FakeUserDefaults::managedConfigurationKey));
        if (managed)
            m_standard.values.emplace(FakeUserDefaults::managedConfigurationKey, *std::move(managed));
        m_standard.onChange();
    }

    bool areSuitesAvailable = true;

private:
    FakeUserDefaults m_standard;
    std::map<std::string, FakeUserDefaults, std::less<>> m_suites;
};
