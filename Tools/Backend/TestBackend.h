#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// The organisation's backend for tests and demonstrations: HTTPS on loopback with a certificate made on the
/// spot. It remembers every request and can be told to misbehave, path by path.
///
/// Threads: any; requests are answered on threads of its own. The destructor ends every answer that is under
/// way.
class TestBackend {
public:
    /// Which certificate it shows. All but `untrusted` and `selfSigned` are signed by
    /// `certificateAuthority()`.
    enum class Certificate { good, expired, wrongHost, selfSigned, untrusted };

    /// Whether it closes connections of clients without a certificate: during the handshake in TLS 1.2,
    /// after it in TLS 1.3.
    enum class ClientCertificate { ignored, demandedInTLS12, demandedInTLS13 };

    struct Options {
        /// 0: any that is free.
        std::uint16_t port = 0;
        Certificate certificate = Certificate::good;
        ClientCertificate clientCertificate = ClientCertificate::ignored;
        /// Where the certificates are written; must exist.
        std::filesystem::path folder;
    };

    /// How the answer ends.
    enum class Ending {
        complete,
        /// The connection is closed before any answer.
        closedBefore,
        /// The connection is closed in the middle of the announced body.
        truncated,
        /// The body never ends.
        endless,
        /// The body comes one byte at a time, `delay` apart.
        dripping,
    };

    struct Reply {
        int status = 200;
        std::multimap<std::string, std::string> headerFields = {{"Content-Type", "application/json"}};
        std::string body = "{}";
        std::chrono::milliseconds delay{0};
        Ending ending = Ending::complete;
    };

    struct Request {
        std::string method;
        /// Path and query as they came over the wire.
        std::string target;
        std::multimap<std::string, std::string> headerFields;
        std::string body;
    };

    /// Throws `std::runtime_error` when the port is taken or the certificates cannot be written.
    explicit TestBackend(const Options& options);
    ~TestBackend();
    TestBackend(const TestBackend&) = delete;
    TestBackend& operator=(const TestBackend&) = delete;

    [[nodiscard]] std::uint16_t port() const;
    /// "https://localhost:PORT".
    [[nodiscard]] std::string baseURL() const;
    /// The certificate that signed its own, as PEM: what a client must trust.
    [[nodiscard]] std::filesystem::path certificateAuthority() const;

    /// Answers requests for `path` (as it comes over the wire, without the query) with `reply` from now on.
    /// "*" stands for every path without a reply of its own; without that they get the default `Reply`.
    void setReply(std::string path, Reply reply);
    /// The requests since the last call, in the order of their arrival.
    std::vector<Request> takeRequests();
    /// Calls `observer` for each request, on the thread that answers it. Before the first request.
    void onRequest(std::function<void(const Request&)> observer);

private:
    class Server;
    std::unique_ptr<Server> m_server;
};
