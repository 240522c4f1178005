#pragma once

#include <algorithm>
#include <string>
#include <string_view>

// ASCII letters and digits. Unlike the functions of <cctype>, these do not depend on the locale: in a Turkish
// locale, std::tolower('I') is not 'i'.

namespace Platform {

constexpr bool isASCIIDigit(char character)
{
    return character >= '0' && character <= '9';
}

constexpr bool isASCIILetter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

constexpr char lowerCaseASCII(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

inline std::string lowerCasedASCII(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lowerCaseASCII);
    return result;
}

constexpr char upperCaseASCII(char character)
{
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

/// Returns whether both strings are equal when the case of ASCII letters is ignored.
constexpr bool equalsIgnoringASCIICase(std::string_view left, std::string_view right)
{
    if (left.size() != right.size())
        return false;
    for (std::size_t index = 0; index < left.size(); ++index) {
        if (lowerCaseASCII(left[index]) != lowerCaseASCII(right[index]))
            return false;
    }
    return true;
}

} // namespace Platform
