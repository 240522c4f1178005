#include "Tools/qvctl/LastOutcomes.h"

#include "Core/Constants.h"
#include "Platform/URLSession.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/TimeText.h"

#include <fmt/format.h>

namespace Qvctl {

namespace {

namespace json = boost::json;
using Platform::Outcome;
using Kind = Outcome::Kind;
using Result = Outcome::Result;

Styled uploadText(const Outcome& upload)
{
    if (upload.result == Result::succeeded)
        return styled("{} with status {}", toned(Tone::good, "accepted"), upload.code);
    auto failed = toned(Tone::bad, "failed");
    switch (upload.kind) {
    case Kind::status:
        return styled("{} with status {}", failed, upload.code);
    case Kind::network:
        return styled("{}: {}", failed, networkErrorClause(upload.code));
    case Kind::address:
        return styled("{}: the configuration allows no request", failed);
    case Kind::response:
        return styled("{}: the response was not HTTP", failed);
    default:
        return failed;
    }
}

Styled pushText(const Outcome& push)
{
    const auto result = push.result == Result::succeeded  ? toned(Tone::good, "accepted")
                        : push.result == Result::deferred ? toned(Tone::warning, "deferred")
                                                          : toned(Tone::bad, "refused");
    return push.kind == Kind::none ? styled("{}, its content could not be read", result)
                                   : styled("{}, {}", outcomeName(push.kind), result);
}

template <typename Text>
void printOutcome(std::string_view label, const std::optional<Outcome>& outcome, const Text& text)
{
    printRow(label, outcome ? styled("{}, {}", text(*outcome), timeWithAge(outcome->time))
                            : styled("none recorded"));
}

json::value timeJSON(const std::optional<Outcome>& outcome)
{
    return outcome ? json::value(outcome->time.utcText()) : json::value();
}

json::value kindJSON(const std::optional<Outcome>& outcome)
{
    return outcome && outcome->kind != Kind::none ? json::value(outcomeName(outcome->kind)) : json::value();
}

json::value resultJSON(const std::optional<Outcome>& outcome)
{
    return outcome ? json::value(outcomeName(outcome->result)) : json::value();
}

} // namespace

std::optional<Outcome> outcomeOf(const Platform::Outcomes& outcomes, Outcome::Subject subject)
{
    const auto found = outcomes.find(subject);
    return found != outcomes.end() ? std::optional(found->second) : std::nullopt;
}

bool isUpload(const Platform::Network::ExchangeRecord& record, std::string_view url)
{
    return record.method == Core::Constants::HTTPRequestMethods::post &&
           record.pathSegmentCount == Platform::Network::pathSegmentCount(url);
}

std::string networkErrorClause(std::int64_t code)
{
    using Code = Platform::URLError::Code;
    switch (static_cast<Code>(code)) {
    case Code::cancelled:
        return "the app exited before the response arrived";
    case Code::timedOut:
        return "it timed out";
    case Code::cannotFindHost:
        return "the host was not found";
    case Code::cannotConnectToHost:
        return "the connection failed";
    case Code::networkConnectionLost:
        return "the connection was lost";
    case Code::secureConnectionFailed:
        return "no secure connection could be established";
    case Code::serverCertificateHasBadDate:
    case Code::serverCertificateUntrusted:
        return "the certificate was rejected";
    default:
        return fmt::format("error {}", code);
    }
}

std::string configurationErrorClause(Kind kind)
{
    switch (kind) {
    case Kind::untrusted:
        return "the policy file was not trusted";
    case Kind::unreadable:
        return "the policy file could not be read";
    case Kind::malformed:
        return "the policy file could not be parsed";
    case Kind::notStored:
        return "the configuration could not be stored";
    default:
        return "the configuration could not be applied";
    }
}

void printOutcomes(const Platform::Outcomes& outcomes)
{
    using Subject = Outcome::Subject;
    printOutcome("last upload", outcomeOf(outcomes, Subject::upload), uploadText);
    printOutcome("last push", outcomeOf(outcomes, Subject::push), pushText);
    printOutcome("last error", outcomeOf(outcomes, Subject::configurationError),
                 [](const Outcome& error) { return configurationErrorClause(error.kind); });
}

void addOutcomes(json::object& object, const Platform::Outcomes& outcomes)
{
    const auto upload = outcomeOf(outcomes, Outcome::Subject::upload);
    const auto push = outcomeOf(outcomes, Outcome::Subject::push);
    const auto error = outcomeOf(outcomes, Outcome::Subject::configurationError);
    const auto codeIf = [&](bool isKnown) {
        return upload && isKnown && upload->code != 0 ? json::value(upload->code) : json::value();
    };
    const bool isNetworkError = upload && upload->kind == Kind::network;
    object["lastUpload"] = {{"time", timeJSON(upload)},
                            {"result", resultJSON(upload)},
                            {"cause", kindJSON(upload)},
                            {"statusCode", codeIf(!isNetworkError)},
                            {"errorCode", codeIf(isNetworkError)}};
    object["lastPush"] = {{"time", timeJSON(push)}, {"kind", kindJSON(push)}, {"result", resultJSON(push)}};
    object["lastConfigurationError"] = {{"time", timeJSON(error)}, {"kind", kindJSON(error)}};
}

} // namespace Qvctl
