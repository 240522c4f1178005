// Checks of the backend's address, connection and certificate. Only with --probe they send a request, which
// leaves a trace on the backend; it never carries credentials. A helper process connects
// (Tools/BackendProbe).

#include "Core/UnicodeText.h"
#include "Platform/Encoding.h"
#include "Platform/Error.h"
#include "Platform/Network/ProxyEnvironment.h"
#include "Platform/SystemClock.h"
#include "Tools/BackendProbe/ProbeResult.h"
#include "Tools/qvctl/Deadline.h"
#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/Doctor/SecondProcess.h"
#include "Tools/qvctl/RequestRehearsal.h"
#include "Tools/qvctl/TimeText.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace Qvctl::Doctor {

namespace {

using BackendProbe::ProbeResult;
using Platform::printable;
using Platform::Network::ProxyEnvironment;
using Platform::Network::SecureURL;

/// Certificates that expire sooner cause a warning.
constexpr std::chrono::days renewalPeriod{14};

/// A connection attempt and its result.
struct Attempt {
    SecureURL server;
    std::optional<ProxyEnvironment> proxy = {};
    ProbeResult result = {};

    [[nodiscard]] bool isFailed(std::string_view step) const { return result.failedStep == step; }
    /// Without the brackets of an IPv6 address.
    [[nodiscard]] std::string host() const
    {
        const std::string host = printable(server.host);
        return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
    }
    [[nodiscard]] std::string endpoint() const { return printable(server.endpoint()); }
    /// A predicate whose subject is the server or proxy.
    [[nodiscard]] std::string connectFailure() const
    {
        return fmt::format("accepts no connections ({}: {})", fmt::join(result.addresses, ", "),
                           result.reason);
    }
    [[nodiscard]] std::string certificate() const
    {
        return fmt::format("The certificate of {}, issued by {},", result.subject, result.issuer);
    }
};

void checkProxy(CheckReport& report, const Attempt& attempt)
{
    if (!attempt.proxy) {
        report.ok("backend.proxy", "No proxy is used.");
        return;
    }
    const std::string& variable = attempt.proxy->variable;
    const std::string subject =
        fmt::format("The proxy {} (from {})", printable(attempt.proxy->endpoint()), variable);
    const std::string fix = fmt::format("Check {}, or add the backend to no_proxy.", variable);
    if (!attempt.proxy->problem.empty())
        report.failed("backend.proxy", attempt.proxy->problem + ".",
                      "Set it to http://HOST:PORT, or unset it.");
    else if (attempt.isFailed("lookUp"))
        report.failed("backend.proxy",
                      fmt::format("{} cannot be resolved: {}.", subject, attempt.result.reason), fix);
    else if (attempt.isFailed("connect"))
        report.failed("backend.proxy", fmt::format("{} {}.", subject, attempt.connectFailure()), fix);
    else
        report.ok("backend.proxy", subject + " accepts connections.");
}

void checkHost(CheckReport& report, const Attempt& attempt)
{
    if (attempt.proxy)
        report.skipped("backend.host", "The proxy resolves the host name.");
    else if (attempt.isFailed("lookUp"))
        report.failed(
            "backend.host",
            fmt::format("The host {} cannot be resolved: {}.", attempt.host(), attempt.result.reason),
            "Check the host name in base_domain, the network and the name servers.");
    else
        report.ok("backend.host", fmt::format("{} resolves to {}.", attempt.host(),
                                              fmt::join(attempt.result.addresses, ", ")));
}

void checkTunnel(CheckReport& report, const Attempt& attempt)
{
    if (attempt.isFailed("tunnel"))
        report.failed("backend.connect", fmt::format("The proxy {}.", attempt.result.reason),
                      fmt::format("Check {}, the proxy's log and whether the proxy allows this device.",
                                  attempt.proxy->variable));
    else
        report.ok("backend.connect", fmt::format("The proxy connects to {}.", attempt.endpoint()));
}

void checkConnection(CheckReport& report, const Attempt& attempt)
{
    constexpr const char* fix =
        "Check the port, that the backend is running, and that no firewall blocks it.";
    std::vector<std::string> others = attempt.result.addresses;
    std::erase(others, attempt.result.address);
    const auto error = static_cast<int>(attempt.result.lastError);
    // A device without IPv4 or IPv6 cannot reach the addresses of that kind; the backend is not at fault.
    const bool isWithoutRoute = error == ENETUNREACH || error == EADDRNOTAVAIL || error == EAFNOSUPPORT;
    const std::string found =
        fmt::format("{} accepts connections at {}", attempt.endpoint(), attempt.result.address);
    if (attempt.proxy)
        checkTunnel(report, attempt);
    else if (attempt.isFailed("connect"))
        report.failed("backend.connect", fmt::format("{} {}.", attempt.endpoint(), attempt.connectFailure()),
                      fix);
    else if (!others.empty() && !isWithoutRoute)
        report.warning("backend.connect",
                       fmt::format("{}, but not at {} ({}).", found, fmt::join(others, ", "),
                                   error != 0 ? Platform::errorText(error) : "no reply in time"),
                       fix);
    else
        report.ok("backend.connect", found + ".");
}

void checkHandshake(CheckReport& report, const Attempt& attempt)
{
    if (attempt.isFailed("handshake"))
        report.failed("backend.tls", fmt::format("{} {}.", attempt.endpoint(), attempt.result.reason),
                      "Check that this is the backend's HTTPS port and that the backend supports TLS 1.2 or "
                      "later.");
    else
        report.ok("backend.tls", fmt::format("{} uses {}.", attempt.endpoint(), attempt.result.protocol));
}

void checkChain(CheckReport& report, const Attempt& attempt)
{
    if (!attempt.result.chainProblem.empty())
        report.failed(
            "backend.certificate", fmt::format("{} {}.", attempt.certificate(), attempt.result.chainProblem),
            "Have the backend send its full certificate chain, from an authority that devices trust, "
            "or add the authority to this device (update-ca-certificates).");
    else
        report.ok("backend.certificate", attempt.certificate() + " is trusted.");
}

void checkName(CheckReport& report, const Attempt& attempt)
{
    const std::string names = attempt.result.names.empty()
                                  ? attempt.result.subject
                                  : fmt::format("{}", fmt::join(attempt.result.names, ", "));
    if (attempt.result.isForOtherHost)
        report.failed("backend.name",
                      fmt::format("{} is for {}, not for {}.", attempt.certificate(), names, attempt.host()),
                      "Check the host in base_domain, or have a certificate issued for it.");
    else
        report.ok("backend.name", fmt::format("The certificate is for {}.", names));
}

void checkDates(CheckReport& report, const Attempt& attempt)
{
    using Platform::Date;
    const Date now = Platform::SystemClock().now();
    const Date begin = dateFromUnixTime(attempt.result.notBefore);
    const Date end = dateFromUnixTime(attempt.result.chainEnd);
    const auto daysTo = [&](Date other) {
        return (other.secondsSinceReferenceDate - now.secondsSinceReferenceDate) /
               std::chrono::seconds(std::chrono::days(1)).count();
    };
    std::string problem;
    if (!attempt.result.outdatedAuthority.empty())
        problem = fmt::format("The certificate of the authority {} has expired or is not valid yet",
                              attempt.result.outdatedAuthority);
    else if (daysTo(begin) > 0)
        problem = fmt::format("{} is not valid before {}", attempt.certificate(), timeText(begin));
    else if (const Date own = dateFromUnixTime(attempt.result.notAfter); daysTo(own) < 0)
        problem = fmt::format("{} expired on {}", attempt.certificate(), timeText(own));
    if (!problem.empty())
        report.failed("backend.dates", fmt::format("{}; the current time is {}.", problem, timeText(now)),
                      "Renew the certificate on the backend, or correct this device's clock.");
    else if (daysTo(end) < renewalPeriod.count())
        report.warning("backend.dates",
                       fmt::format("The certificate, or one in its chain, expires in {:.0f} days, on {}.",
                                   daysTo(end), timeText(end)),
                       "Renew the certificate on the backend.");
    else
        report.ok("backend.dates",
                  fmt::format("The certificate is valid from {} to {}.", timeText(begin), timeText(end)));
}

void checkResponse(CheckReport& report, const Attempt& attempt)
{
    constexpr std::int64_t firstServerError = 500;
    const ProbeResult& result = attempt.result;
    const std::string found = fmt::format("{} answers HEAD with status {} after {} ms.", attempt.endpoint(),
                                          result.status, result.responseMilliseconds);
    if (result.status == 0)
        report.failed("backend.response", fmt::format("{} {}.", attempt.endpoint(), result.responseProblem),
                      "Check that the backend behind the certificate is running, and its log.");
    else if (result.status >= firstServerError)
        report.warning("backend.response", found, "Check the backend and its log.");
    else
        report.ok("backend.response", found);
}

/// A check of the connection, and the checks that it depends on.
struct NetworkCheck {
    std::string_view identifier;
    std::array<std::string_view, 3> needed;
    void (*run)(CheckReport& report, const Attempt& attempt);
};

constexpr NetworkCheck networkChecks[] = {
    {"backend.proxy", {}, &checkProxy},
    {"backend.host", {"backend.proxy"}, &checkHost},
    {"backend.connect", {"backend.host"}, &checkConnection},
    {"backend.tls", {"backend.connect"}, &checkHandshake},
    {"backend.certificate", {"backend.tls", "backend.trust"}, &checkChain},
    {"backend.name", {"backend.tls"}, &checkName},
    {"backend.dates", {"backend.tls"}, &checkDates},
};

constexpr NetworkCheck responseCheck{
    "backend.response", {"backend.certificate", "backend.name", "backend.dates"}, &checkResponse};

/// The address from the policy file or, without a valid one, from the stored snapshot; absent if not set.
std::optional<std::string> baseDomain(const Examination& examination)
{
    if (examination.policy)
        return examination.policy->baseDomain;
    return examination.snapshot ? examination.snapshot->config.baseDomain : std::nullopt;
}

std::optional<SecureURL> checkAddress(Examination& examination)
{
    constexpr const char* fix = "Set base_domain to the host of the backend, such as mdm.example.com.";
    CheckReport& report = examination.report;
    const auto domain = baseDomain(examination);
    if (!examination.policy && !examination.snapshot) {
        if (!report.isPrevented("backend.address", {"policy.file", "policy.permissions", "policy.syntax"}))
            report.skipped("backend.address", "No backend is configured.");
        return std::nullopt;
    }
    const char* source = examination.policy ? "The policy file" : "The stored snapshot";
    if (!domain) {
        if (!report.isPrevented("backend.address", {"policy.values"}, "No backend is configured"))
            report.warning("backend.address", fmt::format("{} does not set base_domain.", source), fix);
        return std::nullopt;
    }
    const CheckedAddress address = checkBackendAddress(*domain);
    if (!address.target) {
        report.failed(
            "backend.address",
            fmt::format("{} has a base_domain that the app cannot use: {}.", source, address.refusal), fix);
        return std::nullopt;
    }
    report.ok("backend.address",
              fmt::format("{} names the backend {}.", source, printable(address.target->endpoint())));
    return address.target;
}

void checkTrust(CheckReport& report, const ProbeResult& found)
{
    if (found.trustProblem.empty())
        report.ok("backend.trust",
                  fmt::format("The trusted certificate authorities are in {}.", found.trustedFile));
    else
        report.failed("backend.trust",
                      fmt::format("The trusted certificate authorities cannot be read from {}: {}.",
                                  found.trustedFile, found.trustProblem),
                      std::getenv("SSL_CERT_FILE") != nullptr ? "Check SSL_CERT_FILE, or unset it."
                                                              : "Install the package ca-certificates.");
}

/// Runs the helper, which connects only if given arguments. Throws `std::runtime_error`, which names the
/// helper, if it returns no result.
ProbeResult runHelper(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout)
{
    const auto folder = std::filesystem::read_symlink(thisProgram).parent_path();
    const std::string program = (folder / QV_BACKEND_PROBE).lexically_normal();
    // The helper obeys the time limit itself; this later one ends a helper that hangs.
    const bool isRequesting = arguments.size() > 3;
    const auto helperTimeout = (isRequesting ? 2 : 1) * timeout + std::chrono::seconds(2);
    const ProcessOutcome outcome = runSecondProcess(program, arguments, helperTimeout);
    if (!outcome.hasEnded)
        throw std::runtime_error(
            fmt::format("{}: no result within {}", program, durationText(helperTimeout)));
    try {
        return boost::json::value_to<ProbeResult>(
            boost::json::parse(outcome.output, {}, {.allow_invalid_utf8 = true}));
    } catch (const std::exception&) {
        const auto printed = Core::trimmed(outcome.output);
        throw std::runtime_error(
            fmt::format("{}: {}", program, printed.empty() ? "it was killed" : printable(printed)));
    }
}

} // namespace

void examineBackend(Examination& examination)
{
    CheckReport& report = examination.report;
    const auto timeout = examination.limits.timeout;
    const auto server = checkAddress(examination);
    std::optional<Attempt> attempt;
    std::vector<std::string> arguments;
    if (server && !examination.limits.isOffline) {
        attempt = Attempt{.server = *server};
        attempt->proxy = ProxyEnvironment::forHost(attempt->host());
        arguments = {fmt::format("https://{}/", server->endpoint()), std::to_string(timeout.count()),
                     attempt->proxy ? attempt->proxy->scheme : ""};
        if (examination.limits.isProbing)
            arguments.push_back(Platform::Network::parseSecureURL(*baseDomain(examination)).url);
    }
    std::string_view missing;
    try {
        const ProbeResult found = runHelper(arguments, timeout);
        checkTrust(report, found);
        if (attempt)
            attempt->result = found;
    } catch (const std::exception& error) {
        report.failed("backend.trust", fmt::format("The backend cannot be checked: {}.", error.what()),
                      "Reinstall the package qvctl.");
        if (attempt)
            missing = "backend.trust";
    }
    const auto run = [&](const NetworkCheck& check) {
        if (report.isPrevented(check.identifier, {"backend.address", missing, check.needed[0],
                                                  check.needed[1], check.needed[2]}))
            return;
        if (attempt)
            check.run(report, *attempt);
        else
            report.skipped(check.identifier,
                           server ? "Not checked because of --offline." : "No backend is configured.");
    };
    for (const NetworkCheck& check : networkChecks)
        run(check);
    if (examination.limits.isProbing)
        run(responseCheck);
}

} // namespace Qvctl::Doctor
