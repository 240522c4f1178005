#pragma once

#include "Platform/Data.h"
#include "Platform/Error.h"
#include "Platform/Task.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Platform {

/// Compares header field names, ignoring case.
struct HeaderNameLess {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const;
};
using HeaderFields = std::map<std::string, std::string, HeaderNameLess>;

struct URLRequest {
    /// An absolute URL (RFC 3986).
    std::string url;
    std::string httpMethod = "GET";
    HeaderFields headerFields = {};
    std::optional<Data> httpBody = {};
    /// The idle timeout: how long the request may go without receiving data.
    std::chrono::seconds timeoutInterval{60};

    /// Sets or replaces a header field; its name is not case-sensitive.
    void setValue(std::string value, std::string_view headerField);
};

struct HTTPURLResponse {
    std::int64_t statusCode = 0;
    HeaderFields headerFields = {};
};

struct URLResponse {
    Data body;
    /// Absent if the response did not come over HTTP.
    std::optional<HTTPURLResponse> http;
};

/// The error of a failed request.
class URLError : public ErrorException {
public:
    /// The codes of the domain "NSURLErrorDomain".
    enum class Code : std::int64_t {
        unknown = -1,
        cancelled = -999,
        badURL = -1000,
        timedOut = -1001,
        unsupportedURL = -1002,
        cannotFindHost = -1003,
        cannotConnectToHost = -1004,
        networkConnectionLost = -1005,
        httpTooManyRedirects = -1007,
        badServerResponse = -1011,
        cannotDecodeContentData = -1016,
        appTransportSecurityRequiresSecureConnection = -1022,
        dataLengthExceedsMaximum = -1103,
        secureConnectionFailed = -1200,
        serverCertificateHasBadDate = -1201,
        serverCertificateUntrusted = -1202,
        clientCertificateRequired = -1206,
    };

    /// `description` is a human-readable sentence.
    URLError(Code code, std::string description) : ErrorException(std::move(description)), m_code(code) {}

    [[nodiscard]] Code code() const { return m_code; }
    [[nodiscard]] std::int64_t errorCode() const override { return static_cast<std::int64_t>(m_code); }
    [[nodiscard]] std::string errorDomain() const override { return "NSURLErrorDomain"; }

private:
    Code m_code;
};

/// Performs HTTPS requests.
///
/// Threads: any, concurrently. The number of concurrent requests is not limited.
///
/// Implementations must
/// - complete each request exactly once, on a thread that they document and never inside `start()`;
/// - allow only https, with TLS 1.2 or later and certificates that the system trusts;
/// - follow redirects to https URLs only, and drop the credentials (`Authorization`, `Cookie`, `X-Device-Id`)
///   when the host or port changes;
/// - reuse connections;
/// - fail a request whose response body exceeds `maximumBodyBytes` after decompression;
/// - fail, without sending it, a request with a line break or NUL in its method or a header field;
/// - complete pending requests as cancelled when the session is destroyed.
class URLSession {
public:
    using Outcome = std::variant<URLResponse, URLError>;
    using Completion = std::function<void(Outcome)>;

    static constexpr std::size_t maximumBodyBytes = std::size_t{16} * 1024 * 1024;

    virtual ~URLSession() = default;
    virtual void start(URLRequest request, Completion completion) = 0;

    /// Performs a request and returns its response. Throws `URLError`. The awaiting coroutine resumes on the
    /// thread that completes the request.
    Task<URLResponse> data(URLRequest request);
};

} // namespace Platform
