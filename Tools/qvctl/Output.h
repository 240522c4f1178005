#pragma once

#include "Platform/Encoding.h"
#include "Platform/PropertyList.h"
#include "Tools/qvctl/Commands.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace Qvctl {

// Everything the console prints goes through here. Strings and paths are escaped on the way, since what comes
// from a file, a store or the journal must not steer the terminal.

/// Standard output cannot take what is printed, for another reason than that its reader has gone.
class OutputError : public std::system_error {
public:
    using std::system_error::system_error;
};

/// Text that is printed as it is: its parts have been escaped.
struct Styled {
    std::string text;
};

enum class Tone { plain, good, bad, warning, faint };

/// `text`, escaped, in the color of its tone. Plain unless standard output is a terminal that knows colors
/// and NO_COLOR is not set.
Styled toned(Tone tone, std::string_view text);

namespace Detail {

/// What stands in the output for an argument.
template <typename Value>
auto printed(const Value& value)
{
    if constexpr (std::is_arithmetic_v<Value>)
        return value;
    else if constexpr (std::is_same_v<Value, Styled>)
        return std::string(value.text);
    else if constexpr (std::is_same_v<Value, std::filesystem::path>)
        return Platform::printable(value.native());
    else
        return Platform::printable(value);
}

template <typename Value>
using Printed = decltype(printed(std::declval<const Value&>()));

} // namespace Detail

/// `format` with each string and path among `arguments` escaped.
template <typename... Arguments>
Styled styled(fmt::format_string<Detail::Printed<Arguments>...> format, const Arguments&... arguments)
{
    return {fmt::format(format, Detail::printed(arguments)...)};
}

/// Appends to standard output. Does nothing once the reader has gone: a verb then runs to its end, so that
/// its exit code is the same. Throws `OutputError`.
void writeOutput(std::string_view text);

/// Hands what was printed to the reader. Throws `OutputError`.
void flushOutput();

/// Whether standard output still has a reader.
bool isOutputRead();

/// Appends to standard error, as far as that is possible.
void writeDiagnostics(std::string_view text) noexcept;

template <typename... Arguments>
void print(fmt::format_string<Detail::Printed<Arguments>...> format, const Arguments&... arguments)
{
    writeOutput(styled(format, arguments...).text);
}

/// Prints "qvctl: " and a line on standard error.
template <typename... Arguments>
void printError(fmt::format_string<Detail::Printed<Arguments>...> format, const Arguments&... arguments)
{
    writeDiagnostics("qvctl: " + styled(format, arguments...).text + "\n");
}

/// Prints one line of a two-column answer.
void printRow(std::string_view label, const Styled& value);
inline void printRow(std::string_view label, std::string_view value)
{
    printRow(label, styled("{}", value));
}

/// The layout of what `--json` prints; raised when a member changes its meaning.
inline constexpr int jsonFormatVersion = 1;

/// What stands in for a secret that was not asked for.
inline constexpr std::string_view mask = "********";

/// Prints `object` as one line on standard output, with the format version as its first member "version".
void printJSON(boost::json::object object);

/// Reports why a verb failed: `reason` on standard error and, with `--json`, `object` with the member
/// "error". Returns `code`.
ExitCode fail(const Options& options, ExitCode code, std::string_view reason,
              boost::json::object object = {});

boost::json::array pathsJSON(const std::vector<std::filesystem::path>& paths);

/// `value` on indented lines, for people to read and edit; a container of at most one line's length stays on
/// it.
std::string prettyJSON(const boost::json::value& value);

/// `value` as JSON: dates as ISO 8601 texts, data as hexadecimal texts.
boost::json::value jsonValue(const Platform::PropertyList& value);

/// How a person reads `value`: texts in quotes, the rest in its textual rendering. Escaped.
std::string displayText(const Platform::PropertyList& value);

} // namespace Qvctl
