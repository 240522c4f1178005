#pragma once

#include "Platform/URLSession.h"

#include <memory>

namespace Platform::Network {

/// Requests over HTTP/1.1 and HTTP/2, at most six connections per host; more requests wait for their turn.
/// Certificates are checked against the system's, or those that `SSL_CERT_FILE` and `SSL_CERT_DIR` name when
/// the session is made; proxies come from the environment.
///
/// `Connection`, `Content-Length`, `Host` and `Transfer-Encoding` of a request are ignored: the transfer sets
/// them. User names and passwords inside an address are never sent. 301 and 302 turn POST into GET, 303 all
/// but HEAD; 300, 304 and redirects without a target are answers like any other. The first 1000 header fields
/// of a response are kept; a header of more than 256 KiB fails the request.
///
/// Threads: `start` from any. One thread of its own, which begins with the first request and sleeps while
/// none is under way. Outcomes are delivered on it, so that whoever only goes on with the next request waits
/// for nobody; whoever has more to do goes to a queue of its own. The destructor cancels what is under way,
/// delivers that, and does not wait for the network.
class CurlURLSession final : public URLSession {
public:
    CurlURLSession();
    ~CurlURLSession() override;
    CurlURLSession(const CurlURLSession&) = delete;
    CurlURLSession& operator=(const CurlURLSession&) = delete;

    void start(URLRequest request, Completion completion) override;

private:
    class Worker;
    std::unique_ptr<Worker> m_worker;
};

} // namespace Platform::Network
