#pragma once

#include "Core/ValidatedConfig.h"
#include "Platform/PropertyList.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace Core {

/// A value that validation dropped or changed, or that is probably a mistake.
struct ValidationFinding {
    enum class Kind {
        // The value or list entry is dropped.
        wrongType,
        blank,
        elementNotText,
        entryEmpty,
        entryHasForbiddenCharacter,
        entryHasNoDot,
        // The value is accepted and changed.
        whiteSpaceTrimmed,
        numberTakenAsText,
        booleanTakenAsText,
        schemeAdded,
        schemeUpgraded,
        // The value is accepted unchanged, but is probably a mistake.
        entryRepeated,
        carriesPath,
        quotationMarks,
        // The value is accepted, but no backend can have this address.
        schemeUnsupported,
    };

    Kind kind;
    std::string_view key;
    /// Index of the array element or comma-separated entry; absent if the whole value is affected.
    std::optional<std::size_t> index;
};

/// Splits `text` at its commas into at least one piece. The pieces refer to `text`.
std::vector<std::string_view> splitAtCommas(std::string_view text);

/// Returns the scheme that follows "https://" in a base domain, if any: "ftp" for "https://ftp://host".
std::optional<std::string_view> unsupportedScheme(std::string_view baseDomain);

/// Validates the managed configuration. Never fails and logs nothing. Appends to `findings`, unless null, in
/// the order of the managed keys.
ValidatedConfig validateManagedConfiguration(const Platform::PropertyList::Dictionary& managed,
                                             std::vector<ValidationFinding>* findings = nullptr);

} // namespace Core
