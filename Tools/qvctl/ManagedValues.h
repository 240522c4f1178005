#pragma once

#include "Core/ManagedKeys.h"

#include <string>
#include <vector>

namespace Qvctl {

// The values of a configuration, as the verbs print them.

/// The keys whose values are kept, in the order in which they are printed: lists last.
std::vector<Core::ManagedKey> printedKeys();

/// "api key", "allowed apps".
std::string labelOf(const Core::ManagedKey& key);

/// The member of `status --json` about the value of `key`: "hasApiKey", "allowedAppCount".
std::string statusMemberOf(const Core::ManagedKey& key);

/// `config` for printing: with the mask in place of each secret unless `isRevealing`.
Core::ValidatedConfig maskedConfig(Core::ValidatedConfig config, bool isRevealing);

/// The value of `key` on one line; empty when it has none.
std::string joinedTexts(const Core::ManagedKey& key, const Core::ValidatedConfig& config);

} // namespace Qvctl
