#pragma once

#include "Core/ManagedConfigurationValidation.h"
#include "Platform/Network/SecureRequest.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qvctl::Policy {

// What the application could do with a configuration: its own client composes the upload of a device token,
// its own transport checks the request, and nothing is sent. The reasons are clauses that quote no value.

struct CheckedAddress {
    /// Where requests would go; absent when none can be sent.
    std::optional<Platform::Network::SecureURL> target;
    /// Why none can be sent.
    std::string refusal;
};

CheckedAddress checkBackendAddress(const std::string& baseDomain);

/// Where the device token is uploaded with this configuration, which has a device identifier; absent when no
/// such request can be sent.
std::optional<Platform::Network::SecureURL> uploadAddress(const Core::ValidatedConfig& config);

/// A value with which no request can be sent.
struct UnusableValue {
    std::string_view key;
    std::string reason;
};

/// The values of `config` that keep requests from being sent, each tried on its own.
std::vector<UnusableValue> unusableValues(const Core::ValidatedConfig& config);

} // namespace Qvctl::Policy
