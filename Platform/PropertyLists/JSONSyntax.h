#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Why a JSON text does not parse, for the people who wrote it. For JSONPropertyList.cpp only.

namespace Platform::PropertyLists {

struct JSONSyntaxError {
    /// Names the kind of the problem and a fix; never quotes the text, which may hold secrets.
    std::string reason;
    /// Where the problem starts, in bytes.
    std::size_t offset = 0;
};

/// Explains why parsing stopped at `offset` of `text`, a JSON object in UTF-8 whose bytes before `offset` are
/// valid as far as they go.
JSONSyntaxError explainJSONSyntax(std::string_view text, std::size_t offset);

} // namespace Platform::PropertyLists
