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

/// Header fields by name, whose case does not count.
struct HeaderNameLess {
    using is_transparent = void;
    bool operator()(std::string_view left, std::string_view right) const;
};
using HeaderFields = std::map<std::string, std::string, HeaderNameLess>;

struct URLRequest {
    /// Absolute, in the form of RFC 3986.
    std::string url;
    std::string httpMethod = "GET";
    HeaderFields headerFields = {};
    /// Absent: no body.
    std::optional<Data> httpBody = {};
    /// How long nothing may arrive before the request fails.
    std::chrono::seconds timeoutInterval{60};

    /// Replaces the field, whatever the case of its name.
    void setValue(std::string value, std::string_view headerField);
};

struct HTTPURLResponse {
    std::int64_t statusCode = 0;
    HeaderFields headerFields = {};
};

struct URLResponse {
    Data body;
    /// Absent when the answer did not come over HTTP.
    std::optional<HTTPURLResponse> http;
};

/// Why a transfer failed.
class URLError : public ErrorException {
public:
    /// The customary numbers of the domain "NSURLErrorDomain".
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

    /// `description` is a sentence for people.
    URLError(Code code, std::string description) : ErrorException(std::move(description)), m_code(code) {}

    [[nodiscard]] Code code() const { return m_code; }
    [[nodiscard]] std::int64_t errorCode() const override { return static_cast<std::int64_t>(m_code); }
    [[nodiscard]] std::string errorDomain() const override { return "NSURLErrorDomain"; }

private:
    Code m_code;
};

/// Performs requests over the network.
///
/// Threads: any, concurrently; any number of requests may be under way.
/// Implementers owe: one outcome per request, delivered on the thread that the implementation documents and
/// never inside `start`; https alone, TLS 1.2 at least, certificates verified against the system's trust
/// store; redirects followed to https addresses alone, without the request's credentials (`Authorization`,
/// `Cookie`, `X-Device-Id`) once the host or port changes; connections reused; a body of at most
/// `maximumBodyBytes` after decompression; a line break or NUL in a header field or the method fails the
/// request and reaches no wire; requests under way when the session goes end as cancelled.
class URLSession {
public:
    using Outcome = std::variant<URLResponse, URLError>;
    using Completion = std::function<void(Outcome)>;

    static constexpr std::size_t maximumBodyBytes = std::size_t{16} * 1024 * 1024;

    virtual ~URLSession() = default;
    virtual void start(URLRequest request, Completion completion) = 0;

    /// Awaits the response; throws `URLError`. Goes on where the outcome is delivered.
    Task<URLResponse> data(URLRequest request);
};

} // namespace Platform
