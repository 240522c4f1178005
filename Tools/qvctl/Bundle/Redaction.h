#pragma once

#include "Platform/PropertyList.h"

#include <boost/json.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

namespace Qvctl::Bundle {

using HashKey = std::array<std::byte, 16>;

/// Returns SipHash-2-4, a keyed hash: without the key, not even trying all texts reveals which one was
/// hashed. Source: Aumasson and Bernstein, "SipHash: a fast short-input PRF", 2012.
std::uint64_t sipHash(const HashKey& key, std::string_view text);

/// Replaces values of this device by their length and a hash. Equal values have equal hashes within one
/// bundle. The key is random and stored nowhere, so hashes of different bundles cannot be compared, and no
/// value can be guessed and confirmed.
class Redaction {
public:
    Redaction();

    /// Returns "[14 bytes, hash 029e2873199a1b00]".
    [[nodiscard]] std::string token(std::string_view value) const;

    /// Describes a value by type, length and hash, and what it contains likewise. Names of keys that the app
    /// does not know are values, too.
    [[nodiscard]] boost::json::object describe(const Platform::PropertyList& value) const;

    /// Makes `redact` replace the strings and numbers in `value`, and the words of at least three characters
    /// in them, such as the host of an address.
    void hide(const Platform::PropertyList& value);
    void hideText(std::string_view value);
    /// Makes `redact` replace the path of the home folder by "~".
    void hideHome(std::string home);

    /// Also replaces what is in double quotes unless it is a managed key or a fixed part of a message.
    [[nodiscard]] std::string redact(std::string_view text) const;
    /// Redacts all strings except those of the members that have fixed values, such as "verdict".
    [[nodiscard]] boost::json::value redactJSON(const boost::json::value& value) const;

private:
    [[nodiscard]] std::string redactWords(std::string_view text) const;

    HashKey m_key{};
    std::string m_home;
    /// In lower case.
    std::set<std::string, std::less<>> m_words;
};

} // namespace Qvctl::Bundle
