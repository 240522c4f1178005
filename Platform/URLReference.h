#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Platform {

/// The components of a URL or a relative reference without their delimiters. An absent one differs from an
/// empty one.
struct URLParts {
    std::optional<std::string> scheme;
    std::optional<std::string> authority;
    std::string path;
    std::optional<std::string> query;
    std::optional<std::string> fragment;

    friend bool operator==(const URLParts&, const URLParts&) = default;
};

/// Splits `text` by RFC 3986, appendix B. Does not check the form of any component.
URLParts splitURL(std::string_view text);

/// Resolves `reference` against `base` by RFC 3986, section 5.2. Removes dot segments and changes nothing
/// else: escaped characters stay escaped, in their own letter case, and empty segments stay.
///
/// A base without a scheme gives a result without one. Absent when the result would read as another URL, such
/// as a path that begins with "//" where no host precedes it. Neither argument is checked for its form.
std::optional<std::string> resolveURLReference(std::string_view base, std::string_view reference);

} // namespace Platform
