#pragma once

#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Network/SecureRequest.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qvctl {

// Checks whether requests can be sent with a configuration: the app's API client builds the upload of a
// device token and the app's transport checks the request, but nothing is sent. The reasons are clauses and
// quote no value.

struct CheckedAddress {
    /// The server and path of the upload; absent if no request can be sent.
    std::optional<Platform::Network::SecureURL> target;
    /// Why no request can be sent.
    std::string refusal;
};

CheckedAddress checkBackendAddress(const std::string& baseDomain);

/// The URL to which the device token is uploaded; absent if the request cannot be sent. `config` must have a
/// device identifier.
std::optional<Platform::Network::SecureURL> uploadAddress(const Core::ValidatedConfig& config);

/// A value that makes every request fail.
struct UnusableValue {
    std::string_view key;
    std::string reason;
};

/// Lists the values of `config` that make every request fail; tries each separately.
std::vector<UnusableValue> unusableValues(const Core::ValidatedConfig& config);

} // namespace Qvctl
