#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Human-readable explanations of JSON syntax errors. For JSONPropertyList.cpp only.

namespace Platform::PropertyLists {

struct JSONSyntaxError {
    /// Names the problem and a fix. Never quotes the document, which may contain secrets.
    std::string reason;
    /// In bytes.
    std::size_t offset = 0;
};

/// Explains why parsing `text` stopped at `offset`. `text` is a JSON object in UTF-8, valid up to `offset`.
JSONSyntaxError explainJSONSyntax(std::string_view text, std::size_t offset);

} // namespace Platform::PropertyLists
