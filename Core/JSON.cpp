#include "Core/JSON.h"

#include <boost/json/basic_parser_impl.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
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
    // Constructing the library's serializer costs more than writing a typical string.
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
            throw EncodingError("JSON cannot represent a number that is not finite.");
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
    throw DecodingError(kind, fmt::format("The value of \"{}\" is not {}.", key, expected));
}

/// A parser handler that converts real numbers exactly; the library's own conversion may round wrongly.
class ExactHandler {
public:
    static constexpr std::size_t max_array_size = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t max_object_size = max_array_size;
    static constexpr std::size_t max_string_size = max_array_size;
    static constexpr std::size_t max_key_size = max_array_size;

    explicit ExactHandler(json::storage_ptr storage) { m_stack.reset(std::move(storage)); }

    json::value takeValue() { return m_stack.release(); }

    // Callbacks of the parser, which prescribes the names and signatures.
    bool on_document_begin(json::error_code&) { return true; }
    bool on_document_end(json::error_code&) { return true; }
    bool on_array_begin(json::error_code&) { return true; }
    bool on_array_end(std::size_t count, json::error_code&) { return m_stack.push_array(count), true; }
    bool on_object_begin(json::error_code&) { return true; }
    bool on_object_end(std::size_t count, json::error_code&) { return m_stack.push_object(count), true; }
    bool on_string_part(json::string_view part, std::size_t, json::error_code&) { return collect(part); }
    bool on_string(json::string_view last, std::size_t, json::error_code&)
    {
        return m_stack.push_string(last), true;
    }
    bool on_key_part(json::string_view part, std::size_t, json::error_code&) { return collect(part); }
    bool on_key(json::string_view last, std::size_t, json::error_code&)
    {
        return m_stack.push_key(last), true;
    }
    bool on_number_part(json::string_view, json::error_code&) { return true; }
    bool on_int64(std::int64_t value, json::string_view, json::error_code&)
    {
        return m_stack.push_int64(value), true;
    }
    bool on_uint64(std::uint64_t value, json::string_view, json::error_code&)
    {
        return m_stack.push_uint64(value), true;
    }
    bool on_double(double value, json::string_view digits, json::error_code&)
    {
        // If the number is out of range, `value` keeps the library's result.
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return m_stack.push_double(value), true;
    }
    bool on_bool(bool value, json::error_code&) { return m_stack.push_bool(value), true; }
    bool on_null(json::error_code&) { return m_stack.push_null(), true; }
    bool on_comment_part(json::string_view, json::error_code&) { return true; }
    bool on_comment(json::string_view, json::error_code&) { return true; }

private:
    bool collect(json::string_view part) { return m_stack.push_chars(part), true; }

    json::value_stack m_stack;
};

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
    json::basic_parser<ExactHandler> parser(json::parse_options(), std::move(storage));
    const std::size_t readBytes = parser.write_some(false, text.data(), text.size(), error);
    if (!error && readBytes < text.size())
        error = json::error::extra_data;
    if (error)
        throw DecodingError(DecodingError::Kind::dataCorrupted,
                            fmt::format("The data is not valid JSON: {}.", error.message()));
    return parser.handler().takeValue();
}

KeyedDecoder::KeyedDecoder(const json::value& value)
    : m_object(value.is_object()
                   ? value.get_object()
                   : throw DecodingError(DecodingError::Kind::typeMismatch, "The data is not a JSON object."))
{}

const json::value& KeyedDecoder::member(std::string_view key) const
{
    const auto* value = m_object.if_contains(key);
    if (value == nullptr)
        throw DecodingError(DecodingError::Kind::keyNotFound, fmt::format("The key \"{}\" is missing.", key));
    return *value;
}

std::int64_t KeyedDecoder::integer(std::string_view key) const
{
    const json::value& value = member(key);
    json::error_code error;
    // Also converts a real number without a fraction.
    const auto integer = value.is_number() ? value.to_number<std::int64_t>(error) : 0;
    if (!value.is_number() || error)
        throwMismatch(key, "a 64-bit integer", value);
    return integer;
}

double KeyedDecoder::number(std::string_view key) const
{
    const json::value& value = member(key);
    const double number = value.is_number() ? value.to_number<double>() : 0;
    if (!value.is_number() || !std::isfinite(number))
        throwMismatch(key, "a number in range", value);
    return number;
}

std::vector<std::string> KeyedDecoder::strings(std::string_view key) const
{
    const json::value& value = member(key);
    const auto* array = value.if_array();
    if (array == nullptr)
        throwMismatch(key, "an array of strings", value);
    std::vector<std::string> strings;
    strings.reserve(array->size());
    for (const json::value& element : *array) {
        const auto* text = element.if_string();
        if (text == nullptr)
            throwMismatch(key, "an array of strings", value);
        strings.push_back(copied(*text));
    }
    return strings;
}

std::optional<std::string> KeyedDecoder::optionalString(std::string_view key) const
{
    const auto* value = m_object.if_contains(key);
    if (value == nullptr || value->is_null())
        return std::nullopt;
    const auto* text = value->if_string();
    if (text == nullptr)
        throwMismatch(key, "a string", *value);
    return copied(*text);
}

} // namespace Core
