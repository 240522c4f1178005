#pragma once

#include <boost/url/url.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Core {

/// A name and value of a query; an absent value omits the "=".
struct URLQueryItem {
    std::string name;
    std::optional<std::string> value;
};

/// Parses a URL or relative reference (RFC 3986); absent if `text` is empty or invalid.
std::optional<boost::urls::url> parseURL(std::string_view text);

/// Like `Platform::resolveURLReference()`, for parsed URLs; absent if `reference` or the result is invalid.
std::optional<boost::urls::url> resolveURL(const boost::urls::url& base, std::string_view reference);

/// Replaces the query. Percent-encodes "&", "=" and characters that are invalid in a query, but not "+".
void setQueryItems(boost::urls::url& url, const std::vector<URLQueryItem>& items);

} // namespace Core
