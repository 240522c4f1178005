#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Platform {

/// The components of a URL or a relative reference, without their delimiters. An absent component differs
/// from an empty one.
struct URLParts {
    std::optional<std::string> scheme;
    std::optional<std::string> authority;
    std::string path;
    std::optional<std::string> query;
    std::optional<std::string> fragment;

    friend bool operator==(const URLParts&, const URLParts&) = default;
};

/// Splits a URL or relative reference into components, without validating them. Source: RFC 3986, appendix B.
URLParts splitURL(std::string_view text);

/// Resolves `reference` against `base`, without validating either. The only normalization is the removal of
/// dot segments: percent-encoded characters and empty segments stay as they are. The base may lack a scheme;
/// the result then lacks one too.
///
/// Absent if the result would parse as a different URL, for example a path that starts with "//" without a
/// host before it. Source: RFC 3986, section 5.2.
std::optional<std::string> resolveURLReference(std::string_view base, std::string_view reference);

} // namespace Platform
