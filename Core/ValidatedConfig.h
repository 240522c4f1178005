#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Core {

/// The values of a managed configuration. One that was missing, of a wrong type, empty or malformed is
/// absent. Each member has its row in the table of `ManagedKeys.cpp`.
struct ValidatedConfig {
    /// In input order, duplicates kept.
    std::vector<std::string> allowedAppBundleIds;
    std::optional<std::string> organizationId;
    /// Begins with "https://".
    std::optional<std::string> baseDomain;
    std::optional<std::string> apiKey;
    std::optional<std::string> deviceId;

    friend bool operator==(const ValidatedConfig&, const ValidatedConfig&) = default;
};

} // namespace Core
