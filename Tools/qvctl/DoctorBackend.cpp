// From the address of the backend to the end of the handshake. No request is made: it would need the
// credentials, and leave its trace there.

#include "Platform/Encoding.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tools/qvctl/Doctor.h"
#include "Tools/qvctl/NetworkSteps.h"
#include "Tools/qvctl/ProxySettings.h"
#include "Tools/qvctl/RequestRehearsal.h"
#include "Tools/qvctl/TLSProbe.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

namespace Qvctl {

namespace {

using Platform::Storage::FileDescriptor;
using ProblemKind = CertificateProblem::Kind;

/// A certificate with less than this left is worth a warning.
constexpr std::chrono::days renewalTime{14};

// Where the application's library has its authorities from unless the environment says otherwise.
constexpr const char* systemCertificateFile = "/etc/ssl/certs/ca-certificates.crt";
constexpr const char* systemCertificateFolder = "/etc/ssl/certs";

/// What needs the network, in the order of the chain.
constexpr std::array<std::string_view, 7> networkChecks{
    "backend.proxy",       "backend.host", "backend.connect", "backend.tls",
    "backend.certificate", "backend.name", "backend.dates"};
/// Those of them that need a handshake.
constexpr std::size_t handshakeCheckCount = 4;

std::string environment(const char* name, const char* otherwise)
{
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : otherwise;
}

/// The way to the backend, step by step.
class BackendWay {
public:
    BackendWay(Findings& findings, const TLSProbe& probe, HostAndPort server,
               std::chrono::milliseconds timeout)
        : m_findings(findings), m_probe(probe), m_server(std::move(server)), m_timeout(timeout)
    {}

    void examine()
    {
        const auto proxy = checkProxy();
        if (!proxy)
            connectDirectly();
        else
            connectThrough(*proxy);
        if (m_socket)
            shakeHands();
        else
            skipHandshake("backend.connect");
    }

private:
    std::optional<ProxySettings> checkProxy();
    void connectDirectly();
    void connectThrough(const ProxySettings& proxy);
    void shakeHands();
    void checkChain(const ServerIdentity& identity);
    void checkName(const ServerIdentity& identity);
    void checkDates(const ServerIdentity& identity);
    void skipHandshake(std::string_view cause);

    Findings& m_findings;
    const TLSProbe& m_probe;
    const HostAndPort m_server;
    const std::chrono::milliseconds m_timeout;
    /// Once it leads to the backend.
    FileDescriptor m_socket;
};

std::string reasonsOf(const ConnectionAttempts& attempts, bool isTellingMissingRoutes)
{
    std::string text;
    for (const auto& failure : attempts.failures) {
        if (isTellingMissingRoutes || !failure.isWithoutRoute)
            text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", failure.address, failure.reason);
    }
    return text;
}

std::optional<ProxySettings> BackendWay::checkProxy()
{
    std::optional<ProxySettings> proxy;
    try {
        proxy = ProxySettings::fromEnvironment(m_server.host);
    } catch (const StepError& error) {
        m_findings.failed("backend.proxy", fmt::format("{}.", error.what()),
                          "Write it as http://HOST:PORT, or unset it.");
        return proxy;
    }
    if (!proxy) {
        m_findings.ok("backend.proxy", "The way to the backend is direct.");
        return proxy;
    }
    const std::string subject = fmt::format("The proxy {} of {}", proxy->server.text(), proxy->variable);
    const std::string mend = fmt::format("Check {}, or name the backend in no_proxy.", proxy->variable);
    try {
        auto attempts = connectToAny(lookUp(proxy->server, m_timeout), m_timeout);
        m_socket = std::move(attempts.socket);
        if (m_socket)
            m_findings.ok("backend.proxy", subject + " takes connections.");
        else
            m_findings.failed("backend.proxy",
                              fmt::format("{} takes no connection ({}).", subject, reasonsOf(attempts, true)),
                              mend);
    } catch (const StepError& error) {
        m_findings.failed("backend.proxy", fmt::format("{} has no address: {}.", subject, error.what()),
                          mend);
    }
    return proxy;
}

void BackendWay::connectDirectly()
{
    std::vector<SocketAddress> addresses;
    if (!m_findings.isPrevented("backend.host", {"backend.proxy"})) {
        try {
            addresses = lookUp(m_server, m_timeout);
            std::string texts;
            for (const SocketAddress& address : addresses)
                texts += (texts.empty() ? "" : ", ") + address.text();
            m_findings.ok("backend.host", fmt::format("{} has the address {}.", m_server.host, texts));
        } catch (const StepError& error) {
            m_findings.failed("backend.host",
                              fmt::format("The host {} has no address: {}.", m_server.host, error.what()),
                              "Check the name in base_domain, the network and the name servers.");
        }
    }
    if (m_findings.isPrevented("backend.connect", {"backend.host"}))
        return;
    constexpr const char* mend =
        "Check the port, that the backend runs there, and that no firewall is in the way.";
    auto attempts = connectToAny(addresses, m_timeout);
    m_socket = std::move(attempts.socket);
    if (!m_socket)
        m_findings.failed(
            "backend.connect",
            fmt::format("{} takes no connection ({}).", m_server.text(), reasonsOf(attempts, true)), mend);
    else if (const std::string reasons = reasonsOf(attempts, false); !reasons.empty())
        m_findings.warning("backend.connect",
                           fmt::format("{} takes connections at {}, but not everywhere ({}).",
                                       m_server.text(), attempts.address, reasons),
                           mend);
    else
        m_findings.ok("backend.connect",
                      fmt::format("{} takes connections at {}.", m_server.text(), attempts.address));
}

void BackendWay::connectThrough(const ProxySettings& proxy)
{
    if (m_findings.isPrevented("backend.host", {"backend.proxy"})) {
        m_findings.isPrevented("backend.connect", {"backend.host"});
        return;
    }
    m_findings.skipped("backend.host", "The proxy looks the host up.");
    if (proxy.scheme != "http") {
        m_findings.skipped("backend.connect",
                           fmt::format("Nothing is known beyond a proxy that is spoken to in {}.",
                                       Platform::printable(proxy.scheme)));
        m_socket = FileDescriptor();
        return;
    }
    try {
        openTunnel(m_socket.get(), m_server, proxy.authorization, m_timeout);
        m_findings.ok("backend.connect", fmt::format("The proxy makes a way to {}.", m_server.text()));
    } catch (const StepError& error) {
        m_findings.failed("backend.connect", fmt::format("The proxy {}.", error.what()),
                          fmt::format("Check the log of the proxy, {} and the rights of this device there.",
                                      proxy.variable));
        m_socket = FileDescriptor();
    }
}

void BackendWay::skipHandshake(std::string_view cause)
{
    for (auto check = networkChecks.end() - handshakeCheckCount; check != networkChecks.end(); ++check) {
        if (*check != cause && !m_findings.isPrevented(*check, {cause}))
            m_findings.skipped(*check, "There is no direct way to the backend.");
    }
}

void BackendWay::shakeHands()
{
    try {
        const ServerIdentity identity = m_probe.shakeHands(m_socket.get(), m_server.host, m_timeout);
        m_findings.ok("backend.tls", fmt::format("{} speaks {}.", m_server.text(), identity.protocol));
        checkChain(identity);
        checkName(identity);
        checkDates(identity);
    } catch (const StepError& error) {
        m_findings.failed("backend.tls", fmt::format("{} {}.", m_server.text(), error.what()),
                          "Check that this is the port of the backend for https, and that it speaks TLS 1.2 "
                          "or later.");
        skipHandshake("backend.tls");
    }
}

const CertificateProblem* find(const ServerIdentity& identity, ProblemKind kind)
{
    const auto found = std::find_if(identity.problems.begin(), identity.problems.end(),
                                    [=](const CertificateProblem& problem) { return problem.kind == kind; });
    return found != identity.problems.end() ? &*found : nullptr;
}

std::string certificateText(const ServerIdentity& identity)
{
    return fmt::format("The certificate of {}, issued by {},", identity.subject, identity.issuer);
}

void BackendWay::checkChain(const ServerIdentity& identity)
{
    if (m_findings.isPrevented("backend.certificate", {"backend.trust"}))
        return;
    if (const CertificateProblem* problem = find(identity, ProblemKind::chain))
        m_findings.failed("backend.certificate",
                          fmt::format("{} {}.", certificateText(identity), verificationText(problem->code)),
                          "Have the server send its whole chain from an authority that devices trust, or add "
                          "the authority to this device (update-ca-certificates).");
    else
        m_findings.ok("backend.certificate", certificateText(identity) + " is trusted.");
}

void BackendWay::checkName(const ServerIdentity& identity)
{
    const std::string names =
        identity.names.empty() ? identity.subject : fmt::format("{}", fmt::join(identity.names, ", "));
    if (find(identity, ProblemKind::name) != nullptr)
        m_findings.failed(
            "backend.name",
            fmt::format("{} is for {}, not for {}.", certificateText(identity), names, m_server.host),
            "Check the host in base_domain, or have the certificate issued for it.");
    else
        m_findings.ok("backend.name", fmt::format("The certificate is for {}.", names));
}

bool isBefore(Platform::Date left, Platform::Date right)
{
    return left.secondsSinceReferenceDate < right.secondsSinceReferenceDate;
}

void BackendWay::checkDates(const ServerIdentity& identity)
{
    const Platform::Date now = Platform::SystemClock().now();
    const CertificateProblem* problem = find(identity, ProblemKind::date);
    const double daysLeft = (identity.chainEnd.secondsSinceReferenceDate - now.secondsSinceReferenceDate) /
                            std::chrono::seconds(std::chrono::days(1)).count();
    constexpr const char* mend = "Renew it on the backend, or put the clock of this device right.";
    if (problem != nullptr && !problem->isOfServer)
        m_findings.failed("backend.dates",
                          fmt::format("The certificate of the authority {} is out of its time; it is {} now.",
                                      problem->subject, timeText(now)),
                          mend);
    else if (problem != nullptr && isBefore(now, identity.notBefore))
        m_findings.failed("backend.dates",
                          fmt::format("{} is not valid before {}; it is {} now.", certificateText(identity),
                                      timeText(identity.notBefore), timeText(now)),
                          mend);
    else if (problem != nullptr)
        m_findings.failed("backend.dates",
                          fmt::format("{} expired on {}; it is {} now.", certificateText(identity),
                                      timeText(identity.notAfter), timeText(now)),
                          mend);
    else if (daysLeft < renewalTime.count())
        m_findings.warning("backend.dates",
                           fmt::format("The certificate, or one that it depends on, expires in {:.0f} days, "
                                       "on {}.",
                                       daysLeft, timeText(identity.chainEnd)),
                           "Renew it on the backend.");
    else
        m_findings.ok("backend.dates",
                      fmt::format("The certificate is valid from {} to {}.", timeText(identity.notBefore),
                                  timeText(identity.chainEnd)));
}

/// The address that the application has, or is about to have; absent when it is known to have none.
std::optional<std::string> baseDomain(const Examination& examination)
{
    if (examination.policy)
        return examination.policy->baseDomain;
    return examination.snapshot ? examination.snapshot->baseDomain : std::nullopt;
}

/// As the sockets take it.
HostAndPort serverOf(const Platform::Network::SecureURL& url)
{
    HostAndPort server{.host = url.host, .port = 0};
    if (server.host.starts_with('[') && server.host.ends_with(']'))
        server.host = server.host.substr(1, server.host.size() - 2);
    std::from_chars(url.port.data(), url.port.data() + url.port.size(), server.port);
    return server;
}

std::optional<HostAndPort> checkAddress(Examination& examination)
{
    constexpr const char* mend = "Set base_domain to the host of the backend, such as mdm.example.com.";
    Findings& findings = examination.findings;
    const auto domain = baseDomain(examination);
    if (!examination.policy && !examination.snapshot) {
        if (!findings.isPrevented("backend.address", {"policy.file", "policy.permissions", "policy.syntax"}))
            findings.skipped("backend.address", "No configuration names a backend.");
        return std::nullopt;
    }
    const char* source = examination.policy ? "The policy" : "The stored snapshot";
    if (!domain) {
        if (!findings.isPrevented("backend.address", {"policy.values"}, "No backend is named"))
            findings.warning("backend.address", fmt::format("{} names no backend.", source), mend);
        return std::nullopt;
    }
    const CheckedAddress address = checkBackendAddress(*domain);
    if (!address.target) {
        findings.failed(
            "backend.address",
            fmt::format("{} has a base_domain that the app cannot use: {}.", source, address.refusal), mend);
        return std::nullopt;
    }
    const HostAndPort server = serverOf(*address.target);
    findings.ok("backend.address", fmt::format("{} names {}.", source, server.text()));
    return server;
}

/// Makes the probe trust what the application trusts.
void checkTrust(Findings& findings, TLSProbe& probe)
{
    const std::string file = environment("SSL_CERT_FILE", systemCertificateFile);
    try {
        probe.trustFile(file);
        probe.trustFolder(environment("SSL_CERT_DIR", systemCertificateFolder));
        findings.ok("backend.trust", fmt::format("The authorities to trust are in {}.", file));
    } catch (const StepError& error) {
        findings.failed(
            "backend.trust",
            fmt::format("The authorities to trust cannot be read from {}: {}.", file, error.what()),
            std::getenv("SSL_CERT_FILE") != nullptr ? "Check SSL_CERT_FILE, or unset it."
                                                    : "Install the package ca-certificates.");
    }
}

} // namespace

void examineBackend(Examination& examination)
{
    Findings& findings = examination.findings;
    const auto server = checkAddress(examination);
    TLSProbe probe;
    checkTrust(findings, probe);
    if (server && !examination.limits.isOffline) {
        BackendWay(findings, probe, *server, examination.limits.timeout).examine();
        return;
    }
    for (const std::string_view check : networkChecks) {
        if (!findings.isPrevented(check, {"backend.address"}))
            findings.skipped(check,
                             server ? "The network is left alone (--offline)." : "No backend is named.");
    }
}

} // namespace Qvctl
