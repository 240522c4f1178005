#include "Platform/PropertyLists/JSONSyntax.h"

#include "Platform/ASCII.h"
#include "Platform/PropertyLists/PropertyListFormats.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

namespace Platform::PropertyLists {

namespace {

/// The state of the document at the position of an error.
struct Context {
    enum class Last { openingBracket, key, colon, comma, value };

    /// The open brackets, outermost first.
    std::string open;
    Last last = Last::openingBracket;
    std::size_t lastOffset = 0;
    /// The last string, without its closing quotation mark.
    std::string_view lastString;
    // Whether the position is inside a string, or inside or right after an invalid word.
    bool isInString = false;
    bool isInWord = false;

    [[nodiscard]] bool isInObject() const { return open.ends_with('{'); }
    [[nodiscard]] bool isKeyNext() const
    {
        return isInObject() && (last == Last::openingBracket || last == Last::comma);
    }
};

/// Returns the offset of the quotation mark that closes the string at `start`, or the end of the text.
std::size_t closingMark(std::string_view text, std::size_t start)
{
    std::size_t offset = start + 1;
    while (offset < text.size() && text[offset] != '"')
        offset += text[offset] == '\\' ? 2 : 1;
    return std::min(offset, text.size());
}

/// Updates the context for the token at `offset` and returns the end of the token.
std::size_t scanToken(Context& context, std::string_view text, std::size_t offset)
{
    using Last = Context::Last;
    const bool isKey = context.isKeyNext();
    context.lastOffset = offset;
    switch (text[offset]) {
    case '{':
    case '[':
        context.open += text[offset];
        context.last = Last::openingBracket;
        return offset + 1;
    case '}':
    case ']':
        if (!context.open.empty())
            context.open.pop_back();
        context.last = Last::value;
        return offset + 1;
    case ':':
        context.last = Last::colon;
        return offset + 1;
    case ',':
        context.last = Last::comma;
        return offset + 1;
    case '"': {
        const std::size_t end = closingMark(text, offset);
        context.lastString = text.substr(offset, end - offset);
        context.last = isKey ? Last::key : Last::value;
        return end + 1;
    }
    default:
        context.last = Last::value;
        return std::min(text.find_first_of(" \t\r\n,:]}[{\"", offset), text.size());
    }
}

/// Returns whether `word`, the valid start of a word, is complete.
bool isComplete(std::string_view word)
{
    return word == "true" || word == "false" || word == "null" || isASCIIDigit(word.back());
}

Context contextAt(std::string_view text, std::size_t end)
{
    Context context;
    std::size_t offset = text.find_first_not_of(textBlanks);
    while (offset < end) {
        const std::size_t start = offset;
        offset = scanToken(context, text, start);
        const bool isString = text[start] == '"';
        const bool isWord = std::string_view("{}[]:,\"").find(text[start]) == std::string_view::npos;
        context.isInString = isString && end < offset;
        context.isInWord =
            isWord && (end < offset || (end == offset && !isComplete(text.substr(start, end - start))));
        if (context.isInString || context.isInWord)
            break;
        offset = std::min(text.find_first_not_of(textBlanks, offset), text.size());
    }
    return context;
}

bool isTypographicMark(char32_t codePoint)
{
    constexpr std::array<char32_t, 16> marks{0xAB,   0xBB,   0x2018, 0x2019, 0x201A, 0x201B, 0x201C, 0x201D,
                                             0x201E, 0x201F, 0x2032, 0x2033, 0x2039, 0x203A, 0xFF02, 0xFF07};
    return std::ranges::find(marks, codePoint) != marks.end();
}

bool holdsTypographicMark(std::string_view text)
{
    while (!text.empty()) {
        const DecodedCharacter character = characterOrByte(text);
        if (isTypographicMark(character.codePoint))
            return true;
        text.remove_prefix(character.length);
    }
    return false;
}

/// Adds a hint to `reason` if the previous string may have been meant to end at a typographic quotation mark.
std::string withHint(std::string reason, const Context& context)
{
    if (holdsTypographicMark(context.lastString))
        reason +=
            R"(; the string before it contains a typographic quotation mark, which may have to be a straight one ("))";
    return reason;
}

/// Returns the offset of an escaped high surrogate that ends at `offset` or one byte before it.
std::optional<std::size_t> highSurrogateBefore(std::string_view text, std::size_t offset)
{
    constexpr std::size_t escapeBytes = 6;
    for (const std::size_t end : {offset, offset - 1}) {
        if (end < escapeBytes || end > text.size())
            continue;
        const std::string_view escape = text.substr(end - escapeBytes, escapeBytes);
        if (escape.starts_with("\\u") && std::string_view("dD").find(escape[2]) != std::string_view::npos &&
            std::string_view("89abAB").find(escape[3]) != std::string_view::npos)
            return end - escapeBytes;
    }
    return std::nullopt;
}

JSONSyntaxError errorInString(std::string_view text, std::size_t offset, const Context& context)
{
    const auto byte = static_cast<unsigned char>(text[offset]);
    if (byte == '\n' || byte == '\r')
        return {withHint("a string does not end on its line; close it with a quotation mark, or write the "
                         "line break as \\n",
                         context),
                offset};
    if (const auto surrogate = highSurrogateBefore(text, offset))
        return {"a \\u escape is half of a surrogate pair; write both halves", *surrogate};
    if (byte < ' ')
        return {"a control character in a string is not escaped; write it as \\u and four digits", offset};
    return {R"(an unknown escape in a string; write a backslash as "\\")", offset};
}

std::string reasonOfWord(char first)
{
    const bool isNumeric = std::string_view("0123456789+-.").find(first) != std::string_view::npos;
    return isNumeric ? "a malformed number; write a string in quotation marks, or a number without leading "
                       "zeros or "
                       "plus sign"
                     : "an unknown word; write a string in quotation marks, or true, false or null";
}

std::string reasonBetweenTokens(std::string_view rest, const Context& context)
{
    using Last = Context::Last;
    if (isTypographicMark(characterOrByte(rest).codePoint))
        return R"(a typographic quotation mark; write a straight one ("))";
    if (rest.front() == '\'')
        return R"(a single quotation mark; write a double one ("))";
    if (rest.starts_with("//") || rest.starts_with("/*") || rest.front() == '#')
        return "a comment, which JSON does not allow; remove it";
    if (context.isKeyNext())
        return "expected a key in quotation marks";
    if (context.last == Last::key)
        return withHint(R"(expected ":" after a key)", context);
    if (context.last == Last::value)
        return withHint(context.isInObject() ? R"(expected "," or "}" after a value)"
                                             : R"(expected "," or "]" after a value)",
                        context);
    if (std::string_view(",:]}").find(rest.front()) != std::string_view::npos)
        return "a value is missing";
    return reasonOfWord(rest.front());
}

} // namespace

JSONSyntaxError explainJSONSyntax(std::string_view text, std::size_t offset)
{
    const Context context = contextAt(text, offset);
    if (offset >= text.size())
        return {context.isInString ? withHint("ends inside a string", context)
                                   : withHint("ends before the object is complete", context),
                offset};
    if (context.isInString)
        return errorInString(text, offset, context);
    if (context.isInWord)
        return {reasonOfWord(text[context.lastOffset]), context.lastOffset};
    const bool isClosing = text[offset] == '}' || text[offset] == ']';
    if (isClosing && context.last == Context::Last::comma)
        return {"a comma before a closing bracket; remove it", context.lastOffset};
    return {reasonBetweenTokens(text.substr(offset), context), offset};
}

} // namespace Platform::PropertyLists
