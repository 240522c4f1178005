#pragma once

#include "Platform/URLSession.h"

#include <memory>

namespace Platform::Network {

/// Performs requests over HTTP/1.1 and HTTP/2 with libcurl, using at most six connections per host.
///
/// Trusts the certificates in `CertificateEnvironment`, read when the session is created. Proxies come from
/// the environment. A request's `Connection`, `Content-Length`, `Host` and `Transfer-Encoding` fields are
/// ignored. A user name and password in the URL are never sent. Status 301 and 302 change POST to GET; 303
/// changes every method except HEAD to GET. 300, 304 and redirects without a target are ordinary responses.
/// Only the first 1000 header fields of a response are kept; a header of more than 256 KiB fails the request.
///
/// Threads: `start` may be called on any. The session has one thread, which starts with the first request and
/// sleeps between requests. Completions run on it, so they must be short. The destructor completes the
/// pending requests as cancelled and does not wait for the network.
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
