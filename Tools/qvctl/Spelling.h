#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace Qvctl {

/// Returns the index of the candidate most similar to `word`: at most two letters or digits, and at most half
/// of those in `word`, may differ. Ignores case and punctuation. Absent if no candidate is similar enough.
std::optional<std::size_t> closestWord(std::string_view word,
                                       const std::vector<std::string_view>& candidates);

/// Whether both words have the same letters and digits, ignoring case and punctuation.
bool isSpelledAlike(std::string_view left, std::string_view right);

} // namespace Qvctl
