#pragma once

#include <optional>
#include <string>
#include <string_view>

// The project's only conversions between real numbers and text. Those of the C library depend on the locale,
// which may write 3.5 as "3,5".

namespace Platform {

/// Returns what printf's "%.16g" writes in the C locale, at most 16 significant digits: "3.5", "1e+20", "-0",
/// "inf", "nan".
std::string realText(double value);

/// Returns the shortest text that parses back to the same number.
std::string shortestRealText(double value);

/// Parses a decimal number with optional minus sign, fraction and exponent. Absent if `digits` is anything
/// else or is out of range for `double`.
std::optional<double> parseDecimal(std::string_view digits);

} // namespace Platform
