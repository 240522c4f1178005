#pragma once

#include "Core/TextList.h"

#include <optional>
#include <string>

namespace Core {

/// The valid values of a managed configuration. Each member has a row in the table of `ManagedKeys.cpp`.
struct ValidatedConfig {
    /// In the order of the policy, including duplicates.
    TextList allowedAppBundleIds;
    std::optional<std::string> organizationId;
    /// Starts with "https://" in any letter case.
    std::optional<std::string> baseDomain;
    std::optional<std::string> apiKey;
    std::optional<std::string> deviceId;

    friend bool operator==(const ValidatedConfig&, const ValidatedConfig&) = default;
};

} // namespace Core
