#pragma once

#include "Platform/Network/CertificateEnvironment.h"
#include "Platform/Network/CurlFailure.h"
#include "Platform/Network/ResponseHeader.h"
#include "Platform/Network/SecureRequest.h"
#include "Platform/URLSession.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

struct curl_slist;

namespace Platform::Network {

/// A handle of curl's "easy" interface.
struct CurlHandleDeleter {
    void operator()(void* handle) const;
};
using CurlHandle = std::unique_ptr<void, CurlHandleDeleter>;

/// A request in progress, including the exchanges that its redirects require.
///
/// Threads: that of its session.
class CurlTransfer {
public:
    using Clock = std::chrono::steady_clock;

    /// The common state of the transfers of one session.
    struct SessionState {
        CertificateEnvironment certificates;
        /// A handle of libcurl's "share" interface.
        void* share = nullptr;
        /// When data last arrived for any transfer.
        Clock::time_point lastArrival = {};
        /// By endpoint: whether the server requested a client certificate in its last handshake.
        std::map<std::string, bool> certificateRequests = {};
    };

    /// `session` must outlive the transfer. `handle` must be new or reset.
    CurlTransfer(URLRequest request, URLSession::Completion completion, SessionState& session,
                 CurlHandle handle)
        : m_request(std::move(request)),
          m_completion(std::move(completion)),
          m_session(session),
          m_handle(std::move(handle))
    {}

    /// Sets up the handle for the request. Call it once. Throws `URLError`.
    void prepare();
    /// Returns the outcome of the exchange that ended with this CURLcode. Absent if the handle has to be
    /// started again: for the next exchange after a redirect, or because there was no free connection yet.
    std::optional<URLSession::Outcome> conclude(int code);

    /// Returns when the transfer times out, unless data arrives before then.
    [[nodiscard]] Clock::time_point deadline() const;
    /// Returns the error for a transfer that has reached its deadline.
    [[nodiscard]] URLError timeoutError() const;

    [[nodiscard]] void* handle() const { return m_handle.get(); }
    CurlHandle takeHandle() { return std::move(m_handle); }
    URLSession::Completion takeCompletion() { return std::move(m_completion); }

private:
    struct ListDeleter {
        void operator()(curl_slist* list) const;
    };

    /// Sets a CURLoption.
    template <typename Value>
    void set(int option, Value value);
    /// Returns the value of a CURLINFO.
    template <typename Value>
    [[nodiscard]] Value info(int which) const;

    void prepareExchange();
    void setSecurity();
    void watchHandshake(void* context);
    [[nodiscard]] bool isCertificateRequested() const;
    void setMethod();
    void setHeaderFields();
    void setBodyCallbacks();
    void setActivityCallbacks();
    void recordConnecting();
    void recordActivity();

    /// Returns the target of a redirect as sent by the server; empty if the response is not a redirect.
    [[nodiscard]] std::string redirectLocation() const;
    void follow(const std::string& location);
    [[nodiscard]] URLError failure(int code) const;
    [[nodiscard]] URLResponse takeResponse();
    bool receive(const char* bytes, std::size_t count);
    std::size_t send(char* room, std::size_t count);

    URLRequest m_request;
    URLSession::Completion m_completion;
    SessionState& m_session;
    SecureURL m_target;
    std::chrono::seconds m_timeout{0};
    int m_redirectCount = 0;

    // The current exchange.
    ResponseHeader m_header;
    Data m_body;
    std::size_t m_sentBytes = 0;
    std::int64_t m_wireBytes = 0;
    bool m_isTooLong = false;
    /// Whether it still waits for a free connection.
    bool m_isWaiting = true;
    bool m_isConnected = false;
    Clock::time_point m_lastActivity;
    /// libcurl's error buffer, which must have this size.
    std::array<char, 256> m_detail{};
    std::unique_ptr<curl_slist, ListDeleter> m_headerList;
    CurlHandle m_handle;
};

} // namespace Platform::Network
