#pragma once

#include "Platform/PropertyList.h"

#include <string>
#include <string_view>

/// What the fuzzers share. Each is one source that defines `examine` and hands an input to the product; it
/// ends the process when the product breaks a promise, as the sanitizers do when it breaks a rule of the
/// language. Nothing outlives an input.
namespace Fuzzers {

/// Tries one input. Throws nothing: an exception that leaves it is a finding.
void examine(std::string_view input);

/// Ends the process, naming the promise, unless it was kept.
void require(bool isKept, std::string_view promise);

enum class Numbers {
    /// Bit by bit, with their types.
    exactly,
    /// A whole real is the same as an integer, as in JSON.
    byValue
};

/// Unlike `==` it takes a real that is no number for equal to itself.
bool isSame(const Platform::PropertyList& left, const Platform::PropertyList& right, Numbers numbers);

/// Whether `text`, valid UTF-8, holds a character that ends a line or steers a terminal.
bool holdsControlCharacter(std::string_view text);

/// `input` with a canary in it, at an offset that depends on the input.
std::string withCanary(std::string_view input);

/// Ends the process when `line`, which the public may read, holds a part of the canary.
void requireNoCanary(std::string_view line);

Platform::Data dataOf(std::string_view text);
std::string_view textOf(const Platform::Data& data);

} // namespace Fuzzers
