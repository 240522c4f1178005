#include "Platform/URLReference.h"

namespace Platform {

namespace {

/// Removes and returns the part before the first of `delimiters`.
std::string_view takeUntil(std::string_view& text, std::string_view delimiters)
{
    const std::string_view taken = text.substr(0, text.find_first_of(delimiters));
    text.remove_prefix(taken.size());
    return taken;
}

/// RFC 3986, section 5.3.
std::string joined(const URLParts& parts)
{
    std::string text;
    if (parts.scheme)
        text.append(*parts.scheme).append(":");
    if (parts.authority)
        text.append("//").append(*parts.authority);
    text.append(parts.path);
    if (parts.query)
        text.append("?").append(*parts.query);
    if (parts.fragment)
        text.append("#").append(*parts.fragment);
    return text;
}

/// RFC 3986, section 5.2.3.
std::string mergedPath(const URLParts& base, std::string_view path)
{
    if (base.authority && base.path.empty())
        return std::string("/").append(path);
    return base.path.substr(0, base.path.rfind('/') + 1).append(path);
}

/// RFC 3986, section 5.2.4.
std::string withoutDotSegments(std::string_view input)
{
    std::string output;
    while (!input.empty()) {
        if (input.starts_with("../")) {
            input.remove_prefix(3);
        } else if (input.starts_with("./") || input.starts_with("/./")) {
            input.remove_prefix(2);
        } else if (input == "/.") {
            input = "/";
        } else if (input.starts_with("/../") || input == "/..") {
            input = input == "/.." ? "/" : input.substr(3);
            const auto lastSegment = output.rfind('/');
            output.resize(lastSegment != std::string::npos ? lastSegment : 0);
        } else if (input == "." || input == "..") {
            input = {};
        } else {
            const std::string_view segment = input.substr(0, input.find('/', 1));
            output += segment;
            input.remove_prefix(segment.size());
        }
    }
    return output;
}

/// RFC 3986, section 5.2.2.
URLParts resolved(const URLParts& base, URLParts target)
{
    const bool inheritsAuthority = !target.scheme && !target.authority;
    if (!target.scheme)
        target.scheme = base.scheme;
    if (inheritsAuthority) {
        target.authority = base.authority;
        if (target.path.empty()) {
            target.path = base.path;
            if (!target.query)
                target.query = base.query;
            return target;
        }
        if (!target.path.starts_with('/'))
            target.path = mergedPath(base, target.path);
    }
    target.path = withoutDotSegments(target.path);
    return target;
}

} // namespace

URLParts splitURL(std::string_view text)
{
    URLParts parts;
    const std::size_t first = text.find_first_of(":/?#");
    if (first != 0 && first != std::string_view::npos && text[first] == ':') {
        parts.scheme = text.substr(0, first);
        text.remove_prefix(first + 1);
    }
    if (text.starts_with("//")) {
        text.remove_prefix(2);
        parts.authority = takeUntil(text, "/?#");
    }
    parts.path = takeUntil(text, "?#");
    if (text.starts_with('?')) {
        text.remove_prefix(1);
        parts.query = takeUntil(text, "#");
    }
    if (text.starts_with('#'))
        parts.fragment = text.substr(1);
    return parts;
}

std::optional<std::string> resolveURLReference(std::string_view base, std::string_view reference)
{
    const URLParts target = resolved(splitURL(base), splitURL(reference));
    std::string text = joined(target);
    return splitURL(text) == target ? std::optional(std::move(text)) : std::nullopt;
}

} // namespace Platform
