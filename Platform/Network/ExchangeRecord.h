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

/// How a request to a server ended, for diagnosis from another process. Holds no value of the request.
struct ExchangeRecord {
    /// When it ended.
    Date time;
    std::string method;
    /// All that is kept of the path, since any part of it may come from the configuration.
    std::int64_t pathSegmentCount = 0;
    /// 0: there was no HTTP response.
    std::int64_t statusCode = 0;
    /// A `URLError::Code`; 0: none.
    std::int64_t errorCode = 0;

    /// Whether the response has a status from 200 to 299.
    [[nodiscard]] bool isSuccess() const { return statusCode >= 200 && statusCode < 300; }

    friend bool operator==(const ExchangeRecord&, const ExchangeRecord&) = default;
};

/// By server, as "host:port".
using ExchangeRecords = std::map<std::string, ExchangeRecord, std::less<>>;

/// Leaves out what does not have the form of a record.
ExchangeRecords storedExchanges(const UserDefaults& store);
/// Replaces all stored records. Returns whether they are stored.
bool storeExchanges(UserDefaults& store, const ExchangeRecords& records);

/// The number of "/" in the path of a URL.
std::int64_t pathSegmentCount(std::string_view url);

} // namespace Platform::Network
