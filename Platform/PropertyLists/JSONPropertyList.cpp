#include "Platform/NumberText.h"
#include "Platform/PropertyLists/JSONSyntax.h"
#include "Platform/PropertyLists/PropertyListFormats.h"

#include <boost/json/basic_parser_impl.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace Platform::PropertyLists {

namespace {

namespace json = boost::json;

/// Builds the values from the parser's events. Its exceptions pass through the parser.
class JSONHandler {
public:
    static constexpr std::size_t max_array_size = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t max_object_size = max_array_size;
    static constexpr std::size_t max_string_size = max_array_size;
    static constexpr std::size_t max_key_size = max_array_size;

    explicit JSONHandler(TextDocument& document) : m_document(document) {}

    /// Sets the offset of the token that causes the next events.
    void setTokenOffset(std::size_t offset) { m_token = offset; }
    PropertyList takeRoot() { return std::move(m_root); }

    // The parser's handler interface. Every event returns true or throws.
    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_array_begin(json::error_code&) { return begin(false); }
    bool on_array_end(std::size_t, json::error_code&) { return end(); }
    bool on_object_begin(json::error_code&) { return begin(true); }
    bool on_object_end(std::size_t, json::error_code&) { return end(); }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) { return collect(part); }
    bool on_string(json::string_view last, std::size_t, json::error_code&) { return add(collected(last)); }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) { return collect(part); }
    bool on_key(json::string_view last, std::size_t, json::error_code&) { return key(collected(last)); }
    bool on_number_part(json::string_view part, json::error_code&) { return collect(part); }
    bool on_int64(std::int64_t value, json::string_view, json::error_code&) { return addInteger(value); }
    bool on_uint64(std::uint64_t value, json::string_view, json::error_code&) { return addInteger(value); }
    bool on_double(double, json::string_view last, json::error_code&) { return real(collected(last)); }
    bool on_bool(bool value, json::error_code&) { return add(value); }
    bool on_null(json::error_code&) { return add({}); }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

private:
    struct Frame {
        bool isDictionary = false;
        PropertyList::Array array;
        TextDictionary dictionary;
        // The member being read.
        std::string key;
        std::size_t keyOffset = 0;
        PropertyList* slot = nullptr;
    };

    bool collect(json::string_view part);
    std::string collected(json::string_view last);
    bool key(std::string name);
    bool real(const std::string& digits);
    bool addInteger(PropertyList value);
    bool add(PropertyList value);
    bool begin(bool isDictionary);
    bool end();
    void enterValue();
    void notePlace();
    void place(PropertyList value);

    TextDocument& m_document;
    PropertyList m_root;
    std::vector<Frame> m_frames;
    std::string m_collected;
    std::size_t m_token = 0;
};

bool JSONHandler::collect(json::string_view part)
{
    m_collected.append(part.data(), part.size());
    return true;
}

std::string JSONHandler::collected(json::string_view last)
{
    collect(last);
    return std::exchange(m_collected, {});
}

bool JSONHandler::key(std::string name)
{
    Frame& frame = m_frames.back();
    frame.keyOffset = m_token;
    frame.key = name;
    frame.slot = &frame.dictionary.insert(std::move(name), m_token, m_document);
    return true;
}

// The parser's own conversion is sometimes off by one unit in the last place.
bool JSONHandler::real(const std::string& digits)
{
    const auto value = parseDecimal(digits);
    if (!value)
        m_document.fail("a number is out of range", m_token);
    return add(*value);
}

bool JSONHandler::addInteger(PropertyList value)
{
    m_collected.clear();
    return add(std::move(value));
}

bool JSONHandler::add(PropertyList value)
{
    enterValue();
    place(std::move(value));
    return true;
}

bool JSONHandler::begin(bool isDictionary)
{
    enterValue();
    if (m_frames.size() == maximumPropertyListDepth)
        m_document.fail(tooDeepReason(), m_token);
    m_frames.emplace_back().isDictionary = isDictionary;
    return true;
}

bool JSONHandler::end()
{
    Frame frame = std::move(m_frames.back());
    m_frames.pop_back();
    place(frame.isDictionary ? PropertyList(frame.dictionary.take()) : PropertyList(std::move(frame.array)));
    return true;
}

void JSONHandler::enterValue()
{
    m_document.countValue(m_token);
    if (m_frames.size() == 1)
        m_document.notePlace(m_frames.front().key, m_frames.front().keyOffset, m_token);
    else if (m_frames.size() == 2 && !m_frames.back().isDictionary)
        m_document.notePlace(fmt::format("{}/{}", m_frames.front().key, m_frames.back().array.size()),
                             std::nullopt, m_token);
}

void JSONHandler::place(PropertyList value)
{
    if (m_frames.empty())
        m_root = std::move(value);
    else if (m_frames.back().isDictionary)
        *m_frames.back().slot = std::move(value);
    else
        m_frames.back().array.push_back(std::move(value));
}

/// Returns the offset of the token after the one at `start`. A token is a string, an opening bracket or a
/// word; malformed tokens also have an end.
std::size_t nextToken(std::string_view text, std::size_t start)
{
    constexpr std::string_view betweenTokens = " \t\r\n,:]}";
    constexpr std::string_view endOfWord = " \t\r\n,:]}[{\"";
    std::size_t end = start + 1;
    if (text[start] == '"') {
        while (end < text.size() && text[end] != '"')
            end += text[end] == '\\' ? 2 : 1;
        ++end;
    } else if (text[start] != '{' && text[start] != '[') {
        end = text.find_first_of(endOfWord, end);
    }
    return std::min(text.find_first_not_of(betweenTokens, end), text.size());
}

JSONSyntaxError explain(json::error_code failure, std::string_view text, std::size_t offset)
{
    // The parser stops at the start of an escape, within it or after it, depending on how much text follows.
    const auto escape = [&] { return std::min(text.rfind("\\u", offset), offset); };
    if (failure == json::error::expected_hex_digit)
        return {"a \\u escape without four hexadecimal digits", escape()};
    if (failure == json::error::illegal_leading_surrogate ||
        failure == json::error::illegal_trailing_surrogate || failure == json::error::expected_utf16_escape)
        return {"a \\u escape is half of a surrogate pair; write both halves", escape()};
    if (failure == json::error::exponent_overflow)
        return {"a number is out of range", text.find_last_not_of("+-.0123456789Ee", offset) + 1};
    return explainJSONSyntax(text, failure == json::error::incomplete ? text.size() : offset);
}

} // namespace

PropertyListDocument readJSONPropertyList(std::string_view text, WithPlaces withPlaces)
{
    TextDocument document(text, withPlaces);
    json::parse_options options;
    // The handler enforces the limit with a better message.
    options.max_depth = maximumPropertyListDepth + 1;
    json::basic_parser<JSONHandler> parser(options, document);

    // Passing one token at a time makes the parser report each event while the token's offset is known.
    std::size_t offset = text.find_first_not_of(textBlanks);
    json::error_code failure;
    while (offset < text.size() && !parser.done() && !failure) {
        const std::size_t length = nextToken(text, offset) - offset;
        parser.handler().setTokenOffset(offset);
        offset += parser.write_some(true, text.data() + offset, length, failure);
    }
    if (!failure && !parser.done())
        parser.write_some(false, "", 0, failure);
    if (failure) {
        const JSONSyntaxError error = explain(failure, text, offset);
        document.fail(error.reason, error.offset);
    }
    if (const std::size_t rest = text.find_first_not_of(textBlanks, offset); rest != std::string_view::npos)
        document.fail("has unexpected text after the end of the object; remove it", rest);
    return {parser.handler().takeRoot(), PropertyListFormat::json, document.takePlaces()};
}

} // namespace Platform::PropertyLists
