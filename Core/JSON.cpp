#include "Core/JSON.h"

#include <boost/json/basic_parser_impl.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace Core {

namespace {

namespace json = boost::json;

void append(Platform::Data& out, char character)
{
    out.push_back(static_cast<std::byte>(character));
}

void append(Platform::Data& out, std::string_view text)
{
    const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
    out.insert(out.end(), bytes, bytes + text.size());
}

/// Whether each character needs an escape sequence in a string, by its code.
constexpr auto isEscaped = [] {
    std::array<bool, 256> characters{};
    for (std::size_t code = 0; code < characters.size(); ++code)
        characters[code] = code < ' ' || code == '"' || code == '\\' || code == 0x7f;
    return characters;
}();

bool needsEscapes(std::string_view text)
{
    bool isNeeded = false;
    for (const char character : text)
        isNeeded |= isEscaped[static_cast<unsigned char>(character)];
    return isNeeded;
}

/// Grows `out` and returns the first of the new bytes.
std::byte* grow(Platform::Data& out, std::size_t count)
{
    out.resize(out.size() + count);
    return out.data() + out.size() - count;
}

/// Writes a string without escapes and returns the position after it.
std::byte* writePlain(std::byte* position, std::string_view text)
{
    *position++ = std::byte{'"'};
    std::memcpy(position, text.data(), text.size());
    position += text.size();
    *position++ = std::byte{'"'};
    return position;
}

void appendText(Platform::Data& out, std::string_view text)
{
    // Constructing the library's serializer costs more than writing a typical string.
    if (needsEscapes(text))
        append(out, json::serialize(json::string_view(text.data(), text.size())));
    else
        writePlain(grow(out, text.size() + 2), text);
}

/// Appends strings without escapes, separated by commas. Grows `out` only once.
void appendPlainTexts(Platform::Data& out, const TextList& texts)
{
    constexpr std::size_t bytesOfPunctuation = 3;
    std::byte* position = grow(out, texts.characters().size() + bytesOfPunctuation * texts.size());
    for (const std::string_view text : texts) {
        position = writePlain(position, text);
        *position++ = std::byte{','};
    }
    out.pop_back();
}

void appendNumber(Platform::Data& out, double number)
{
    if (!std::isfinite(number))
        throw EncodingError("JSON cannot represent a number that is not finite.");
    append(out, fmt::format("{}", number));
}

void appendValue(Platform::Data& out, const json::value& value)
{
    if (const auto* array = value.if_array()) {
        append(out, '[');
        for (const char* separator = ""; const json::value& element : *array) {
            append(out, std::string_view(std::exchange(separator, ",")));
            appendValue(out, element);
        }
        append(out, ']');
    } else if (const auto* object = value.if_object()) {
        append(out, '{');
        for (const char* separator = ""; const auto& member : *object) {
            append(out, std::string_view(std::exchange(separator, ",")));
            appendText(out, member.key());
            append(out, ':');
            appendValue(out, member.value());
        }
        append(out, '}');
    } else if (const auto* number = value.if_double()) {
        appendNumber(out, *number);
    } else if (const auto* text = value.if_string()) {
        appendText(out, std::string_view(text->data(), text->size()));
    } else if (const auto* integer = value.if_int64()) {
        append(out, std::to_string(*integer));
    } else {
        append(out, json::serialize(value));
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
    Platform::Data bytes;
    appendValue(bytes, value);
    return bytes;
}

JSONObjectWriter::JSONObjectWriter(std::size_t expectedBytes)
{
    m_bytes.reserve(expectedBytes);
    append(m_bytes, '{');
}

void JSONObjectWriter::addKey(std::string_view key)
{
    if (m_bytes.size() > 1)
        append(m_bytes, ',');
    appendText(m_bytes, key);
    append(m_bytes, ':');
}

void JSONObjectWriter::add(std::string_view key, std::string_view text)
{
    addKey(key);
    appendText(m_bytes, text);
}

void JSONObjectWriter::add(std::string_view key, const TextList& texts)
{
    addKey(key);
    append(m_bytes, '[');
    if (!texts.empty() && !needsEscapes(texts.characters())) {
        appendPlainTexts(m_bytes, texts);
    } else {
        for (const char* separator = ""; const std::string_view text : texts) {
            append(m_bytes, std::string_view(std::exchange(separator, ",")));
            appendText(m_bytes, text);
        }
    }
    append(m_bytes, ']');
}

void JSONObjectWriter::add(std::string_view key, std::int64_t integer)
{
    addKey(key);
    append(m_bytes, std::to_string(integer));
}

void JSONObjectWriter::add(std::string_view key, double number)
{
    addKey(key);
    appendNumber(m_bytes, number);
}

Platform::Data JSONObjectWriter::finish() &&
{
    append(m_bytes, '}');
    return std::move(m_bytes);
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

TextList KeyedDecoder::strings(std::string_view key) const
{
    const json::value& value = member(key);
    const auto* array = value.if_array();
    if (array == nullptr)
        throwMismatch(key, "an array of strings", value);
    std::size_t characterCount = 0;
    for (const json::value& element : *array) {
        const auto* text = element.if_string();
        if (text == nullptr)
            throwMismatch(key, "an array of strings", value);
        characterCount += text->size();
    }
    TextList strings;
    strings.reserve(characterCount);
    for (const json::value& element : *array)
        strings.push_back(std::string_view(element.get_string().data(), element.get_string().size()));
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
