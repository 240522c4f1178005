#pragma once

#include "Platform/Date.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace Platform {
class UserDefaults;
} // namespace Platform

namespace Platform::Network {

/// The result of the last request to a server, for diagnosis by another process. Contains no configured
/// values.
struct ExchangeRecord {
    /// When the request ended.
    Date time;
    std::string method;
    /// Stored instead of the path, which may come from the managed configuration.
    std::int64_t pathSegmentCount = 0;
    /// 0 if there was no HTTP response.
    std::int64_t statusCode = 0;
    /// A `URLError::Code`, or 0.
    std::int64_t errorCode = 0;

    /// Returns whether the status is from 200 to 299.
    [[nodiscard]] bool isSuccess() const { return statusCode >= 200 && statusCode < 300; }

    friend bool operator==(const ExchangeRecord&, const ExchangeRecord&) = default;
};

/// By server, as "host:port".
using ExchangeRecords = std::map<std::string, ExchangeRecord, std::less<>>;

/// Returns the stored records. Skips invalid ones.
ExchangeRecords storedExchanges(const UserDefaults& store);
/// Replaces all stored records. Returns whether it succeeded.
bool storeExchanges(UserDefaults& store, const ExchangeRecords& records);

/// Returns the number of "/" in the path of a URL.
std::int64_t pathSegmentCount(std::string_view url);

} // namespace Platform::Network
