#pragma once

#include "Core/ManagedConfigurationValidation.h"
#include "Platform/PropertyList.h"
#include "Platform/PropertyLists/PropertyListReader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qvctl::Policy {

enum class Severity { error, warning, note };

std::string_view severityName(Severity severity);

/// `LintFinding::key` for a problem that concerns no single key.
inline constexpr const char* wholeFile = "the file";
/// `LintFinding::key` for a problem of the folder of fragments.
inline constexpr const char* fragmentFolder = "the folder";

/// One problem of a policy file, described for the user.
struct LintFinding {
    Severity severity;
    std::string key;
    std::optional<std::size_t> index;
    /// Absent if the format has no lines.
    std::optional<Platform::PropertyLists::TextPosition> position;
    /// A predicate whose subject is the key: "is blank".
    std::string problem;
    /// What the app does about it, as a clause.
    std::string effect;
    /// How to correct it; may be empty.
    std::string fix;
    /// The file or folder that has the problem. Set by `findingsOf`.
    std::filesystem::path file = {};
};

/// Lists every problem of a managed configuration: values that validation drops or changes, values that the
/// API client cannot use, and unknown keys.
std::vector<LintFinding> findProblems(const Platform::PropertyLists::PropertyListDocument& document,
                                      bool isRevealing);

/// The managed key that `key` is probably a misspelling of.
std::optional<std::string_view> suggestedKey(std::string_view key);

/// Whether the value of `key` is a secret. Unknown keys count as secret: they may be passwords or misspelled
/// secret keys.
bool isSecret(std::string_view key);

/// Whether `value` of `key` is masked without --reveal: because the key is secret, or because the value
/// contains a dictionary, whose keys are unknown.
bool isMasked(std::string_view key, const Platform::PropertyList& value);

} // namespace Qvctl::Policy
