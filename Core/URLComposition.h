#pragma once

#include <boost/url/url.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Core {

/// One name and value of a query; without a value the name stands alone.
struct URLQueryItem {
    std::string name;
    std::optional<std::string> value;
};

/// `text` as a URL or a relative reference; absent when it is empty or not of the form of RFC 3986.
std::optional<boost::urls::url> parseURL(std::string_view text);

/// Resolves `reference` against `base` as `Platform::resolveURLReference` does, without decoding or encoding
/// anything; absent when `reference` or the result does not parse.
std::optional<boost::urls::url> resolveURL(const boost::urls::url& base, std::string_view reference);

/// Replaces the query. Of the characters that a query may hold, "&", "=" and "#" are percent-encoded inside
/// names and values; "+" is not.
void setQueryItems(boost::urls::url& url, const std::vector<URLQueryItem>& items);

} // namespace Core
