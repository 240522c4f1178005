#include "Core/URLComposition.h"

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
    // RFC 3986, section 3.4, without what separates the parts.
    constexpr auto allowed = urls::pchars + urls::grammar::lut_chars("/?") - urls::grammar::lut_chars("&=");
    return urls::encode(text, allowed);
}

/// Segments ".." that would lead above the root are dropped, see RFC 3986, section 5.4.2. The library keeps
/// them, and what it makes of a path set to "/" is another one.
urls::url withoutSurplusParents(const urls::url& url)
{
    const std::string_view path = url.encoded_path();
    std::size_t surplusBytes = 0;
    while (path.substr(surplusBytes, 4) == "/../" || path.substr(surplusBytes) == "/..")
        surplusBytes += 3;
    if (surplusBytes == 0)
        return url;
    std::string text(url.buffer());
    const auto start = static_cast<std::size_t>(path.data() - url.buffer().data());
    text.replace(start, surplusBytes, surplusBytes == path.size() ? "/" : "");
    return urls::url(text);
}

} // namespace

std::optional<urls::url> parseURL(std::string_view text)
{
    const auto parsed = urls::parse_uri_reference(text);
    if (text.empty() || !parsed)
        return std::nullopt;
    // The library lets a path follow a port without the "/" that begins one.
    const std::string_view path = parsed->encoded_path();
    if (parsed->has_authority() && !path.empty() && !path.starts_with('/'))
        return std::nullopt;
    return urls::url(*parsed);
}

std::optional<urls::url> resolveURL(const urls::url& base, std::string_view reference)
{
    const auto parsed = parseURL(reference);
    if (!parsed)
        return std::nullopt;
    const bool isMadeAbsolute = !base.has_scheme();
    urls::url absoluteBase = base;
    if (isMadeAbsolute)
        absoluteBase.set_scheme("x");
    urls::url resolved;
    if (urls::resolve(absoluteBase, *parsed, resolved).has_error())
        return std::nullopt;
    if (isMadeAbsolute && !parsed->has_scheme())
        resolved.remove_scheme();
    return withoutSurplusParents(resolved);
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
