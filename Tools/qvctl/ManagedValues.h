#pragma once

#include "Core/ManagedKeys.h"

#include <string>
#include <vector>

namespace Qvctl {

// How the commands print the values of a configuration.

/// The keys that the snapshot holds, in printing order: lists last.
std::vector<Core::ManagedKey> printedKeys();

/// "api key", "allowed apps".
std::string labelOf(const Core::ManagedKey& key);

/// The member of `status --json` for `key`: "hasApiKey", "allowedAppCount".
std::string statusMemberOf(const Core::ManagedKey& key);

/// Returns `config` with each secret replaced by the mask unless `isRevealing`.
Core::ValidatedConfig maskedConfig(Core::ValidatedConfig config, bool isRevealing);

/// The value of `key` on one line; empty if it has none.
std::string joinedValues(const Core::ManagedKey& key, const Core::ValidatedConfig& config);

/// Whether the values of `key` differ.
bool isDifferent(const Core::ManagedKey& key, const Core::ValidatedConfig& left,
                 const Core::ValidatedConfig& right);

/// The names of the keys whose values differ, separated by commas; empty if none do.
std::string differingKeys(const Core::ValidatedConfig& left, const Core::ValidatedConfig& right);

} // namespace Qvctl
