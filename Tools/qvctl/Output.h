#pragma once

#include "Platform/PropertyList.h"

#include <boost/json.hpp>

#include <string>
#include <string_view>

namespace Qvctl {

/// The layout of what `--json` prints; raised when a member changes its meaning.
inline constexpr int jsonFormatVersion = 1;

/// What stands in for a secret that was not asked for.
inline constexpr std::string_view mask = "********";

/// Prints `object` as one line on standard output, with the format version as its first member "version".
void printJSON(boost::json::object object);

/// `value` on indented lines, for people to read and edit; a container of at most one line's length stays on
/// it.
std::string prettyJSON(const boost::json::value& value);

/// `value` as JSON: dates as ISO 8601 texts, data as hexadecimal texts.
boost::json::value jsonValue(const Platform::PropertyList& value);

/// `text` with control characters escaped: what comes from a file must not steer the terminal.
std::string printable(std::string_view text);

/// How a person reads `value`: texts in quotes, the rest in its textual rendering.
std::string displayText(const Platform::PropertyList& value);

enum class Tone { plain, good, bad, warning, faint };

/// `text` in the colour of its tone when standard output is a terminal and NO_COLOR is not set.
std::string toned(Tone tone, std::string_view text);

/// Prints one line of a two-column answer.
void printRow(std::string_view label, std::string_view text);

} // namespace Qvctl
