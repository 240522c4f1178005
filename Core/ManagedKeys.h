#pragma once

#include "Core/ValidatedConfig.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Core {

/// One key of the managed dictionary: what its values may be, where a value is kept, and how it is described.
struct ManagedKey {
    enum class Kind {
        /// A string; a number stands for its decimal form.
        text,
        /// The same, as an address that begins with "https://" in the end.
        address,
        /// Bundle identifiers: a comma-separated string or an array of strings.
        bundleIds,
        /// Anything; only whether it changed matters, and no value is kept.
        revision,
    };
    using NoMember = std::monostate;
    using TextMember = std::optional<std::string> ValidatedConfig::*;
    using ListMember = std::vector<std::string> ValidatedConfig::*;

    std::string_view name;
    Kind kind;
    std::variant<NoMember, TextMember, ListMember> member = {};
    /// The name of the value in the stored snapshot; never changes. Empty when no value is kept.
    std::string_view codingKey = {};
    /// Shown only on request.
    bool isSecret = false;
    /// In lower case: "api key". For a list one of its entries: "allowed app".
    std::string_view noun = {};
    /// The label of the field in a form.
    std::string_view label = {};
    /// Whole sentences: what the value is for, and what is missing without it.
    std::string_view description = {};
    /// As a string; bundle identifiers with commas between them.
    std::string_view example = {};

    /// Whether a value is kept in the snapshot.
    [[nodiscard]] constexpr bool isCarried() const { return !std::holds_alternative<NoMember>(member); }
    [[nodiscard]] constexpr bool isList() const { return std::holds_alternative<ListMember>(member); }
};

/// The version of the table. Consoles compare it to find out which of two forms is newer.
extern const int managedKeysVersion;

/// Every key, in the order in which the fingerprint and the stored snapshot have them.
std::span<const ManagedKey> managedKeys();

/// Null for a key that the application does not know.
const ManagedKey* findManagedKey(std::string_view name);

/// What a policy may hold under a key of that kind: "a text or a number".
std::string_view acceptedForms(ManagedKey::Kind kind);

/// The value of `key` in `config`: nothing when it is absent or not kept, one string, or the entries of a
/// list. Refers to `config`.
std::span<const std::string> textsOf(const ManagedKey& key, const ValidatedConfig& config);

/// Calls `set(key, value)` for each key whose value is kept. `value` refers to the member of `config`, a
/// `std::optional<std::string>` or a `std::vector<std::string>`.
template <typename Set>
void forEachValue(ValidatedConfig& config, Set&& set)
{
    for (const ManagedKey& key : managedKeys()) {
        if (const auto* text = std::get_if<ManagedKey::TextMember>(&key.member))
            set(key, config.**text);
        else if (const auto* list = std::get_if<ManagedKey::ListMember>(&key.member))
            set(key, config.**list);
    }
}

} // namespace Core
