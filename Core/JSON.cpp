#include "Core/JSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace Core {

namespace {

namespace json = boost::json;

void appendText(std::string& out, json::string_view text)
{
    const bool isPlain = std::none_of(text.begin(), text.end(), [](char character) {
        return character == '"' || character == '\\' || character == '\x7f' ||
               static_cast<unsigned char>(character) < ' ';
    });
    // The library's writer costs more to make than most texts to write.
    if (isPlain)
        out.append("\"").append(text.data(), text.size()).append("\"");
    else
        out += json::serialize(text);
}

void append(std::string& out, const json::value& value)
{
    if (const auto* array = value.if_array()) {
        out += '[';
        for (const char* separator = ""; const json::value& element : *array) {
            out += std::exchange(separator, ",");
            append(out, element);
        }
        out += ']';
    } else if (const auto* object = value.if_object()) {
        out += '{';
        for (const char* separator = ""; const auto& member : *object) {
            out += std::exchange(separator, ",");
            appendText(out, member.key());
            out += ':';
            append(out, member.value());
        }
        out += '}';
    } else if (const auto* number = value.if_double()) {
        if (!std::isfinite(*number))
            throw EncodingError("A number that is not finite cannot be written as JSON.");
        fmt::format_to(std::back_inserter(out), "{}", *number);
    } else if (const auto* text = value.if_string()) {
        appendText(out, *text);
    } else if (const auto* integer = value.if_int64()) {
        fmt::format_to(std::back_inserter(out), "{}", *integer);
    } else {
        out += json::serialize(value);
    }
}

[[noreturn]] void throwMismatch(std::string_view key, std::string_view expected, const json::value& found)
{
    const auto kind =
        found.is_null() ? DecodingError::Kind::valueNotFound : DecodingError::Kind::typeMismatch;
    throw DecodingError(kind, fmt::format("The value of \"{}\" is no {}.", key, expected));
}

std::string copied(const json::string& text)
{
    return {text.data(), text.size()};
}

} // namespace

Platform::Data JSONEncoder::encode(const json::value& value) const
{
    std::string text;
    append(text, value);
    const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
    return {bytes, bytes + text.size()};
}

json::value JSONDecoder::decode(const Platform::Data& bytes, json::storage_ptr storage) const
{
    const json::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    json::error_code error;
    json::value value = json::parse(text, error, std::move(storage));
    if (error)
        throw DecodingError(DecodingError::Kind::dataCorrupted,
                            fmt::format("The data is not valid JSON: {}.", error.message()));
    return value;
}

KeyedDecoder::KeyedDecoder(const json::value& value)
    : m_object(value.is_object()
                   ? value.get_object()
                   : throw DecodingError(DecodingError::Kind::typeMismatch, "The data holds no JSON object."))
{}

const json::value& KeyedDecoder::required(std::string_view key) const
{
    const auto* value = m_object.if_contains(key);
    if (value == nullptr)
        throw DecodingError(DecodingError::Kind::keyNotFound, fmt::format("The key \"{}\" is missing.", key));
    return *value;
}

std::int64_t KeyedDecoder::integer(std::string_view key) const
{
    const json::value& value = required(key);
    json::error_code error;
    // Takes a real too when it stands for exactly one integer.
    const auto integer = value.is_number() ? value.to_number<std::int64_t>(error) : 0;
    if (!value.is_number() || error)
        throwMismatch(key, "64-bit integer", value);
    return integer;
}

double KeyedDecoder::number(std::string_view key) const
{
    const json::value& value = required(key);
    if (!value.is_number())
        throwMismatch(key, "number", value);
    return value.to_number<double>();
}

std::vector<std::string> KeyedDecoder::texts(std::string_view key) const
{
    const json::value& value = required(key);
    const auto* array = value.if_array();
    if (array == nullptr)
        throwMismatch(key, "array of strings", value);
    std::vector<std::string> texts;
    texts.reserve(array->size());
    for (const json::value& element : *array) {
        const auto* text = element.if_string();
        if (text == nullptr)
            throwMismatch(key, "array of strings", value);
        texts.push_back(copied(*text));
    }
    return texts;
}

std::optional<std::string> KeyedDecoder::optionalText(std::string_view key) const
{
    const auto* value = m_object.if_contains(key);
    if (value == nullptr || value->is_null())
        return std::nullopt;
    const auto* text = value->if_string();
    if (text == nullptr)
        throwMismatch(key, "string", *value);
    return copied(*text);
}

} // namespace Core
