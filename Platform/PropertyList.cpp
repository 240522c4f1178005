#include "Platform/PropertyList.h"

#include "Platform/Encoding.h"
#include "Platform/FatalError.h"
#include "Platform/NumberText.h"

#include <array>
#include <string_view>

namespace Platform {

namespace {

void appendQuoted(std::string& out, std::string_view text)
{
    out += '"';
    for (const char character : text) {
        if (character == '"' || character == '\\')
            out += '\\';
        out += character;
    }
    out += '"';
}

void appendDescription(std::string& out, const PropertyList& value);

void appendElement(std::string& out, const PropertyList& value)
{
    if (const auto* text = value.text())
        appendQuoted(out, *text);
    else
        appendDescription(out, value);
}

void appendDescription(std::string& out, const PropertyList& value)
{
    if (const auto* text = value.text()) {
        out += *text;
    } else if (const auto* boolean = value.boolean()) {
        out += *boolean ? "true" : "false";
    } else if (value.isNumber()) {
        out += value.numberText();
    } else if (const auto* date = value.date()) {
        out.append("<date ").append(shortestRealText(date->secondsSinceReferenceDate)).append(">");
    } else if (const auto* data = value.data()) {
        out.append("<data ").append(hexadecimalText(*data)).append(">");
    } else if (const auto* array = value.array()) {
        out += '[';
        for (const char* separator = ""; const PropertyList& element : *array) {
            out += std::exchange(separator, ", ");
            appendElement(out, element);
        }
        out += ']';
    } else if (const auto* dictionary = value.dictionary()) {
        out += '{';
        for (const char* separator = ""; const auto& [key, element] : *dictionary) {
            out += std::exchange(separator, ", ");
            appendQuoted(out, key);
            out += ": ";
            appendElement(out, element);
        }
        out += '}';
    } else {
        out += "<null>";
    }
}

} // namespace

bool PropertyList::isNumber() const
{
    return integer() != nullptr || largeInteger() != nullptr || real() != nullptr || boolean() != nullptr;
}

const char* PropertyList::typeName() const
{
    constexpr std::array names{"null",    "text", "integer", "integer", "real",
                               "boolean", "date", "data",    "array",   "dictionary"};
    static_assert(names.size() == std::variant_size_v<decltype(m_value)>);
    return names.at(m_value.index());
}

std::string PropertyList::numberText() const
{
    if (const auto* value = integer())
        return std::to_string(*value);
    if (const auto* value = largeInteger())
        return std::to_string(*value);
    if (const auto* value = boolean())
        return *value ? "1" : "0";
    if (const auto* value = real())
        return realText(*value);
    fatalError("PropertyList::numberText() was called on a value that is not a number");
}

std::string PropertyList::description() const
{
    std::string out;
    appendDescription(out, *this);
    return out;
}

bool operator==(const PropertyList& left, const PropertyList& right)
{
    if (const auto* array = left.array())
        return right.array() != nullptr && *array == *right.array();
    if (const auto* dictionary = left.dictionary())
        return right.dictionary() != nullptr && *dictionary == *right.dictionary();
    return left.m_value == right.m_value;
}

const PropertyList& member(const PropertyList::Dictionary& dictionary, std::string_view key)
{
    static const PropertyList nothing;
    const auto found = dictionary.find(key);
    return found != dictionary.end() ? found->second : nothing;
}

const PropertyList& member(const PropertyList& value, std::string_view key)
{
    static const PropertyList::Dictionary empty;
    const auto* dictionary = value.dictionary();
    return member(dictionary != nullptr ? *dictionary : empty, key);
}

} // namespace Platform
