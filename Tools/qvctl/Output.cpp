#include "Tools/qvctl/Output.h"

#include "Core/JSON.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <unistd.h>
#include <utility>

namespace Qvctl {

namespace {

namespace json = boost::json;

bool isColorEnabled()
{
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string_view(value != nullptr ? value : "");
    };
    const std::string_view terminal = variable("TERM");
    return ::isatty(STDOUT_FILENO) == 1 && !terminal.empty() && terminal != "dumb" &&
           variable("NO_COLOR").empty();
}

bool isColorDisabled = false;

bool isColored()
{
    static const bool isEnabled = isColorEnabled();
    return isEnabled && !isColorDisabled;
}

const char* colorCode(Tone tone)
{
    switch (tone) {
    case Tone::good:
        return "\x1b[32m";
    case Tone::bad:
        return "\x1b[31m";
    case Tone::warning:
        return "\x1b[33m";
    case Tone::faint:
        return "\x1b[2m";
    case Tone::plain:
        break;
    }
    return "";
}

/// The subject of the output, a user; empty for none.
std::string outputSubject;

/// Set once a write found the pipe closed.
bool isPipeClosed = false;

/// Remembers a closed pipe; throws for any other error.
void handleOutputError(int error)
{
    if (error != EPIPE)
        throw OutputError(error, std::generic_category(), "standard output");
    isPipeClosed = true;
}

/// Escapes unprintable characters of `json` as "\u202e" and replaces each byte that is not UTF-8, which file
/// names may contain, with U+FFFD.
std::string printableJSON(std::string_view json)
{
    constexpr char32_t replacement = 0xfffd;
    std::string out;
    for (; !json.empty();) {
        const auto character = Platform::decodeUTF8(json);
        const char32_t codePoint = character ? character->codePoint : replacement;
        if (Platform::isUnprintable(codePoint))
            out += fmt::format("\\u{:04x}", static_cast<unsigned>(codePoint));
        else
            Platform::appendUTF8(out, codePoint);
        json.remove_prefix(character ? character->length : 1);
    }
    return out;
}

std::string compactJSON(const json::value& value)
{
    const Platform::Data bytes = Core::JSONEncoder().encode(value);
    return printableJSON({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void appendPretty(std::string& out, const json::value& value, std::size_t indentation)
{
    constexpr std::size_t longestLine = 80;
    std::string compact = compactJSON(value);
    if (!value.is_structured() || indentation + compact.size() <= longestLine) {
        out += compact;
        return;
    }
    const std::string lineStart = "\n" + std::string(indentation + 2, ' ');
    const char* separator = "";
    const auto beginElement = [&] { out.append(std::exchange(separator, ",")).append(lineStart); };
    out += value.is_object() ? '{' : '[';
    if (const auto* object = value.if_object()) {
        for (const auto& [key, member] : *object) {
            beginElement();
            out.append(compactJSON(key)).append(": ");
            appendPretty(out, member, indentation + 2);
        }
    } else {
        for (const auto& element : value.get_array()) {
            beginElement();
            appendPretty(out, element, indentation + 2);
        }
    }
    out.append("\n").append(indentation, ' ') += value.is_object() ? '}' : ']';
}

} // namespace

std::string prettyJSON(const json::value& value)
{
    std::string text;
    appendPretty(text, value, 0);
    return text;
}

void printJSON(json::object object)
{
    json::object versioned{{"version", jsonFormatVersion}};
    if (!outputSubject.empty())
        versioned["user"] = outputSubject;
    for (auto& member : object)
        versioned.emplace(member.key(), std::move(member.value()));
    writeOutput(compactJSON(versioned) + "\n");
}

ExitCode fail(const Options& options, ExitCode code, std::string_view reason, json::object object)
{
    flushOutput(); // Keeps the order of standard output and standard error.
    printError("{}", reason);
    if (options.isJSON) {
        object["error"] = reason;
        printJSON(std::move(object));
    }
    return code;
}

json::array pathsJSON(const std::vector<std::filesystem::path>& paths)
{
    json::array list;
    for (const auto& path : paths)
        list.emplace_back(path.string());
    return list;
}

json::value jsonValue(const Platform::PropertyList& value)
{
    if (const auto* text = value.text())
        return json::string(*text);
    if (const auto* boolean = value.boolean())
        return *boolean;
    if (const auto* integer = value.integer())
        return *integer;
    if (const auto* integer = value.largeInteger())
        return *integer;
    if (const auto* real = value.real(); real != nullptr && std::isfinite(*real))
        return *real;
    if (const auto* date = value.date())
        return json::string(date->utcText());
    if (const auto* array = value.array()) {
        json::array elements;
        for (const auto& element : *array)
            elements.push_back(jsonValue(element));
        return elements;
    }
    if (const auto* dictionary = value.dictionary()) {
        json::object members;
        for (const auto& [key, member] : *dictionary)
            members.emplace(key, jsonValue(member));
        return members;
    }
    if (value.isNull())
        return nullptr;
    return json::string(value.description());
}

std::string displayText(const Platform::PropertyList& value)
{
    if (value.text() != nullptr)
        return fmt::format("\"{}\"", Platform::printable(*value.text()));
    if (const auto* boolean = value.boolean())
        return *boolean ? "true" : "false";
    if (const auto* date = value.date())
        return date->utcText();
    return Platform::printable(value.description());
}

void disableColor()
{
    isColorDisabled = true;
}

void prepareColor()
{
    static_cast<void>(isColored());
}

void setSubject(std::string user)
{
    outputSubject = std::move(user);
}

std::string diagnosticPrefix()
{
    return outputSubject.empty() ? "qvctl: " : fmt::format("qvctl: {}: ", Platform::printable(outputSubject));
}

Styled toned(Tone tone, std::string_view text)
{
    if (!isColored() || tone == Tone::plain)
        return styled("{}", text);
    return {fmt::format("{}{}\x1b[0m", colorCode(tone), Platform::printable(text))};
}

void writeOutput(std::string_view text)
{
    if (!isPipeClosed && std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        handleOutputError(errno);
}

void flushOutput()
{
    if (!isPipeClosed && std::fflush(stdout) != 0)
        handleOutputError(errno);
}

bool isOutputOpen()
{
    return !isPipeClosed;
}

void writeDiagnostics(std::string_view text) noexcept
{
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void printRow(std::string_view label, const Styled& value)
{
    print("{:<16}{}\n", label, value);
}

} // namespace Qvctl
