#pragma once

#include "Core/ValidatedConfig.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace Core {

/// A key of the managed configuration: its type, where its value is stored, and its description.
struct ManagedKey {
    enum class Kind {
        /// A string; a number is converted to its decimal form.
        text,
        /// A `text` that becomes an address with the scheme "https".
        address,
        /// Bundle identifiers: a comma-separated string or an array of strings.
        bundleIds,
        /// Any value; only a change matters, and the value is not stored.
        revision,
    };
    using NoMember = std::monostate;
    using TextMember = std::optional<std::string> ValidatedConfig::*;
    using ListMember = TextList ValidatedConfig::*;

    std::string_view name;
    Kind kind;
    std::variant<NoMember, TextMember, ListMember> member = {};
    /// Member name in the stored snapshot, part of its format; empty if the value is not stored.
    std::string_view codingKey = {};
    /// Masked in output, unless the user requests secrets.
    bool isSecret = false;
    /// Lower-case name: "api key". For a list, the name of one entry: "allowed app".
    std::string_view noun = {};
    /// Label in a form.
    std::string_view label = {};
    /// Sentences that state the value's purpose and the effect of its absence.
    std::string_view description = {};
    /// An example value; bundle identifiers are comma-separated.
    std::string_view example = {};

    /// Whether the snapshot stores the value.
    [[nodiscard]] constexpr bool isStored() const { return !std::holds_alternative<NoMember>(member); }
    [[nodiscard]] constexpr bool isList() const { return std::holds_alternative<ListMember>(member); }
};

/// Version of the table. Management consoles compare it to find the newer of two forms.
extern const int managedKeysVersion;

/// Returns all keys, in the order of the fingerprint and the stored snapshot.
std::span<const ManagedKey> managedKeys();

/// Returns null for an unknown key.
const ManagedKey* findManagedKey(std::string_view name);

/// Describes the values that a key of this kind accepts: "a string or a number".
std::string_view acceptedForms(ManagedKey::Kind kind);

/// Returns the value of `key` in `config`: one string, or the entries of a list; empty if absent. Refers to
/// `config`.
std::vector<std::string_view> valuesOf(const ManagedKey& key, const ValidatedConfig& config);

/// Calls `visit(key, value)` for each stored key. `value` is a reference to the member of `config`: a
/// `std::optional<std::string>` or a `TextList`. `Config` is `ValidatedConfig`, possibly constant.
template <typename Config, typename Visit>
void forEachValue(Config& config, Visit&& visit)
{
    for (const ManagedKey& key : managedKeys()) {
        if (const auto* text = std::get_if<ManagedKey::TextMember>(&key.member))
            visit(key, config.**text);
        else if (const auto* list = std::get_if<ManagedKey::ListMember>(&key.member))
            visit(key, config.**list);
    }
}

} // namespace Core
