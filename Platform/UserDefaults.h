#pragma once

#include "Platform/PropertyList.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

/// A persistent key-value store (one domain) that other processes may read and write at the same time.
///
/// Threads: any, concurrently.
/// Errors: a value that cannot be read counts as missing. A write that fails returns false and leaves the
/// store unchanged. The adapter logs every error, so callers may ignore the result.
///
/// Implementations must return true only for writes that are durable and visible to other processes, and must
/// make the entries of one `write()` visible all at once.
class UserDefaults {
public:
    /// Posted on the main queue, with the domain as sender, after this process, another process or device
    /// management has changed values of `UserDefaultsDomains::standard()`. Changes in quick succession may
    /// share one notification.
    static constexpr std::string_view didChangeNotification = "NSUserDefaultsDidChangeNotification";

    /// The key of the managed configuration, a dictionary, in the standard domain. Read-only: writing or
    /// removing it has no effect and returns false.
    static constexpr std::string_view managedConfigurationKey = "com.apple.configuration.managed";

    struct Entry {
        std::string_view key;
        PropertyList value;
    };

    virtual ~UserDefaults() = default;

    /// Returns whether the store can be read. While it cannot, all values count as missing.
    [[nodiscard]] virtual bool isAvailable() const { return true; }
    /// Returns the value for `key`; absent if it is missing.
    [[nodiscard]] virtual std::optional<PropertyList> object(std::string_view key) const = 0;
    /// Writes the entries in order, in one commit. Returns whether it succeeded.
    virtual bool write(std::span<const Entry> entries) = 0;
    /// Removes the value for `key`. Returns whether it succeeded, which includes a missing value.
    virtual bool removeObject(std::string_view key) = 0;
    /// Blocks until all previous writes are durable.
    virtual void synchronize() = 0;

    /// Writes one value. Returns whether it succeeded.
    bool set(std::string_view key, PropertyList value);

    // Absent if the key is missing or its value has another type.
    [[nodiscard]] std::optional<Data> data(std::string_view key) const;
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;
    /// Returns the number truncated to an integer; 0 if it is missing, not a number, or out of range.
    [[nodiscard]] std::int64_t integer(std::string_view key) const;
    /// Returns whether the value is a number other than 0.
    [[nodiscard]] bool boolean(std::string_view key) const;
};

/// The defaults domains of this application.
class UserDefaultsDomains {
public:
    virtual ~UserDefaultsDomains() = default;

    /// The application's own domain.
    virtual UserDefaults& standard() = 0;

    /// Returns a shared suite; null while it cannot be opened. Repeated calls are cheap and return the same
    /// object, which lives as long as this one.
    virtual UserDefaults* suite(std::string_view name) = 0;
};

} // namespace Platform
