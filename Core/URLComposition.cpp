#include "Core/URLComposition.h"

#include "Platform/URLReference.h"

#include <boost/url/encode.hpp>
#include <boost/url/grammar/charset.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/rfc/pchars.hpp>

#include <utility>

namespace Core {

namespace {

namespace urls = boost::urls;

std::string encodedQueryPart(std::string_view text)
{
    // RFC 3986, section 3.4, without the separators.
    constexpr auto allowed = urls::pchars + urls::grammar::lut_chars("/?") - urls::grammar::lut_chars("&=");
    return urls::encode(text, allowed);
}

} // namespace

std::optional<urls::url> parseURL(std::string_view text)
{
    const auto parsed = urls::parse_uri_reference(text);
    if (text.empty() || !parsed)
        return std::nullopt;
    // The library accepts a path after a port even without a leading "/".
    const std::string_view path = parsed->encoded_path();
    if (parsed->has_authority() && !path.empty() && !path.starts_with('/'))
        return std::nullopt;
    return urls::url(*parsed);
}

std::optional<urls::url> resolveURL(const urls::url& base, std::string_view reference)
{
    if (!parseURL(reference))
        return std::nullopt;
    const auto resolved = Platform::resolveURLReference(base.buffer(), reference);
    return resolved ? parseURL(*resolved) : std::nullopt;
}

void setQueryItems(urls::url& url, const std::vector<URLQueryItem>& items)
{
    std::string query;
    for (const char* separator = ""; const URLQueryItem& item : items) {
        query.append(std::exchange(separator, "&")).append(encodedQueryPart(item.name));
        if (item.value)
            query.append("=").append(encodedQueryPart(*item.value));
    }
    url.set_encoded_query(query);
}

} // namespace Core
