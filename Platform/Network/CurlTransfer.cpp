#include "Platform/Network/CurlTransfer.h"

#include "Platform/FatalError.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Platform::Network {

namespace {
using Code = URLError::Code;
using namespace std::chrono_literals;

constexpr int maximumRedirectCount = 16;
} // namespace

void CurlHandleDeleter::operator()(void* handle) const
{
    curl_easy_cleanup(handle);
}

void CurlTransfer::ListDeleter::operator()(curl_slist* list) const
{
    curl_slist_free_all(list);
}

template <typename Value>
void CurlTransfer::set(int option, Value value)
{
    const CURLcode code = curl_easy_setopt(handle(), static_cast<CURLoption>(option), value);
    if (code != CURLE_OK)
        throw URLError(Code::unknown, fmt::format("The request to {} cannot be set up: {}.",
                                                  m_target.endpoint(), curl_easy_strerror(code)));
}

template <typename Value>
Value CurlTransfer::info(int which) const
{
    Value value{};
    curl_easy_getinfo(handle(), static_cast<CURLINFO>(which), &value);
    return value;
}

void CurlTransfer::prepare()
{
    cleanRequest(m_request);
    m_target = parseSecureURL(m_request.url);
    m_timeout = std::clamp<std::chrono::seconds>(m_request.timeoutInterval, 1s, 24h);
    prepareExchange();
}

void CurlTransfer::prepareExchange()
{
    m_header = ResponseHeader();
    m_body.clear();
    m_sentBytes = 0;
    m_wireBytes = 0;
    m_isWaiting = true;
    m_isConnected = false;
    m_detail.front() = '\0';
    m_lastActivity = Clock::now();

    set(CURLOPT_URL, m_target.url.c_str());
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_NOSIGNAL, 1L);
    // Otherwise, removing the request would block until a hanging name server times out.
    set(CURLOPT_QUICK_EXIT, 1L);
    static_assert(sizeof m_detail == CURL_ERROR_SIZE);
    set(CURLOPT_ERRORBUFFER, m_detail.data());
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(m_timeout).count()));
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_ACCEPT_ENCODING, "");
    set(CURLOPT_USERAGENT, "quorvane-mdm");
    setSecurity();
    setMethod();
    setHeaderFields();
    setBodyCallbacks();
    setActivityCallbacks();
}

void CurlTransfer::setSecurity()
{
    set(CURLOPT_PROTOCOLS_STR, "https");
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SHARE, m_session.share);
    for (const auto option : {CURLOPT_CAINFO, CURLOPT_PROXY_CAINFO}) {
        if (!m_session.certificates.file.empty())
            set(option, m_session.certificates.file.c_str());
    }
    for (const auto option : {CURLOPT_CAPATH, CURLOPT_PROXY_CAPATH}) {
        if (!m_session.certificates.folder.empty())
            set(option, m_session.certificates.folder.c_str());
    }
    set(CURLOPT_SSL_CTX_DATA, this);
    set(
        CURLOPT_SSL_CTX_FUNCTION, +[](CURL*, void* context, void* self) noexcept {
            static_cast<CurlTransfer*>(self)->watchHandshake(context);
            return CURLE_OK;
        });
}

/// Records whether the server requests a client certificate. When it then closes the connection, its TLS
/// alert may get lost, so the failure does not show the reason.
void CurlTransfer::watchHandshake(void* context)
{
    // The context belongs to the connection, which may outlive this transfer.
    bool& isRequested = m_session.certificateRequests[m_target.endpoint()];
    isRequested = false;
    SSL_CTX_set_cert_cb(
        static_cast<SSL_CTX*>(context),
        [](SSL*, void* flag) {
            *static_cast<bool*>(flag) = true;
            return 1;
        },
        &isRequested);
}

bool CurlTransfer::isCertificateRequested() const
{
    const auto found = m_session.certificateRequests.find(m_target.endpoint());
    return found != m_session.certificateRequests.end() && found->second;
}

void CurlTransfer::setMethod()
{
    const std::string& method = m_request.httpMethod;
    const bool hasBody = m_request.httpBody && !m_request.httpBody->empty();
    const auto bodyBytes = static_cast<curl_off_t>(hasBody ? m_request.httpBody->size() : 0);
    if (method == "PUT") {
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_INFILESIZE_LARGE, bodyBytes);
        return;
    }
    if (method == "POST" || m_request.httpBody) {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, bodyBytes);
        // With a null pointer, libcurl would read the body from the read callback.
        set(CURLOPT_POSTFIELDS, hasBody ? static_cast<const void*>(m_request.httpBody->data()) : "");
    }
    if (method == "HEAD" && !m_request.httpBody)
        set(CURLOPT_NOBODY, 1L);
    else if (method != "POST" && (method != "GET" || m_request.httpBody))
        set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

void CurlTransfer::setHeaderFields()
{
    m_headerList.reset();
    const auto append = [&](const std::string& line) {
        curl_slist* list = curl_slist_append(m_headerList.get(), line.c_str());
        if (list == nullptr)
            fatalError("out of memory for a header field");
        static_cast<void>(m_headerList.release());
        m_headerList.reset(list);
    };
    for (const auto& [name, value] : m_request.headerFields) {
        // For libcurl, "name:" removes a field and "name;" sends an empty one.
        const bool isBlank = value.find_first_not_of(" \t") == std::string::npos;
        append(isBlank ? fmt::format("{};", name) : fmt::format("{}: {}", name, value));
    }
    // By default, libcurl waits for "100 Continue" before a large body, and declares every body to be a form.
    for (const char* unwanted : {"Expect", "Content-Type"}) {
        if (!m_request.headerFields.contains(unwanted))
            append(std::string(unwanted) + ":");
    }
    set(CURLOPT_HTTPHEADER, m_headerList.get());
}

void CurlTransfer::setBodyCallbacks()
{
    set(CURLOPT_WRITEDATA, this);
    set(
        CURLOPT_WRITEFUNCTION, +[](char* bytes, std::size_t, std::size_t count, void* self) noexcept {
            return static_cast<CurlTransfer*>(self)->receive(bytes, count) ? count : std::size_t{0};
        });
    set(CURLOPT_READDATA, this);
    set(
        CURLOPT_READFUNCTION, +[](char* room, std::size_t, std::size_t count, void* self) noexcept {
            return static_cast<CurlTransfer*>(self)->send(room, count);
        });
    // libcurl rewinds the body when it repeats a request because a reused connection was closed.
    set(CURLOPT_SEEKDATA, this);
    set(
        CURLOPT_SEEKFUNCTION, +[](void* self, curl_off_t offset, int origin) noexcept {
            if (origin != SEEK_SET)
                return CURL_SEEKFUNC_CANTSEEK;
            static_cast<CurlTransfer*>(self)->m_sentBytes = static_cast<std::size_t>(offset);
            return CURL_SEEKFUNC_OK;
        });
}

void CurlTransfer::setActivityCallbacks()
{
    // A new connection begins with the name, or, if that is known, with a socket.
    set(CURLOPT_RESOLVER_START_DATA, this);
    set(
        CURLOPT_RESOLVER_START_FUNCTION, +[](void*, void*, void* self) noexcept {
            static_cast<CurlTransfer*>(self)->recordConnecting();
            return 0;
        });
    set(CURLOPT_SOCKOPTDATA, this);
    set(
        CURLOPT_SOCKOPTFUNCTION, +[](void* self, curl_socket_t, curlsocktype) noexcept {
            static_cast<CurlTransfer*>(self)->recordConnecting();
            return CURL_SOCKOPT_OK;
        });
    set(CURLOPT_PREREQDATA, this);
    set(
        CURLOPT_PREREQFUNCTION, +[](void* self, char*, char*, int, int) noexcept {
            static_cast<CurlTransfer*>(self)->m_isConnected = true;
            static_cast<CurlTransfer*>(self)->recordActivity();
            return CURL_PREREQFUNC_OK;
        });
    set(CURLOPT_HEADERDATA, this);
    set(
        CURLOPT_HEADERFUNCTION, +[](char* line, std::size_t, std::size_t count, void* self) noexcept {
            auto& transfer = *static_cast<CurlTransfer*>(self);
            transfer.recordActivity();
            return transfer.m_header.addLine({line, count}) ? count : std::size_t{0};
        });
    // The progress callback also reports bytes that do not yet produce body data.
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFODATA, this);
    set(
        CURLOPT_XFERINFOFUNCTION,
        +[](void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) noexcept {
            auto& transfer = *static_cast<CurlTransfer*>(self);
            if (std::exchange(transfer.m_wireBytes, received + sent) != received + sent)
                transfer.recordActivity();
            return 0;
        });
}

void CurlTransfer::recordConnecting()
{
    // Only the first time: other addresses of the host share the time limit.
    if (std::exchange(m_isWaiting, false))
        m_lastActivity = Clock::now();
}

void CurlTransfer::recordActivity()
{
    m_isWaiting = false;
    m_lastActivity = Clock::now();
    m_session.lastArrival = m_lastActivity;
}

std::string CurlTransfer::redirectLocation() const
{
    const auto location = m_header.fields().find("Location");
    const bool isFound =
        isRedirect(info<long>(CURLINFO_RESPONSE_CODE)) && location != m_header.fields().end();
    return isFound ? location->second : std::string();
}

bool CurlTransfer::receive(const char* bytes, std::size_t count)
{
    recordActivity();
    m_isTooLong = count > URLSession::maximumBodyBytes - m_body.size();
    if (m_isTooLong)
        return false;
    const auto* first = reinterpret_cast<const std::byte*>(bytes);
    m_body.insert(m_body.end(), first, first + count);
    return true;
}

std::size_t CurlTransfer::send(char* room, std::size_t count)
{
    if (!m_request.httpBody || m_sentBytes >= m_request.httpBody->size())
        return 0;
    count = std::min(count, m_request.httpBody->size() - m_sentBytes);
    std::memcpy(room, m_request.httpBody->data() + m_sentBytes, count);
    m_sentBytes += count;
    return count;
}

std::optional<URLSession::Outcome> CurlTransfer::conclude(int code)
{
    // libcurl 8 also counts the wait for a free connection in its time limit for connecting.
    if (code == CURLE_OPERATION_TIMEDOUT && deadline() > Clock::now())
        return std::nullopt;
    if (code != CURLE_OK)
        return failure(code);
    const std::string location = redirectLocation();
    if (location.empty())
        return takeResponse();
    try {
        follow(location);
        return std::nullopt;
    } catch (const URLError& error) {
        return error;
    }
}

void CurlTransfer::follow(const std::string& location)
{
    const std::string endpoint = m_target.endpoint();
    if (++m_redirectCount > maximumRedirectCount)
        throw URLError(
            Code::httpTooManyRedirects,
            fmt::format("The request was redirected more than {} times, most recently by {}; check "
                        "the server's redirects.",
                        maximumRedirectCount, endpoint));
    SecureURL next;
    try {
        next = parseRedirectURL(m_target, location);
    } catch (const URLError& error) {
        const bool isInsecure = error.code() != Code::badURL;
        throw URLError(isInsecure ? Code::appTransportSecurityRequiresSecureConnection : error.code(),
                       fmt::format("{} redirected the request to a URL that is {}; check the server's "
                                   "redirects.",
                                   endpoint, isInsecure ? "not https" : "malformed"));
    }
    redirectRequest(m_request, info<long>(CURLINFO_RESPONSE_CODE), m_target, next);
    m_target = std::move(next);
    curl_easy_reset(handle());
    prepareExchange();
}

URLError CurlTransfer::failure(int code) const
{
    if (m_isTooLong)
        return {Code::dataLengthExceedsMaximum,
                fmt::format("The response body from {} is larger than the limit of {} MiB.",
                            m_target.endpoint(), URLSession::maximumBodyBytes / 1024 / 1024)};
    if (m_header.isTooLong())
        return {
            Code::dataLengthExceedsMaximum,
            fmt::format("The response header from {}{} is larger than the limit of {} KiB; check its log.",
                        m_isConnected ? "" : "the proxy for ", m_target.endpoint(),
                        ResponseHeader::maximumBytes / 1024)};
    // The connection timeout is the only timeout that libcurl enforces here.
    if (code == CURLE_OPERATION_TIMEDOUT)
        return timeoutError();
    const bool isAnswered = info<long>(CURLINFO_RESPONSE_CODE) != 0;
    return urlError({.code = code,
                     .certificateResult = info<long>(CURLINFO_SSL_VERIFYRESULT),
                     .proxyCertificateResult = info<long>(CURLINFO_PROXY_SSL_VERIFYRESULT),
                     .errorNumber = info<long>(CURLINFO_OS_ERRNO),
                     .proxyStatus = info<long>(CURLINFO_HTTP_CONNECTCODE),
                     .isCertificateRequested = !isAnswered && isCertificateRequested(),
                     .detail = m_detail.front() == '\0' ? curl_easy_strerror(static_cast<CURLcode>(code))
                                                        : m_detail.data()},
                    {m_target, m_isConnected});
}

URLResponse CurlTransfer::takeResponse()
{
    HTTPURLResponse http;
    http.statusCode = info<long>(CURLINFO_RESPONSE_CODE);
    http.headerFields = m_header.takeFields();
    return {std::move(m_body), std::move(http)};
}

CurlTransfer::Clock::time_point CurlTransfer::deadline() const
{
    // A transfer that waits for a free connection is not idle while other transfers receive data.
    const auto start = m_isWaiting ? std::max(m_lastActivity, m_session.lastArrival) : m_lastActivity;
    return start + m_timeout;
}

URLError CurlTransfer::timeoutError() const
{
    return Network::timeoutError({m_target, m_isConnected}, m_timeout);
}

} // namespace Platform::Network
