#include "Fuzzers/Fuzzing.h"

#include "Platform/Encoding.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>

namespace Fuzzers {

using Platform::PropertyList;

namespace {

/// Shares no substring of three bytes with any error message.
constexpr std::string_view canary = "Zq7Jw94Xk";

double valueOf(const PropertyList& number)
{
    if (const auto* integer = number.integer())
        return static_cast<double>(*integer);
    if (const auto* large = number.largeInteger())
        return static_cast<double>(*large);
    return *number.real();
}

} // namespace

void require(bool isMet, std::string_view requirement)
{
    if (isMet)
        return;
    std::fprintf(stderr, "\nRequirement not met: %.*s.\n", static_cast<int>(requirement.size()),
                 requirement.data());
    std::abort();
}

bool isSame(const PropertyList& left, const PropertyList& right, Numbers numbers)
{
    const auto areSame = [numbers](const PropertyList& a, const PropertyList& b) {
        return isSame(a, b, numbers);
    };
    if (const auto* array = left.array())
        return right.array() != nullptr && std::equal(array->begin(), array->end(), right.array()->begin(),
                                                      right.array()->end(), areSame);
    if (const auto* dictionary = left.dictionary())
        return right.dictionary() != nullptr &&
               std::equal(dictionary->begin(), dictionary->end(), right.dictionary()->begin(),
                          right.dictionary()->end(), [&](const auto& a, const auto& b) {
                              return a.first == b.first && areSame(a.second, b.second);
                          });
    const bool areNumbers = left.isNumber() && right.isNumber() && left.boolean() == nullptr;
    if (numbers == Numbers::byValue && areNumbers && right.boolean() == nullptr)
        return valueOf(left) == valueOf(right);
    if (left.real() != nullptr && right.real() != nullptr)
        return std::bit_cast<std::uint64_t>(*left.real()) == std::bit_cast<std::uint64_t>(*right.real());
    return left == right;
}

bool holdsControlCharacter(std::string_view text)
{
    while (!text.empty()) {
        const auto character = Platform::decodeUTF8(text);
        require(character.has_value(), "text is valid UTF-8");
        const char32_t codePoint = character->codePoint;
        if (codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0))
            return true;
        text.remove_prefix(character->length);
    }
    return false;
}

std::string withCanary(std::string_view input)
{
    std::string text(input);
    return text.insert(std::hash<std::string_view>()(input) % (input.size() + 1), canary);
}

void requireNoCanary(std::string_view line)
{
    constexpr std::size_t partBytes = 3;
    for (std::size_t start = 0; start + partBytes <= canary.size(); ++start)
        require(line.find(canary.substr(start, partBytes)) == std::string_view::npos,
                "a public line contains no private content");
}

} // namespace Fuzzers

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    Fuzzers::examine({reinterpret_cast<const char*>(bytes), count});
    return 0;
}
