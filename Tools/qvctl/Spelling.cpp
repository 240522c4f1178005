#include "Tools/qvctl/Spelling.h"

#include "Platform/ASCII.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <utility>

namespace Qvctl {

namespace {

/// Returns only the letters, in lower case, and the digits of `word`.
std::string skeleton(std::string_view word)
{
    std::string letters;
    for (const char character : word) {
        if (Platform::isASCIILetter(character) || Platform::isASCIIDigit(character))
            letters += Platform::lowerCaseASCII(character);
    }
    return letters;
}

/// Returns the Levenshtein distance.
std::size_t editDistance(std::string_view left, std::string_view right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t substituted = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, substituted}));
        }
    }
    return row.back();
}

} // namespace

std::optional<std::size_t> closestWord(std::string_view word, const std::vector<std::string_view>& candidates)
{
    // Limits the cost; no real name is that long.
    constexpr std::size_t longestComparedBytes = 100;
    constexpr std::size_t maximumTypoCount = 2;
    const std::string wanted = skeleton(word.substr(0, longestComparedBytes));
    std::size_t bestDistance = std::min(maximumTypoCount, wanted.size() / 2) + 1;
    std::optional<std::size_t> best;
    for (std::size_t index = 0; index < candidates.size(); ++index) {
        const std::size_t distance = editDistance(wanted, skeleton(candidates[index]));
        if (distance < bestDistance) {
            best = index;
            bestDistance = distance;
        }
    }
    return best;
}

bool isSpelledAlike(std::string_view left, std::string_view right)
{
    return skeleton(left) == skeleton(right);
}

} // namespace Qvctl
