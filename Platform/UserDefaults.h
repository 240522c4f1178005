#pragma once

#include "Platform/PropertyList.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

/// Persistent values by key: one domain of a key-value store that other processes may read and write as well.
///
/// Threads: any, concurrently.
/// Errors: a value that cannot be read counts as missing. A write that fails returns false and leaves the
/// store as it was. The adapter logs one error line for each, so a caller that can do nothing about it may
/// ignore the result. Implementations guarantee: a write that returns true is durable and visible to other
/// processes; several values written at once are seen all or none.
class UserDefaults {
public:
    /// Posted on the main queue, with the domain as sender, after values of `UserDefaultsDomains::standard()`
    /// changed, whoever wrote them: this process, another one, or device management. Changes close to each
    /// other may share one notification.
    static constexpr std::string_view didChangeNotification = "NSUserDefaultsDidChangeNotification";

    /// The key of the standard domain under which device management publishes the managed app configuration,
    /// a dictionary. Read-only: writing or removing it has no effect and returns false.
    static constexpr std::string_view managedConfigurationKey = "com.apple.configuration.managed";

    struct Entry {
        std::string_view key;
        PropertyList value;
    };

    virtual ~UserDefaults() = default;

    /// Returns false while nothing can be read: what is stored then counts as missing as well.
    [[nodiscard]] virtual bool isAvailable() const { return true; }
    [[nodiscard]] virtual std::optional<PropertyList> object(std::string_view key) const = 0;
    /// Writes the entries in their order, as one commit. Returns whether all of them are stored.
    virtual bool write(std::span<const Entry> entries) = 0;
    /// Returns whether nothing is stored under the key any more.
    virtual bool removeObject(std::string_view key) = 0;
    /// Returns once everything written so far is durable.
    virtual void synchronize() = 0;

    /// Returns whether the value is stored.
    bool set(std::string_view key, PropertyList value);

    /// Absent when the key is missing or holds another type.
    [[nodiscard]] std::optional<Data> data(std::string_view key) const;
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;
    /// The number under the key, cut to an integer; 0 when it is missing, no number, or out of range.
    [[nodiscard]] std::int64_t integer(std::string_view key) const;
    /// False when the key is missing or holds no number; a number is true unless it is 0.
    [[nodiscard]] bool boolean(std::string_view key) const;
};

/// The domains of this application.
class UserDefaultsDomains {
public:
    virtual ~UserDefaultsDomains() = default;

    /// The application's own domain.
    virtual UserDefaults& standard() = 0;

    /// A domain shared by the applications of a group; null while it cannot be opened. Asking again is cheap
    /// and answers the same object, which lives as long as this one.
    virtual UserDefaults* suite(std::string_view name) = 0;
};

} // namespace Platform
