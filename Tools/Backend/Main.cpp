// The organisation's backend for testers: answers every request over HTTPS on this machine, says what came in
// and misbehaves on demand.

#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Platform/ExitCode.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/StandardDescriptors.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/TestBackend.h"

#include <CLI/CLI.hpp>
#include <boost/json.hpp>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

namespace {

namespace json = boost::json;

using Platform::ExitCode;
using enum Platform::ExitCode;

constexpr int longestDelayMilliseconds = 24 * 60 * 60 * 1000;

constexpr const char* footer =
    R"(Every request is answered with status 200 and the JSON body {} unless told otherwise. PATH is the path of
the request without the query, as it comes over the wire, or * for every path that has nothing of its own; it
ends at the first '='. Options for one path add up.

Endings:
  complete       the whole answer
  closed-before  the connection is closed before any answer
  truncated      the connection is closed in the middle of the announced body
  endless        the body is repeated for ever
  dripping       the body comes one byte at a time, --delay apart

The first line of the output tells the address and the certificate authority that a client must trust; then
comes one line for each request: time, method, target, headerFields and body, or bodyBase64 where the body is
not text. Secrets such as Authorization are shown as they are. A push adds a line with pushTo and outcome.
SIGINT or SIGTERM ends it.

Examples:
  A backend on a port of its own choice, and a client that trusts it:
    quorvane-backend --port 8443 --certificates .
    curl --cacert authority.pem -d '{"token": "abc"}' https://localhost:8443/devices/DEV-1/token

  Overloaded for tokens, silent for two seconds and then broken for all else:
    quorvane-backend --reply '/token=503' --header '/token=Retry-After: 30' \
        --body '/token={"error": "busy"}' --delay '*=2000' --ending '*=truncated'

  One that greets every device that uploads its token:
    echo '{"aps": {"alert": "Welcome"}}' > greeting.json
    quorvane-backend --push greeting.json
)";

/// What the user got wrong, as one sentence that names the argument.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A folder of its own that goes with the object.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = std::filesystem::temp_directory_path() / "quorvane-backend.XXXXXX";
        if (::mkdtemp(name.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), name);
        m_path = name;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// Bytes of a header that are not UTF-8 are read as Latin-1, as old HTTP had it.
std::string headerText(const std::string& bytes)
{
    if (Platform::isUTF8(bytes))
        return bytes;
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x80) {
            text += byte;
        } else {
            text += static_cast<char>(0xC0 | (value >> 6));
            text += static_cast<char>(0x80 | (value & 0x3F));
        }
    }
    return text;
}

std::string currentTime()
{
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now());
    const auto second = floor<seconds>(now);
    return fmt::format("{:%FT%T}.{:03}Z", fmt::gmtime(system_clock::to_time_t(second)),
                       (now - second).count());
}

json::object asJSON(const TestBackend::Request& request)
{
    json::object headerFields;
    for (const auto& [name, value] : request.headerFields) {
        // Repeated fields count as one list.
        json::value& shown = headerFields[headerText(name)];
        shown = shown.is_string()
                    ? fmt::format("{}, {}", std::string_view(shown.get_string()), headerText(value))
                    : headerText(value);
    }
    json::object line{{"time", currentTime()},
                      {"method", request.method},
                      {"target", headerText(request.target)},
                      {"headerFields", std::move(headerFields)}};
    if (Platform::isUTF8(request.body))
        line.emplace("body", request.body);
    else
        line.emplace("bodyBase64", Platform::base64Text(request.body));
    return line;
}

/// Threads: any.
class Output {
public:
    void print(const json::object& line)
    {
        const std::string text = json::serialize(line) + '\n';
        const std::lock_guard lock(m_mutex);
        // With nobody left to read there is nothing left to do.
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
            ::kill(::getpid(), SIGTERM);
    }

private:
    std::mutex m_mutex;
};

/// One of the words that an option takes.
template <typename Value>
Value oneOf(std::string_view option, std::string_view word,
            std::initializer_list<std::pair<std::string_view, Value>> words)
{
    std::string known;
    for (const auto& [name, value] : words) {
        if (name == word)
            return value;
        known += fmt::format("{}{}", known.empty() ? "" : ", ", name);
    }
    throw UsageError(fmt::format("{}: '{}' is none of {}", option, word, known));
}

int numberIn(std::string_view option, std::string_view text, int least, int most)
{
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most)
        throw UsageError(fmt::format("{}: '{}' is not a number from {} to {}", option, text, least, most));
    return number;
}

bool isFieldName(std::string_view name)
{
    constexpr std::string_view others = "!#$%&'*+-.^_`|~";
    return !name.empty() && std::all_of(name.begin(), name.end(), [=](char character) {
        return Platform::isASCIILetter(character) || Platform::isASCIIDigit(character) ||
               others.find(character) != std::string_view::npos;
    });
}

void addHeaderField(TestBackend::Reply& reply, std::string_view field)
{
    const auto colon = field.find(':');
    const std::string_view name = field.substr(0, colon);
    if (colon == std::string_view::npos || !isFieldName(name) ||
        field.find_first_of("\r\n") != std::string_view::npos)
        throw UsageError(fmt::format("--header: '{}' is not of the form 'Name: value'", field));
    const auto start = field.find_first_not_of(' ', colon + 1);
    const std::string_view value = start == std::string_view::npos ? "" : field.substr(start);
    const bool isContentType = Platform::equalsIgnoringASCIICase(name, "content-type");
    if (isContentType)
        reply.headerFields.erase("Content-Type");
    reply.headerFields.emplace(isContentType ? "Content-Type" : std::string(name), value);
}

TestBackend::Ending ending(std::string_view word)
{
    using Ending = TestBackend::Ending;
    return oneOf<Ending>("--ending", word,
                         {{"complete", Ending::complete},
                          {"closed-before", Ending::closedBefore},
                          {"truncated", Ending::truncated},
                          {"endless", Ending::endless},
                          {"dripping", Ending::dripping}});
}

TestBackend::Certificate certificate(std::string_view word)
{
    using Certificate = TestBackend::Certificate;
    return oneOf<Certificate>("--certificate", word,
                              {{"good", Certificate::good},
                               {"expired", Certificate::expired},
                               {"wrong-host", Certificate::wrongHost},
                               {"self-signed", Certificate::selfSigned},
                               {"untrusted", Certificate::untrusted}});
}

std::string contentOf(std::string_view option, const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw UsageError(fmt::format("{}: the file '{}' cannot be read", option, file));
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Sends the push and tells what came of it.
json::object push(const std::string& token, const std::string& payload, const PushRoutes& routes)
{
    json::object line{{"time", currentTime()}, {"pushTo", token}};
    try {
        pushToDevice(token, payload, routes);
        line["outcome"] = "ok";
    } catch (const std::runtime_error& error) {
        line["outcome"] = error.what();
    }
    return line;
}

class CommandLine {
public:
    CommandLine()
    {
        m_parser.footer(footer);
        m_parser.add_option("--port", m_port, "Port on 127.0.0.1 (default: any that is free)")
            ->type_name("N");
        m_parser
            .add_option(
                "--certificates", m_folder,
                "Where to write authority.pem and server.pem (default: a temporary folder, removed at "
                "the end)")
            ->type_name("FOLDER");
        m_parser
            .add_option("--certificate", m_certificate,
                        "What to show: good (default), expired, wrong-host, self-signed or untrusted")
            ->type_name("KIND");
        using Reply = TestBackend::Reply;
        m_parser
            .add_option("--push", m_pushFile,
                        "Push the payload in this file back to every token that a device uploads: to its Web "
                        "Push endpoint, or to the app of this user that runs with --push local")
            ->type_name("FILE");
        m_parser
            .add_option("--push-authority", m_pushAuthority,
                        "Whom the endpoint must be signed by, as PEM (default: whom the system trusts)")
            ->type_name("FILE");
        addForPath("--reply", "STATUS", "Status of the answer, 200 to 599",
                   [](Reply& reply, auto text) { reply.status = numberIn("--reply", text, 200, 599); });
        addForPath("--header", "Name: value", "A header field of the answer; may be repeated",
                   addHeaderField);
        addForPath("--body", "TEXT", "Body of the answer",
                   [](Reply& reply, auto text) { reply.body = text; });
        addForPath("--delay", "MILLISECONDS", "Time until the answer begins", [](Reply& reply, auto text) {
            reply.delay = std::chrono::milliseconds(numberIn("--delay", text, 0, longestDelayMilliseconds));
        });
        addForPath("--ending", "ENDING", "How the answer ends, see below",
                   [](Reply& reply, auto text) { reply.ending = ending(text); });
    }

    /// Runs until a signal ends it. `signals` are blocked.
    int run(int argc, char** argv, const sigset_t& signals)
    {
        try {
            m_parser.parse(argc, argv);
        } catch (const CLI::Success& help) {
            return m_parser.exit(help);
        } catch (const CLI::ParseError& error) {
            throw UsageError(error.what());
        }
        TestBackend::Options options;
        options.port = static_cast<std::uint16_t>(numberIn("--port", m_port, 0, 65535));
        options.certificate = certificate(m_certificate);
        if (m_folder && !std::filesystem::is_directory(*m_folder))
            throw UsageError(fmt::format("--certificates: there is no folder '{}'", *m_folder));

        const std::string payload = m_pushFile ? contentOf("--push", *m_pushFile) : "";

        std::optional<TemporaryFolder> temporary;
        options.folder = m_folder ? std::filesystem::absolute(*m_folder) : temporary.emplace().path();
        Output output;
        const PushRoutes routes{Platform::Linux::DevicePaths::fromEnvironment({}).pushSocket,
                                m_pushAuthority};
        Platform::Linux::WorkerQueue pushes("pushes", Platform::Linux::WorkerQueue::Priority::default_);
        TestBackend backend(options);
        for (const auto& [path, reply] : m_replies)
            backend.setReply(path, reply);
        output.print({{"baseURL", backend.baseURL()},
                      {"certificateAuthority", backend.certificateAuthority().string()}});
        backend.onRequest([&](const TestBackend::Request& request) {
            output.print(asJSON(request));
            // Printed is remembered enough, however long this runs.
            backend.takeRequests();
            const auto token = uploadedToken(request);
            if (token && m_pushFile)
                pushes.async([&output, &routes, &payload, token = *token] {
                    output.print(push(token, payload, routes));
                });
        });
        int signal = 0;
        return ::sigwait(&signals, &signal) == 0 ? success : internal;
    }

private:
    template <typename Change>
    void addForPath(const std::string& option, const std::string& value, const std::string& description,
                    Change change)
    {
        const auto parse = [this, option, value, change](const std::vector<std::string>& arguments) {
            for (const std::string_view argument : arguments) {
                const auto sign = argument.find('=');
                const std::string path(argument.substr(0, sign));
                if (sign == std::string_view::npos || (path != "*" && !path.starts_with('/')))
                    throw UsageError(
                        fmt::format("{}: '{}' is not of the form 'PATH={}', with a PATH that begins "
                                    "with '/' or is '*'",
                                    option, argument, value));
                change(m_replies[path], argument.substr(sign + 1));
            }
        };
        m_parser.add_option_function<std::vector<std::string>>(option, parse, description)
            ->type_name("'PATH=" + value + "'")
            ->allow_extra_args(false);
    }

    CLI::App m_parser{
        "The organisation's backend for tests: HTTPS on loopback that can be told to misbehave.",
        "quorvane-backend"};
    std::string m_port = "0";
    std::string m_certificate = "good";
    std::optional<std::string> m_folder;
    std::optional<std::string> m_pushFile;
    std::string m_pushAuthority;
    std::map<std::string, TestBackend::Reply> m_replies;
};

} // namespace

int main(int argc, char** argv)
{
    Platform::Linux::openMissingStandardDescriptors();
    // Before the first thread, so that all inherit it and only sigwait sees them.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        return CommandLine().run(argc, argv, signals);
    } catch (const UsageError& error) {
        fmt::print(stderr, "quorvane-backend: {}\nTry quorvane-backend --help.\n", error.what());
        return usage;
    } catch (const std::runtime_error& error) {
        fmt::print(stderr, "quorvane-backend: {}\n", error.what());
        return unavailable;
    } catch (const std::exception& error) {
        fmt::print(stderr, "quorvane-backend: {}\n", error.what());
        return internal;
    }
}
