#pragma once

#include <boost/describe/class.hpp>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace BackendProbe {

/// What the helper of `qvctl doctor` prints, as JSON: how it connected to the backend. Times are seconds
/// since 1970.
struct ProbeResult {
    /// The file with the trusted certificates, and why it cannot be read; empty if it can.
    std::string trustedFile;
    std::string trustProblem;

    /// The addresses that were tried (the proxy's if there is a proxy), and the connected one.
    std::vector<std::string> addresses;
    std::string address;
    /// errno of the last connection that failed, or 0.
    long lastError = 0;
    /// "lookUp", "connect", "tunnel" (through the proxy), "handshake", or empty. With a proxy, the first two
    /// lead to the proxy.
    std::string failedStep;
    /// A clause; for the last two steps, with the proxy or the server as its subject.
    std::string reason;

    // From the handshake with the server.
    std::string protocol;
    std::string subject;
    std::string issuer;
    /// The first few hosts that the certificate is valid for.
    std::vector<std::string> names;
    std::int64_t notBefore = 0;
    std::int64_t notAfter = 0;
    /// When the first certificate of the chain expires.
    std::int64_t chainEnd = std::numeric_limits<std::int64_t>::max();
    /// Why the certificate is not trusted: a clause with the certificate as its subject.
    std::string chainProblem;
    /// An authority whose certificate has expired or is not valid yet.
    std::string outdatedAuthority;
    bool isForOtherHost = false;

    // From the request, if one was sent.
    /// 0 if there was no response.
    long status = 0;
    /// From the start of the connection to the end of the response.
    std::int64_t responseMilliseconds = 0;
    /// Why there was no response, as a predicate with the server as its subject.
    std::string responseProblem;
};

BOOST_DESCRIBE_STRUCT(ProbeResult, (),
                      (trustedFile, trustProblem, addresses, address, lastError, failedStep, reason, protocol,
                       subject, issuer, names, notBefore, notAfter, chainEnd, chainProblem, outdatedAuthority,
                       isForOtherHost, status, responseMilliseconds, responseProblem))

} // namespace BackendProbe
