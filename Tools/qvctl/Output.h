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

// All output of qvctl. Strings and paths are escaped, so that text from a file, a store or the journal cannot
// send control sequences to the terminal.

/// Writing to standard output failed for a reason other than a closed pipe.
class OutputError : public std::system_error {
public:
    using std::system_error::system_error;
};

/// Escaped text, printed as is.
struct Styled {
    std::string text;
};

enum class Tone { plain, good, bad, warning, faint };

/// Returns `text`, escaped, in the color of its tone. Without color unless standard output is a terminal with
/// color support and NO_COLOR is not set.
Styled toned(Tone tone, std::string_view text);

/// Prints no colors from now on.
void disableColor();

/// Decides whether output has colors, for this process and those that it forks. Otherwise the first use of
/// `toned` decides.
void prepareColor();

/// Makes the output name this user: messages on standard error begin with the name, and JSON objects
/// have a member "user". An empty name ends this.
void setSubject(std::string user);

namespace Detail {

/// Converts a format argument to what is printed for it.
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

/// Formats `arguments`; strings and paths are escaped.
template <typename... Arguments>
Styled styled(fmt::format_string<Detail::Printed<Arguments>...> format, const Arguments&... arguments)
{
    return {fmt::format(format, Detail::printed(arguments)...)};
}

/// Appends to standard output. Does nothing once the pipe is closed, so that the command finishes with its
/// usual exit code. Throws `OutputError`.
void writeOutput(std::string_view text);

/// Flushes standard output. Throws `OutputError`.
void flushOutput();

/// False once a write found the pipe closed.
bool isOutputOpen();

/// Appends to standard error; ignores failures.
void writeDiagnostics(std::string_view text) noexcept;

template <typename... Arguments>
void print(fmt::format_string<Detail::Printed<Arguments>...> format, const Arguments&... arguments)
{
    writeOutput(styled(format, arguments...).text);
}

/// Returns "qvctl: ", or "qvctl: USER: ".
std::string diagnosticPrefix();

/// Prints the prefix and a message on standard error.
template <typename... Arguments>
void printError(fmt::format_string<Detail::Printed<Arguments>...> format, const Arguments&... arguments)
{
    writeDiagnostics(diagnosticPrefix() + styled(format, arguments...).text + "\n");
}

/// Prints one line of a two-column table.
void printRow(std::string_view label, const Styled& value);
inline void printRow(std::string_view label, std::string_view value)
{
    printRow(label, styled("{}", value));
}

/// Version of the --json layout; increased when a member changes its meaning or is removed.
inline constexpr int jsonFormatVersion = 1;

/// Replaces secrets unless --reveal is given.
inline constexpr std::string_view mask = "********";

/// Prints `object` on one line, with the format version as its first member, "version", and the user, if set,
/// as the second.
void printJSON(boost::json::object object);

/// Reports why a command failed: prints `reason` on standard error and, with --json, `object` plus the member
/// "error". Returns `code`.
ExitCode fail(const Options& options, ExitCode code, std::string_view reason,
              boost::json::object object = {});

boost::json::array pathsJSON(const std::vector<std::filesystem::path>& paths);

/// Returns `value` as indented lines; a container that fits on one line stays on it.
std::string prettyJSON(const boost::json::value& value);

/// Converts `value` to JSON: dates become ISO 8601 strings, data becomes hexadecimal strings.
boost::json::value jsonValue(const Platform::PropertyList& value);

/// Returns `value` as human-readable text: strings in quotes, other types by their description. Escaped.
std::string displayText(const Platform::PropertyList& value);

} // namespace Qvctl
