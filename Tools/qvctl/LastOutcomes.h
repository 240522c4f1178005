#pragma once

#include "Platform/Network/ExchangeRecord.h"
#include "Platform/Outcome.h"

#include <boost/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Qvctl {

// How commands show the outcomes that the app has recorded. None of it contains a configured value.

std::optional<Platform::Outcome> outcomeOf(const Platform::Outcomes& outcomes,
                                           Platform::Outcome::Subject subject);

/// Whether `record` is of an upload of the device token to `url`.
bool isUpload(const Platform::Network::ExchangeRecord& record, std::string_view url);

/// Why a request got no response, as a clause. `code` is a `URLError::Code`.
std::string networkErrorClause(std::int64_t code);
/// Why the configuration could not be applied, as a clause.
std::string configurationErrorClause(Platform::Outcome::Kind kind);

/// Prints the last upload, push and configuration error as rows of `status`.
void printOutcomes(const Platform::Outcomes& outcomes);
/// Adds "lastUpload", "lastPush" and "lastConfigurationError" to the object of `status`.
void addOutcomes(boost::json::object& object, const Platform::Outcomes& outcomes);

} // namespace Qvctl
