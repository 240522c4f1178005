#pragma once

#include "Platform/Date.h"
#include "Tools/qvctl/NetworkSteps.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

struct ssl_ctx_st;

namespace Qvctl {

/// What verification has against a certificate of the chain.
struct CertificateProblem {
    enum class Kind { chain, name, date };

    Kind kind;
    /// An X509_V_ERR_ number.
    int code;
    /// Of the certificate that it is about.
    std::string subject;
    bool isOfServer;
};

/// What a server shows of itself in a handshake.
struct ServerIdentity {
    /// "TLSv1.3".
    std::string protocol;
    std::string subject;
    std::string issuer;
    /// The hosts that the certificate is for; the first few.
    std::vector<std::string> names;
    Platform::Date notBefore;
    Platform::Date notAfter;
    /// The earliest end of a certificate that verification has used.
    Platform::Date chainEnd;
    std::vector<CertificateProblem> problems;
};

/// Shakes hands as the application would, except that it goes on with a certificate that is no good, to tell
/// everything that is wrong with it. It sends nothing after the handshake.
///
/// Threads: one at a time. Source: RFC 5280, RFC 6125, ssl(7).
class TLSProbe {
public:
    TLSProbe();

    /// Both throw `StepError` when nothing can be read there.
    void trustFile(const std::string& file);
    void trustFolder(const std::string& folder);

    /// Over a connected socket that does not block. Throws `StepError`.
    [[nodiscard]] ServerIdentity shakeHands(int socket, const std::string& host,
                                            std::chrono::milliseconds timeout) const;

private:
    struct ContextDeleter {
        void operator()(ssl_ctx_st* context) const;
    };
    std::unique_ptr<ssl_ctx_st, ContextDeleter> m_context;
};

/// What an X509_V_ERR_ number means, as a clause.
std::string verificationText(int code);

} // namespace Qvctl
