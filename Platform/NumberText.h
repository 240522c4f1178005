#pragma once

#include <optional>
#include <string>
#include <string_view>

// Numbers as text and back. The only conversions of real numbers in the project: those of the C library
// depend on the locale of the process, which may write 3.5 as "3,5".

namespace Platform {

/// 16 significant digits at most, without trailing zeros, as printf's "%.16g" writes in the C locale: "3.5",
/// "1e+20", "-0", "inf", "nan".
std::string realText(double value);

/// The shortest text that reads back as the same number.
std::string shortestRealText(double value);

/// A decimal number with optional minus sign, fraction and exponent; absent when `digits` is anything else or
/// lies outside the range of `double`.
std::optional<double> parseDecimal(std::string_view digits);

} // namespace Platform
