// From the address of the backend to the end of the handshake. No request is made: it would need the
// credentials, and leave its trace there. A helper connects (Tools/BackendProbe).

#include "Core/UnicodeText.h"
#include "Platform/Encoding.h"
#include "Platform/Error.h"
#include "Platform/Network/ProxyEnvironment.h"
#include "Platform/SystemClock.h"
#include "Tools/BackendProbe/ProbeResult.h"
#include "Tools/qvctl/Doctor/Deadline.h"
#include "Tools/qvctl/Doctor/Examination.h"
#include "Tools/qvctl/Doctor/SecondProcess.h"
#include "Tools/qvctl/Policy/RequestRehearsal.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace Qvctl::Doctor {

namespace {

using namespace Qvctl::Policy;
using BackendProbe::ProbeResult;
using Platform::printable;
using Platform::Network::ProxyEnvironment;
using Platform::Network::SecureURL;

/// A certificate with less than this left is worth a warning.
constexpr std::chrono::days renewalTime{14};

/// How the helper connected to the backend.
struct Way {
    SecureURL server;
    std::optional<ProxyEnvironment> proxy = {};
    ProbeResult found = {};

    [[nodiscard]] bool isFailed(std::string_view step) const { return found.failedStep == step; }
    /// Without the brackets of an IPv6 address.
    [[nodiscard]] std::string host() const
    {
        const std::string host = printable(server.host);
        return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
    }
    [[nodiscard]] std::string endpoint() const { return printable(server.endpoint()); }
    /// A clause.
    [[nodiscard]] std::string connectFailure() const
    {
        return fmt::format("takes no connection ({}: {})", fmt::join(found.addresses, ", "), found.reason);
    }
    [[nodiscard]] std::string certificate() const
    {
        return fmt::format("The certificate of {}, issued by {},", found.subject, found.issuer);
    }
};

void checkProxy(CheckReport& report, const Way& way)
{
    if (!way.proxy) {
        report.ok("backend.proxy", "The way to the backend is direct.");
        return;
    }
    const std::string& variable = way.proxy->variable;
    const std::string subject = fmt::format("The proxy {} of {}", printable(way.proxy->endpoint()), variable);
    const std::string fix = fmt::format("Check {}, or name the backend in no_proxy.", variable);
    if (!way.proxy->problem.empty())
        report.failed("backend.proxy", way.proxy->problem + ".",
                      "Write it as http://HOST:PORT, or unset it.");
    else if (way.isFailed("lookUp"))
        report.failed("backend.proxy", fmt::format("{} has no address: {}.", subject, way.found.reason), fix);
    else if (way.isFailed("connect"))
        report.failed("backend.proxy", fmt::format("{} {}.", subject, way.connectFailure()), fix);
    else
        report.ok("backend.proxy", subject + " takes connections.");
}

void checkHost(CheckReport& report, const Way& way)
{
    if (way.proxy)
        report.skipped("backend.host", "The proxy looks the host up.");
    else if (way.isFailed("lookUp"))
        report.failed("backend.host",
                      fmt::format("The host {} has no address: {}.", way.host(), way.found.reason),
                      "Check the name in base_domain, the network and the name servers.");
    else
        report.ok("backend.host",
                  fmt::format("{} has the address {}.", way.host(), fmt::join(way.found.addresses, ", ")));
}

void checkTunnel(CheckReport& report, const Way& way)
{
    if (way.isFailed("tunnel"))
        report.failed("backend.connect", fmt::format("The proxy {}.", way.found.reason),
                      fmt::format("Check the log of the proxy, {} and the rights of this device there.",
                                  way.proxy->variable));
    else
        report.ok("backend.connect", fmt::format("The proxy makes a way to {}.", way.endpoint()));
}

void checkConnection(CheckReport& report, const Way& way)
{
    constexpr const char* fix =
        "Check the port, that the backend runs there, and that no firewall is in the way.";
    std::vector<std::string> others = way.found.addresses;
    std::erase(others, way.found.address);
    const auto error = static_cast<int>(way.found.lastError);
    // This device may have no route to addresses of one kind, which is not the backend's fault.
    const bool isWithoutRoute = error == ENETUNREACH || error == EADDRNOTAVAIL || error == EAFNOSUPPORT;
    const std::string found = fmt::format("{} takes connections at {}", way.endpoint(), way.found.address);
    if (way.proxy)
        checkTunnel(report, way);
    else if (way.isFailed("connect"))
        report.failed("backend.connect", fmt::format("{} {}.", way.endpoint(), way.connectFailure()), fix);
    else if (!others.empty() && !isWithoutRoute)
        report.warning("backend.connect",
                       fmt::format("{}, but not everywhere ({}: {}).", found, fmt::join(others, ", "),
                                   error != 0 ? Platform::errorText(error) : "no quick answer"),
                       fix);
    else
        report.ok("backend.connect", found + ".");
}

void checkHandshake(CheckReport& report, const Way& way)
{
    if (way.isFailed("handshake"))
        report.failed("backend.tls", fmt::format("{} {}.", way.endpoint(), way.found.reason),
                      "Check that this is the port of the backend for https, and that it speaks TLS 1.2 "
                      "or later.");
    else
        report.ok("backend.tls", fmt::format("{} speaks {}.", way.endpoint(), way.found.protocol));
}

void checkChain(CheckReport& report, const Way& way)
{
    if (!way.found.chainProblem.empty())
        report.failed("backend.certificate", fmt::format("{} {}.", way.certificate(), way.found.chainProblem),
                      "Have the server send its whole chain from an authority that devices trust, or add "
                      "the authority to this device (update-ca-certificates).");
    else
        report.ok("backend.certificate", way.certificate() + " is trusted.");
}

void checkName(CheckReport& report, const Way& way)
{
    const std::string names =
        way.found.names.empty() ? way.found.subject : fmt::format("{}", fmt::join(way.found.names, ", "));
    if (way.found.isForOtherHost)
        report.failed("backend.name",
                      fmt::format("{} is for {}, not for {}.", way.certificate(), names, way.host()),
                      "Check the host in base_domain, or have the certificate issued for it.");
    else
        report.ok("backend.name", fmt::format("The certificate is for {}.", names));
}

void checkDates(CheckReport& report, const Way& way)
{
    using Platform::Date;
    const auto date = [](std::int64_t secondsSince1970) {
        return Date::fromSystemTime(std::chrono::system_clock::from_time_t(secondsSince1970));
    };
    const Date now = Platform::SystemClock().now();
    const Date begin = date(way.found.notBefore);
    const Date end = date(way.found.chainEnd);
    const auto daysTo = [&](Date other) {
        return (other.secondsSinceReferenceDate - now.secondsSinceReferenceDate) /
               std::chrono::seconds(std::chrono::days(1)).count();
    };
    std::string problem;
    if (!way.found.outdatedAuthority.empty())
        problem = fmt::format("The certificate of the authority {} is out of its time",
                              way.found.outdatedAuthority);
    else if (daysTo(begin) > 0)
        problem = fmt::format("{} is not valid before {}", way.certificate(), timeText(begin));
    else if (daysTo(date(way.found.notAfter)) < 0)
        problem = fmt::format("{} expired on {}", way.certificate(), timeText(date(way.found.notAfter)));
    if (!problem.empty())
        report.failed("backend.dates", fmt::format("{}; it is {} now.", problem, timeText(now)),
                      "Renew it on the backend, or put the clock of this device right.");
    else if (daysTo(end) < renewalTime.count())
        report.warning("backend.dates",
                       fmt::format("The certificate, or one that it depends on, expires in {:.0f} days, "
                                   "on {}.",
                                   daysTo(end), timeText(end)),
                       "Renew it on the backend.");
    else
        report.ok("backend.dates",
                  fmt::format("The certificate is valid from {} to {}.", timeText(begin), timeText(end)));
}

/// A check that needs the network, and those that it waits for.
struct NetworkCheck {
    std::string_view identifier;
    std::array<std::string_view, 2> needed;
    void (*make)(CheckReport& report, const Way& way);
};

/// In the order of the chain.
constexpr NetworkCheck networkChecks[] = {
    {"backend.proxy", {}, &checkProxy},
    {"backend.host", {"backend.proxy"}, &checkHost},
    {"backend.connect", {"backend.host"}, &checkConnection},
    {"backend.tls", {"backend.connect"}, &checkHandshake},
    {"backend.certificate", {"backend.tls", "backend.trust"}, &checkChain},
    {"backend.name", {"backend.tls"}, &checkName},
    {"backend.dates", {"backend.tls"}, &checkDates},
};

/// The address that the application has, or is about to have; absent when it is known to have none.
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
            report.skipped("backend.address", "No configuration names a backend.");
        return std::nullopt;
    }
    const char* source = examination.policy ? "The policy" : "The stored snapshot";
    if (!domain) {
        if (!report.isPrevented("backend.address", {"policy.values"}, "No backend is named"))
            report.warning("backend.address", fmt::format("{} names no backend.", source), fix);
        return std::nullopt;
    }
    const CheckedAddress address = checkBackendAddress(*domain);
    if (!address.target) {
        report.failed(
            "backend.address",
            fmt::format("{} has a base_domain that the app cannot use: {}.", source, address.refusal), fix);
        return std::nullopt;
    }
    report.ok("backend.address", fmt::format("{} names {}.", source, printable(address.target->endpoint())));
    return address.target;
}

void checkTrust(CheckReport& report, const ProbeResult& found)
{
    if (found.trustProblem.empty())
        report.ok("backend.trust", fmt::format("The authorities to trust are in {}.", found.trustedFile));
    else
        report.failed("backend.trust",
                      fmt::format("The authorities to trust cannot be read from {}: {}.", found.trustedFile,
                                  found.trustProblem),
                      std::getenv("SSL_CERT_FILE") != nullptr ? "Check SSL_CERT_FILE, or unset it."
                                                              : "Install the package ca-certificates.");
}

/// Runs the helper, which connects if there are arguments. Throws `std::runtime_error`, which names the
/// helper, when it has no result.
ProbeResult runHelper(const std::vector<std::string>& arguments, std::chrono::milliseconds timeout)
{
    const auto folder = std::filesystem::read_symlink(thisProgram).parent_path();
    const std::string program = (folder / QV_BACKEND_PROBE).lexically_normal();
    // The helper keeps to the time limit itself. This limit ends a helper that hangs.
    const auto patience = timeout + std::chrono::seconds(2);
    const ProcessOutcome outcome = runSecondProcess(program, arguments, patience);
    if (!outcome.hasEnded)
        throw std::runtime_error(fmt::format("{}: no result within {}", program, durationText(patience)));
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
    std::optional<Way> way;
    std::vector<std::string> arguments;
    if (server && !examination.limits.isOffline) {
        way = Way{.server = *server};
        way->proxy = ProxyEnvironment::forHost(way->host());
        arguments = {fmt::format("https://{}/", server->endpoint()), std::to_string(timeout.count()),
                     way->proxy ? way->proxy->scheme : ""};
    }
    std::string_view missing;
    try {
        const ProbeResult found = runHelper(arguments, timeout);
        checkTrust(report, found);
        if (way)
            way->found = found;
    } catch (const std::exception& error) {
        report.failed("backend.trust", fmt::format("The backend cannot be examined: {}.", error.what()),
                      "Install the package qvctl again.");
        if (way)
            missing = "backend.trust";
    }
    for (const NetworkCheck& check : networkChecks) {
        if (report.isPrevented(check.identifier,
                               {"backend.address", missing, check.needed[0], check.needed[1]}))
            continue;
        if (way)
            check.make(report, *way);
        else
            report.skipped(check.identifier,
                           server ? "The network is left alone (--offline)." : "No backend is named.");
    }
}

} // namespace Qvctl::Doctor
