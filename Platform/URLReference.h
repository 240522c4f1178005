#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Platform {

/// Resolves `reference` against `base` by RFC 3986, section 5.2. Removes dot segments and changes nothing
/// else: escaped characters stay escaped, in their own letter case, and empty segments stay.
///
/// A base without a scheme gives a result without one. Absent when the result would read as another URL, such
/// as a path that begins with "//" where no host precedes it. Neither argument is checked for its form.
std::optional<std::string> resolveURLReference(std::string_view base, std::string_view reference);

} // namespace Platform
