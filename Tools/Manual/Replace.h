#pragma once

#include <map>
#include <string>
#include <string_view>

namespace Manual {

/// `text` with each character that `replacements` lists replaced: quoting for a shell or the formatter.
inline std::string replaced(std::string_view text, const std::map<char, std::string_view>& replacements)
{
    std::string result;
    for (const char character : text) {
        const auto found = replacements.find(character);
        result += found == replacements.end() ? std::string_view(&character, 1) : found->second;
    }
    return result;
}

} // namespace Manual
