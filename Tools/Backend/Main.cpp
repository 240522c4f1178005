// The organization's backend for testers: answers every request over HTTPS on this machine, prints the
// requests and misbehaves on demand.

#include "Platform/ASCII.h"
#include "Platform/Encoding.h"
#include "Platform/ExitCode.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Linux/StandardDescriptors.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/SystemClock.h"
#include "Tools/Backend/PushSender.h"
#include "Tools/Backend/TestBackend.h"

#include <CLI/CLI.hpp>
#include <boost/json.hpp>
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
    R"(Every request is answered with status 200 and the JSON body {} unless an option changes that. PATH is the
path of the request without the query, exactly as the client sends it, or * for all paths without options of
their own; it ends at the first '='. Options for the same path add up.

Endings:
  complete       the whole response
  closed-before  the connection is closed before any response
  truncated      the connection is closed in the middle of the body
  reset          the connection is reset in the middle of the body
  endless        the body is repeated forever
  dripping       the body comes one byte at a time, --delay apart

The first line of the output has the address and the certificate authority that a client must trust. One line
for each request follows: time, method, target, headerFields and body, or bodyBase64 if the body is not UTF-8.
Secrets such as Authorization are not masked. Each push adds a line with pushTo and outcome.
SIGINT or SIGTERM ends the backend.

Examples:
  A backend on a given port, and a client that trusts it:
    quorvane-backend --port 8443 --certificates .
    curl --cacert authority.pem -d '{"token": "abc"}' https://localhost:8443/devices/DEV-1/token

  Overloaded for tokens; for everything else, silent for two seconds and then broken:
    quorvane-backend --reply '/token=503' --header '/token=Retry-After: 30' \
        --body '/token={"error": "busy"}' --delay '*=2000' --ending '*=truncated'

  Greet every device that uploads its token:
    echo '{"aps": {"alert": "Welcome"}}' > greeting.json
    quorvane-backend --push greeting.json
)";

/// A mistake in the command line: one sentence that names the option.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Removes the folder at the end.
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

/// Bytes that are not UTF-8 are taken for Latin-1, as in old HTTP.
std::string headerText(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const Platform::DecodedCharacter character = Platform::characterOrByte(bytes);
        Platform::appendUTF8(text, character.codePoint);
        bytes.remove_prefix(character.length);
    }
    return text;
}

std::string currentTime()
{
    return Platform::SystemClock().now().utcText();
}

json::object asJSON(const TestBackend::Request& request)
{
    json::object headerFields;
    for (const auto& [name, value] : request.headerFields) {
        // A repeated field is equivalent to one with a list.
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
        // Without a reader there is nothing left to do.
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
            ::kill(::getpid(), SIGTERM);
    }

private:
    std::mutex m_mutex;
};

/// The value for one of the words that an option accepts.
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
    throw UsageError(fmt::format("{}: '{}' is not one of {}", option, word, known));
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

std::string contentOf(std::string_view option, const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw UsageError(fmt::format("{}: the file '{}' cannot be read", option, file));
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Sends the push and returns the line with its outcome.
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

class Arguments {
public:
    Arguments()
    {
        m_parser.footer(footer);
        m_parser.add_option("--port", m_port, "Port on 127.0.0.1 (default: any free port)")->type_name("N");
        m_parser
            .add_option(
                "--certificates", m_folder,
                "Existing folder to write authority.pem and server.pem to (default: a temporary folder, "
                "removed at the end)")
            ->type_name("FOLDER");
        m_parser
            .add_option("--certificate", m_certificate,
                        "Server certificate: good (default), expired, not-yet-valid, wrong-host, "
                        "self-signed or untrusted")
            ->type_name("KIND");
        using Reply = TestBackend::Reply;
        m_parser
            .add_option("--push", m_pushFile,
                        "Push the payload in this file back to every token that a device uploads: to its Web "
                        "Push endpoint, or to the app of this user that runs with --push local")
            ->type_name("FILE");
        m_parser
            .add_option(
                "--push-authority", m_pushAuthority,
                "Certificate authority of the endpoint, as PEM (default: those that the system trusts)")
            ->type_name("FILE");
        addForPath("--reply", "STATUS", "Status of the response, 200 to 599",
                   [](Reply& reply, auto text) { reply.status = numberIn("--reply", text, 200, 599); });
        addForPath("--header", "Name: value", "A header field of the response; may be repeated",
                   addHeaderField);
        addForPath("--body", "TEXT", "Body of the response",
                   [](Reply& reply, auto text) { reply.body = text; });
        addForPath("--delay", "MILLISECONDS", "Time until the response begins", [](Reply& reply, auto text) {
            reply.delay = std::chrono::milliseconds(numberIn("--delay", text, 0, longestDelayMilliseconds));
        });
        addForPath("--ending", "ENDING", "How the response ends, see below", [](Reply& reply, auto text) {
            using enum TestBackend::Ending;
            reply.ending = oneOf<TestBackend::Ending>("--ending", text,
                                                      {{"complete", complete},
                                                       {"closed-before", closedBefore},
                                                       {"truncated", truncated},
                                                       {"reset", reset},
                                                       {"endless", endless},
                                                       {"dripping", dripping}});
        });
    }

    /// Runs until one of `signals` arrives, which are blocked.
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
        using enum TestBackend::Certificate;
        options.certificate = oneOf<TestBackend::Certificate>("--certificate", m_certificate,
                                                              {{"good", good},
                                                               {"expired", expired},
                                                               {"not-yet-valid", notYetValid},
                                                               {"wrong-host", wrongHost},
                                                               {"self-signed", selfSigned},
                                                               {"untrusted", untrusted}});
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
            // The requests need no memory once they are printed.
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

    CLI::App m_parser{"The organization's backend for tests: HTTPS on loopback, which misbehaves on demand.",
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
    // Before the first thread, so that all threads inherit the mask and only sigwait receives the signals.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        return Arguments().run(argc, argv, signals);
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
