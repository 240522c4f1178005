#pragma once

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

/// One request on its way, with as many exchanges as its redirects take.
///
/// Threads: that of its session.
class CurlTransfer {
public:
    using Clock = std::chrono::steady_clock;

    /// What the transfers of one session have in common.
    struct Surroundings {
        /// Empty: the system's.
        std::string certificateFile;
        std::string certificateFolder;
        /// Of curl's "share" interface.
        void* share = nullptr;
        /// When anything last arrived for any of them.
        Clock::time_point lastArrival = {};
        /// By endpoint: whether the server requested a client certificate in its last handshake.
        std::map<std::string, bool> certificateRequests = {};
    };

    /// `surroundings` must outlive the transfer. `handle` must be new or reset.
    CurlTransfer(URLRequest request, URLSession::Completion completion, Surroundings& surroundings,
                 CurlHandle handle)
        : m_request(std::move(request)),
          m_completion(std::move(completion)),
          m_surroundings(surroundings),
          m_handle(std::move(handle))
    {}

    /// Makes the handle ready. To be called once. Throws `URLError`.
    void prepare();
    /// What came of the exchange that ended with this CURLcode. None: the answer was a redirect, and the
    /// handle is ready for the next exchange.
    std::optional<URLSession::Outcome> conclude(int code);

    /// When it will have been idle for too long, unless something arrives.
    [[nodiscard]] Clock::time_point deadline() const;
    /// The outcome at the deadline.
    [[nodiscard]] URLError timeoutError() const;

    [[nodiscard]] void* handle() const { return m_handle.get(); }
    CurlHandle takeHandle() { return std::move(m_handle); }
    URLSession::Completion takeCompletion() { return std::move(m_completion); }

private:
    struct ListDeleter {
        void operator()(curl_slist* list) const;
    };

    /// Of a CURLoption.
    template <typename Value>
    void set(int option, Value value);
    /// Of a CURLINFO.
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
    void noteActivity();

    /// Where the answer redirects to, as its header says; empty when it is no redirect to follow.
    [[nodiscard]] std::string redirectLocation() const;
    void follow(const std::string& location);
    [[nodiscard]] URLError failure(int code) const;
    [[nodiscard]] URLResponse takeResponse();
    bool receive(const char* bytes, std::size_t count);
    std::size_t send(char* room, std::size_t count);

    URLRequest m_request;
    URLSession::Completion m_completion;
    Surroundings& m_surroundings;
    SecureURL m_target;
    std::chrono::seconds m_timeout{0};
    int m_redirectCount = 0;

    // Of the exchange.
    ResponseHeader m_header;
    Data m_body;
    std::size_t m_sentBytes = 0;
    std::int64_t m_wireBytes = 0;
    bool m_isTooLong = false;
    bool m_isConnected = false;
    Clock::time_point m_lastActivity;
    /// Where curl writes what went wrong; it asks for this many.
    std::array<char, 256> m_detail{};
    std::unique_ptr<curl_slist, ListDeleter> m_headerList;
    CurlHandle m_handle;
};

} // namespace Platform::Network
