#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace Qvctl {

/// The index of the candidate that `word` was probably meant to be: at most two letters or digits differ, and
/// at most half of those in `word`; case and punctuation do not count. Absent when there is none.
std::optional<std::size_t> closestWord(std::string_view word,
                                       const std::vector<std::string_view>& candidates);

/// Whether both words have the same letters and digits; case and punctuation do not count.
bool isSpelledAlike(std::string_view left, std::string_view right);

} // namespace Qvctl
