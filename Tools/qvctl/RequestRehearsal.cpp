#include "Tools/qvctl/RequestRehearsal.h"

#include "Core/APIClient.h"
#include "Core/APIError.h"
#include "Core/Logger.h"
#include "Core/ManagedKeys.h"
#include "Core/UnicodeText.h"
#include "Platform/ASCII.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Encoding.h"
#include "PushNotifications/RemoteNotificationHandler.h"

#include <fmt/format.h>

#include <deque>
#include <memory>
#include <utility>

namespace Qvctl {

namespace {

using Core::APIError;
using Core::ValidatedConfig;

// Used for the values that are not being tried.
constexpr const char* someDomain = "https://localhost";
constexpr const char* someDeviceId = "DEVICE";

class FixedConfig final : public Core::APIClientConfigProvider {
public:
    explicit FixedConfig(const ValidatedConfig& config) : m_config(config) {}
    [[nodiscard]] std::optional<std::string> baseDomain() const override { return m_config.baseDomain; }
    [[nodiscard]] std::optional<std::string> apiKey() const override { return m_config.apiKey; }
    [[nodiscard]] std::optional<std::string> deviceId() const override { return m_config.deviceId; }

private:
    const ValidatedConfig& m_config;
};

/// Drops the client's log lines; the caller reports failures itself.
class NoLog final : public Core::LogSink {
public:
    void write(std::string_view, Core::LogLevel, Core::LogPrivacy, const Platform::LogHandle&) override {}
};

/// Runs its work on the thread that calls `run()`.
class Queue final : public Platform::DispatchQueue {
public:
    void async(Work work) override { m_items.push_back(std::move(work)); }
    void run()
    {
        for (; !m_items.empty(); m_items.pop_front())
            m_items.front()();
    }

private:
    std::deque<Work> m_items;
};

/// Checks requests as the transport does before sending, and completes them with an empty response.
class CheckingSession final : public Platform::URLSession {
public:
    explicit CheckingSession(Queue& queue) : m_queue(queue) {}

    void start(Platform::URLRequest request, Completion completion) override
    {
        Outcome outcome = check(request);
        m_queue.async(
            [outcome = std::move(outcome), completion = std::move(completion)] { completion(outcome); });
    }
    /// The URL of the last request; absent if the check failed.
    [[nodiscard]] const std::optional<Platform::Network::SecureURL>& target() const { return m_target; }

private:
    Outcome check(Platform::URLRequest& request)
    {
        try {
            m_target = Platform::Network::parseSecureURL(request.url);
            Platform::Network::cleanRequest(request);
            return Platform::URLResponse{.body = {}, .http = Platform::HTTPURLResponse{.statusCode = 200}};
        } catch (const Platform::URLError& error) {
            m_target.reset();
            return error;
        }
    }

    Queue& m_queue;
    std::optional<Platform::Network::SecureURL> m_target;
};

bool isURLCharacter(char character)
{
    return Platform::isASCIILetter(character) || Platform::isASCIIDigit(character) ||
           std::string_view("-._~:/?#[]@!$&'()*+,;=%").find(character) != std::string_view::npos;
}

/// Why the client could not use `text` in a URL.
std::string invalidURLReason(std::string_view text)
{
    while (!text.empty()) {
        const auto [character, length] = Platform::characterOrByte(text);
        const std::string_view bytes = text.substr(0, length);
        if (Core::isQuotationMark(character))
            return "it contains a quotation mark: " + std::string(bytes);
        if (character == ' ')
            return "it contains a space";
        if (Platform::isUnprintable(character))
            return "it contains a line break or another unprintable character";
        if (character >= 0x80)
            return fmt::format("it contains a character that is not ASCII: {}", bytes);
        if (!isURLCharacter(text.front()))
            return fmt::format("it contains a character that is not allowed in a URL: {}", bytes);
        text.remove_prefix(length);
    }
    return "it is not a valid URL; check the port and each \"%\"";
}

/// Turns a sentence into a clause: lower-case, without a full stop.
std::string clause(std::string sentence)
{
    if (!sentence.empty())
        sentence.front() = Platform::lowerCaseASCII(sentence.front());
    if (sentence.ends_with('.'))
        sentence.pop_back();
    return sentence;
}

/// The result of building and checking a request.
struct UploadAttempt {
    std::optional<Platform::Network::SecureURL> target;
    /// The transport's reason, as a clause; empty if the client could not build the URL.
    std::string refusal;
};

Platform::Task<void> upload(const Core::APIClient& client, std::string path, UploadAttempt& attempt)
{
    try {
        auto request = client.post(path, std::optional<Platform::Data>());
        static_cast<void>(co_await std::move(request));
    } catch (const APIError& error) {
        if (const auto* failure = std::get_if<APIError::NetworkFailure>(&error.theCase()))
            attempt.refusal = clause(failure->underlying.localizedDescription);
    }
}

/// Builds and checks the upload of a device token.
UploadAttempt attemptUpload(const ValidatedConfig& config)
{
    Queue queue;
    CheckingSession session(queue);
    Core::Logger logger(std::make_unique<NoLog>(), std::nullopt);
    const FixedConfig provider(config);
    const Core::APIClient client(provider, session, Core::JSONDecoder(), Core::JSONEncoder(), logger);
    UploadAttempt attempt;
    const std::string deviceId = config.deviceId.value_or(someDeviceId);
    Platform::spawn(
        queue, upload(client, PushNotifications::PushNotificationRoutes::deviceToken(deviceId), attempt));
    queue.run();
    attempt.target = session.target();
    return attempt;
}

} // namespace

CheckedAddress checkBackendAddress(const std::string& baseDomain)
{
    if (const auto scheme = Core::unsupportedScheme(baseDomain))
        return {.target = {},
                .refusal = fmt::format("it has the scheme \"{}\" where the host belongs", *scheme)};
    ValidatedConfig config;
    config.baseDomain = baseDomain;
    const UploadAttempt attempt = attemptUpload(config);
    if (attempt.target)
        return {.target = attempt.target, .refusal = {}};
    return {.target = {},
            .refusal = attempt.refusal.empty() ? invalidURLReason(baseDomain) : attempt.refusal};
}

std::optional<Platform::Network::SecureURL> uploadAddress(const ValidatedConfig& config)
{
    return attemptUpload(config).target;
}

std::vector<UnusableValue> unusableValues(const ValidatedConfig& config)
{
    std::vector<UnusableValue> values;
    for (const Core::ManagedKey& key : Core::managedKeys()) {
        const auto* member = std::get_if<Core::ManagedKey::TextMember>(&key.member);
        if (member == nullptr || !(config.**member))
            continue;
        ValidatedConfig tried;
        tried.baseDomain = someDomain;
        tried.** member = config.**member;
        if (const UploadAttempt attempt = attemptUpload(tried); !attempt.target)
            values.push_back(
                {key.name, attempt.refusal.empty() ? invalidURLReason(*(config.**member)) : attempt.refusal});
    }
    return values;
}

} // namespace Qvctl
