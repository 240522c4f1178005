#pragma once

#include <span>
#include <string_view>

namespace Core {

/// One key of the managed dictionary, for everybody who describes keys to people or programs. What becomes of
/// a value is up to `validateManagedConfiguration`.
struct ManagedKey {
    enum class Kind {
        /// A text; a number stands for its decimal text.
        text,
        /// The same, as an address that begins with "https://" in the end.
        address,
        /// Bundle identifiers: a text with commas between them, or an array of texts.
        bundleIds,
        /// Anything; only whether it changed matters.
        revision,
    };

    std::string_view name;
    Kind kind;
    /// Never to be shown unasked.
    bool isSecret;
    /// For the field of a form.
    std::string_view label;
    /// Whole sentences: what the value is for, and what is missing without it.
    std::string_view description;
    /// As a text; bundle identifiers with commas between them.
    std::string_view example;
};

/// Every key, in the order in which the fingerprint of a configuration takes them.
std::span<const ManagedKey> managedKeys();

/// Null for a key that the application does not know.
const ManagedKey* findManagedKey(std::string_view name);

/// What may be written under a key of that kind: "a text or a number".
std::string_view acceptedForms(ManagedKey::Kind kind);

} // namespace Core
