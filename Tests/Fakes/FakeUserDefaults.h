#pragma once

#include "Platform/NotificationCenter.h"
#include "Platform/UserDefaults.h"

#include <map>
#include <string>
#include <vector>

namespace Platform {
class DispatchQueue;
}

/// A defaults domain in memory that can be made unavailable or read-only.
class FakeUserDefaults final : public Platform::UserDefaults {
public:
    [[nodiscard]] bool isAvailable() const override { return isReadable; }
    [[nodiscard]] std::optional<Platform::PropertyList> object(std::string_view key) const override;
    bool write(std::span<const Entry> entries) override;
    bool removeObject(std::string_view key) override;
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
    FakeUserDefaultsDomains(Platform::NotificationCenter& center, Platform::DispatchQueue& mainQueue);

    Platform::UserDefaults& standard() override { return m_standard; }
    FakeUserDefaults& fakeStandard() { return m_standard; }
    Platform::UserDefaults* suite(std::string_view name) override;
    FakeUserDefaults& fakeSuite(std::string_view name);

    /// Replaces or removes the managed configuration, as device management does.
    void deliver(std::optional<Platform::PropertyList> managed);

    bool areSuitesAvailable = true;

private:
    FakeUserDefaults m_standard;
    std::map<std::string, FakeUserDefaults, std::less<>> m_suites;
};
