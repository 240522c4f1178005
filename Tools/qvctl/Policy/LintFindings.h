#pragma once

#include "Core/ManagedConfigurationValidation.h"
#include "Platform/PropertyList.h"
#include "Platform/PropertyLists/PropertyListReader.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qvctl::Policy {

enum class Severity { error, warning, note };

std::string_view severityName(Severity severity);

/// One finding about a configuration, in words.
struct LintFinding {
    Severity severity;
    std::string key;
    std::optional<std::size_t> index;
    /// Absent where the format has no lines.
    std::optional<Platform::PropertyLists::TextPosition> position;
    /// What is the matter.
    std::string problem;
    /// What the application makes of it.
    std::string effect;
    /// What to write instead; may be empty.
    std::string fix;
};

/// Every problem of a managed dictionary: what validation drops or alters, what the client cannot use, and
/// keys that the application never looks at.
std::vector<LintFinding> findProblems(const Platform::PropertyLists::PropertyListDocument& document,
                                      bool isRevealing);

/// The known key that `key` was probably meant to be.
std::optional<std::string_view> suggestedKey(std::string_view key);

/// Whether the value of `key` is a secret. That of an unknown key may be one: a password, or a misspelt key.
bool isSecret(std::string_view key);

/// Whether `value` under `key` is hidden without --reveal: because of its key, or because it holds a
/// dictionary, whose keys are all unknown.
bool isMasked(std::string_view key, const Platform::PropertyList& value);

} // namespace Qvctl::Policy
