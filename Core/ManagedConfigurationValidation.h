#pragma once

#include "Core/ValidatedConfig.h"
#include "Platform/PropertyList.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace Core {

/// One thing that validation dropped or altered, for the people who write configurations.
struct ValidationFinding {
    enum class Kind {
        // The value, or the entry, is dropped.
        wrongType,
        blank,
        elementNotText,
        entryEmpty,
        entryHasForbiddenCharacter,
        entryHasNoDot,
        // The value is taken, though not as it was written.
        whiteSpaceTrimmed,
        numberTakenAsText,
        booleanTakenAsText,
        schemeAdded,
        schemeUpgraded,
        // The value is taken as it was written, but rarely meant so.
        entryRepeated,
        carriesPath,
        quotationMarks,
        // The value is taken, and cannot be an address of the backend.
        schemeUnsupported,
    };

    Kind kind;
    std::string_view key;
    /// The array element or comma-separated piece, counted from 0; absent when the whole value is meant.
    std::optional<std::size_t> index;
};

/// The pieces of `text` between its commas, at least one. Each refers to `text`.
std::vector<std::string_view> splitAtCommas(std::string_view text);

/// The scheme that stands where a normalized base domain has its host: "ftp" in "https://ftp://host". Absent
/// when there is none.
std::optional<std::string_view> unsupportedScheme(std::string_view baseDomain);

/// Turns the managed dictionary into the configuration. Total and pure: nothing fails, nothing is logged.
/// `findings`, when given, receives what was dropped or altered, in the order of the keys.
ValidatedConfig validateManagedConfiguration(const Platform::PropertyList::Dictionary& managed,
                                             std::vector<ValidationFinding>* findings = nullptr);

} // namespace Core
