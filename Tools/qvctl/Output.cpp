#include "Tools/qvctl/Output.h"

#include "Core/JSON.h"
#include "Platform/Encoding.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <iterator>
#include <unistd.h>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;

bool isColourWanted()
{
    const char* refusal = std::getenv("NO_COLOR");
    return ::isatty(STDOUT_FILENO) == 1 && (refusal == nullptr || *refusal == '\0');
}

const char* colourCode(Tone tone)
{
    switch (tone) {
    case Tone::good:
        return "\x1b[32m";
    case Tone::bad:
        return "\x1b[31m";
    case Tone::warning:
        return "\x1b[33m";
    case Tone::faint:
        return "\x1b[2m";
    case Tone::plain:
        break;
    }
    return "";
}

/// `text` with U+FFFD for each byte that makes it no UTF-8: names of files may hold any.
std::string validUTF8(std::string text)
{
    if (Platform::isUTF8(text))
        return text;
    constexpr char32_t replacement = 0xfffd;
    std::string out;
    for (std::string_view rest = text; !rest.empty();) {
        const auto character = Platform::decodeUTF8(rest);
        Platform::appendUTF8(out, character ? character->codePoint : replacement);
        rest.remove_prefix(character ? character->length : 1);
    }
    return out;
}

std::string compactJSON(const json::value& value)
{
    const Platform::Data bytes = Core::JSONEncoder().encode(value);
    return validUTF8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void appendPretty(std::string& out, const json::value& value, std::size_t indentation)
{
    constexpr std::size_t longestLine = 80;
    std::string compact = compactJSON(value);
    if (!value.is_structured() || indentation + compact.size() <= longestLine) {
        out += compact;
        return;
    }
    const std::string lineStart = "\n" + std::string(indentation + 2, ' ');
    const char* separator = "";
    const auto beginElement = [&] { out.append(std::exchange(separator, ",")).append(lineStart); };
    out += value.is_object() ? '{' : '[';
    if (const auto* object = value.if_object()) {
        for (const auto& [key, member] : *object) {
            beginElement();
            out.append(compactJSON(key)).append(": ");
            appendPretty(out, member, indentation + 2);
        }
    } else {
        for (const auto& element : value.get_array()) {
            beginElement();
            appendPretty(out, element, indentation + 2);
        }
    }
    out.append("\n").append(indentation, ' ') += value.is_object() ? '}' : ']';
}

} // namespace

std::string prettyJSON(const json::value& value)
{
    std::string text;
    appendPretty(text, value, 0);
    return text;
}

void printJSON(json::object object)
{
    json::object versioned{{"version", jsonFormatVersion}};
    for (auto& member : object)
        versioned.emplace(member.key(), std::move(member.value()));
    fmt::print("{}\n", compactJSON(versioned));
}

json::value jsonValue(const Platform::PropertyList& value)
{
    if (const auto* text = value.text())
        return json::string(*text);
    if (const auto* boolean = value.boolean())
        return *boolean;
    if (const auto* integer = value.integer())
        return *integer;
    if (const auto* integer = value.largeInteger())
        return *integer;
    if (const auto* real = value.real(); real != nullptr && std::isfinite(*real))
        return *real;
    if (const auto* date = value.date())
        return json::string(date->utcText());
    if (const auto* array = value.array()) {
        json::array elements;
        for (const auto& element : *array)
            elements.push_back(jsonValue(element));
        return elements;
    }
    if (const auto* dictionary = value.dictionary()) {
        json::object members;
        for (const auto& [key, member] : *dictionary)
            members.emplace(key, jsonValue(member));
        return members;
    }
    if (value.isNull())
        return nullptr;
    return json::string(value.description());
}

std::string printable(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        const auto [codePoint, length] = Platform::characterOrByte(text);
        if (Platform::isControlCharacter(codePoint))
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned>(codePoint));
        else
            out += text.substr(0, length);
        text.remove_prefix(length);
    }
    return out;
}

std::string displayText(const Platform::PropertyList& value)
{
    if (value.text() != nullptr)
        return fmt::format("\"{}\"", printable(*value.text()));
    if (const auto* boolean = value.boolean())
        return *boolean ? "true" : "false";
    if (const auto* date = value.date())
        return date->utcText();
    return printable(value.description());
}

std::string toned(Tone tone, std::string_view text)
{
    static const bool isColoured = isColourWanted();
    if (!isColoured || tone == Tone::plain)
        return std::string(text);
    return fmt::format("{}{}\x1b[0m", colourCode(tone), text);
}

void printRow(std::string_view label, std::string_view text)
{
    fmt::print("{:<16}{}\n", label, text);
}

} // namespace Qvctl
