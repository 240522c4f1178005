#include "Tools/qvctl/Bundle/Redaction.h"

#include "Core/ManagedKeys.h"
#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <sys/random.h>
#include <system_error>

namespace Qvctl::Bundle {

namespace {

namespace json = boost::json;
using Platform::PropertyList;

constexpr std::size_t shortestHiddenWord = 3;

std::uint64_t littleEndianWord(const void* bytes, std::size_t count)
{
    std::uint64_t word = 0;
    for (std::size_t index = count; index > 0; --index)
        word = word << 8U | static_cast<const unsigned char*>(bytes)[index - 1];
    return word;
}

/// The state of SipHash and its round function.
struct SipState {
    std::array<std::uint64_t, 4> v;

    void round()
    {
        v[0] += v[1];
        v[1] = std::rotl(v[1], 13) ^ v[0];
        v[0] = std::rotl(v[0], 32);
        v[2] += v[3];
        v[3] = std::rotl(v[3], 16) ^ v[2];
        v[0] += v[3];
        v[3] = std::rotl(v[3], 21) ^ v[0];
        v[2] += v[1];
        v[1] = std::rotl(v[1], 17) ^ v[2];
        v[2] = std::rotl(v[2], 32);
    }
    void absorb(std::uint64_t word)
    {
        v[3] ^= word;
        round();
        round();
        v[0] ^= word;
    }
};

/// Names, addresses and identifiers consist of these.
bool isWordCharacter(char character)
{
    return Platform::isASCIILetter(character) || Platform::isASCIIDigit(character) || character == '-' ||
           character == '_' || character == '.' || static_cast<unsigned char>(character) >= 0x80;
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Platform::lowerCaseASCII);
    return lower;
}

/// Calls `add` with each word of `text` and with what is between them. The period of a sentence is not part
/// of a word.
template <typename Add>
void splitWords(std::string_view text, const Add& add)
{
    while (!text.empty()) {
        const bool isWord = isWordCharacter(text.front());
        const auto end = std::find_if(text.begin(), text.end(),
                                      [=](char character) { return isWordCharacter(character) != isWord; });
        std::string_view part = text.substr(0, static_cast<std::size_t>(end - text.begin()));
        text.remove_prefix(part.size());
        std::string_view word = part;
        while (isWord && word.ends_with('.'))
            word.remove_suffix(1);
        add(word, isWord);
        if (word.size() < part.size())
            add(part.substr(word.size()), false);
    }
}

/// What messages quote apart from values.
bool isVocabulary(std::string_view quoted)
{
    static const std::set<std::string_view> words{".", "-", "%", "0", "1", "Authorization", "X-Device-Id"};
    return words.contains(quoted) || Core::findManagedKey(quoted) != nullptr;
}

/// Members of the commands' output whose values come from a fixed list, or are times.
bool isFixed(std::string_view member)
{
    static const std::set<std::string_view> names{
        "identifier", "verdict", "severity",    "cause",       "result", "firstFailure",          "state",
        "kind",       "method",  "lastUpdated", "failureTime", "time",   "notificationPermission"};
    return names.contains(member);
}

} // namespace

std::uint64_t sipHash(const HashKey& key, std::string_view text)
{
    const std::uint64_t k0 = littleEndianWord(key.data(), 8);
    const std::uint64_t k1 = littleEndianWord(key.data() + 8, 8);
    SipState state{{k0 ^ 0x736f6d6570736575U, k1 ^ 0x646f72616e646f6dU, k0 ^ 0x6c7967656e657261U,
                    k1 ^ 0x7465646279746573U}};
    const std::uint64_t length = text.size();
    for (; text.size() >= 8; text.remove_prefix(8))
        state.absorb(littleEndianWord(text.data(), 8));
    state.absorb(length << 56U | littleEndianWord(text.data(), text.size()));
    state.v[2] ^= 0xffU;
    for (int count = 0; count < 4; ++count)
        state.round();
    return state.v[0] ^ state.v[1] ^ state.v[2] ^ state.v[3];
}

Redaction::Redaction()
{
    if (::getrandom(m_key.data(), m_key.size(), 0) != static_cast<ssize_t>(m_key.size()))
        throw std::system_error(errno, std::generic_category(), "getrandom");
}

std::string Redaction::token(std::string_view value) const
{
    return fmt::format("[{} bytes, hash {:016x}]", value.size(), sipHash(m_key, value));
}

json::object Redaction::describe(const PropertyList& value) const
{
    constexpr std::size_t maximumElementCount = 1000;
    json::object object{{"type", value.typeName()}};
    json::array elements;
    if (const auto* array = value.array()) {
        object["count"] = array->size();
        for (std::size_t index = 0; index < std::min(array->size(), maximumElementCount); ++index)
            elements.push_back(describe((*array)[index]));
        object["elements"] = std::move(elements);
    } else if (const auto* dictionary = value.dictionary()) {
        object["count"] = dictionary->size();
        for (const auto& [key, member] : *dictionary) {
            if (elements.size() == maximumElementCount)
                break;
            json::object element = describe(member);
            element["key"] = Core::findManagedKey(key) != nullptr ? key : token(key);
            elements.push_back(std::move(element));
        }
        object["elements"] = std::move(elements);
    } else if (value.boolean() == nullptr && !value.isNull()) {
        const std::string text = value.text() != nullptr ? *value.text() : value.description();
        object["length"] = text.size();
        object["hash"] = fmt::format("{:016x}", sipHash(m_key, text));
    }
    return object;
}

void Redaction::hide(const PropertyList& value)
{
    if (const auto* array = value.array()) {
        for (const PropertyList& element : *array)
            hide(element);
    } else if (const auto* dictionary = value.dictionary()) {
        for (const auto& [key, member] : *dictionary) {
            if (Core::findManagedKey(key) == nullptr)
                hideText(key);
            hide(member);
        }
    } else if (value.text() != nullptr) {
        hideText(*value.text());
    } else if (value.boolean() == nullptr) {
        hideText(value.description());
    }
}

void Redaction::hideText(std::string_view value)
{
    // Output may contain the value as it is or escaped.
    for (const std::string& text : {std::string(value), Platform::printable(value)}) {
        splitWords(text, [&](std::string_view word, bool isWord) {
            if (isWord && word.size() >= shortestHiddenWord && word != "https" && word != "http")
                m_words.insert(lowerCase(word));
        });
    }
}

void Redaction::hideHome(std::string home)
{
    m_home = std::move(home);
}

std::string Redaction::redact(std::string_view text) const
{
    std::string shortened(text);
    for (std::size_t found = 0;
         m_home.size() > 1 && (found = shortened.find(m_home, found)) != std::string::npos; ++found)
        shortened.replace(found, m_home.size(), "~");
    std::string redacted;
    std::string_view rest = shortened;
    while (!rest.empty()) {
        const auto open = std::min(rest.find('"'), rest.size());
        const auto close = rest.find('"', open + 1);
        if (close == std::string_view::npos)
            break;
        const std::string_view quoted = rest.substr(open + 1, close - open - 1);
        redacted += redactWords(rest.substr(0, open));
        redacted += isVocabulary(quoted) ? fmt::format("\"{}\"", quoted) : token(quoted);
        rest.remove_prefix(close + 1);
    }
    return redacted + redactWords(rest);
}

json::value Redaction::redactJSON(const json::value& value) const
{
    if (const auto* text = value.if_string())
        return json::string(redact(*text));
    if (const auto* array = value.if_array()) {
        json::array copy;
        for (const json::value& element : *array)
            copy.push_back(redactJSON(element));
        return copy;
    }
    const auto* object = value.if_object();
    if (object == nullptr)
        return value;
    json::object copy;
    for (const auto& [name, member] : *object) {
        // Masked values are already hidden.
        const bool isValue = name == "effective" && member.is_string() && member.get_string() != mask;
        copy.emplace(redact(name), isFixed(name) ? member
                                   : isValue     ? json::value(token(member.get_string()))
                                                 : redactJSON(member));
    }
    return copy;
}

std::string Redaction::redactWords(std::string_view text) const
{
    std::string redacted;
    splitWords(text, [&](std::string_view part, bool isWord) {
        if (!isWord || m_words.contains(lowerCase(part))) {
            redacted += isWord ? token(part) : std::string(part);
            return;
        }
        // A path of keys may contain hidden words: "Settings.name".
        for (std::size_t begin = 0; begin <= part.size();) {
            const auto end = std::min(part.find('.', begin), part.size());
            const std::string_view inner = part.substr(begin, end - begin);
            redacted += (begin > 0 ? "." : "") +
                        (m_words.contains(lowerCase(inner)) ? token(inner) : std::string(inner));
            begin = end + 1;
        }
    });
    return redacted;
}

} // namespace Qvctl::Bundle
