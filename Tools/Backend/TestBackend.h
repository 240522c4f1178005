#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// The organization's backend for tests and demonstrations: HTTPS on loopback with a certificate made at
/// start. Remembers every request, and misbehaves on demand, path by path.
///
/// Threads: any; requests are answered on the backend's own threads. The destructor aborts all responses.
class TestBackend {
public:
    /// The certificate of the server. `certificateAuthority()` signs all but `untrusted` and `selfSigned`.
    enum class Certificate { good, expired, notYetValid, wrongHost, selfSigned, untrusted };

    /// Whether clients need a certificate. If it is demanded, the connection of a client without one is
    /// closed during the handshake in TLS 1.2 and after it in TLS 1.3.
    enum class ClientCertificate { ignored, requested, demandedInTLS12, demandedInTLS13 };

    struct Options {
        /// 0 for any free port.
        std::uint16_t port = 0;
        Certificate certificate = Certificate::good;
        ClientCertificate clientCertificate = ClientCertificate::ignored;
        /// An existing folder, where the certificates are written.
        std::filesystem::path folder;
    };

    /// How the response ends.
    enum class Ending {
        complete,
        /// The connection is closed before any response.
        closedBefore,
        /// The connection is closed in the middle of the body.
        truncated,
        /// The connection is reset in the middle of the body, without the end of the TLS session.
        reset,
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
        /// Path and query, exactly as the client sent them.
        std::string target;
        std::multimap<std::string, std::string> headerFields;
        std::string body;
    };

    /// Throws `std::runtime_error` if the port is taken or the certificates cannot be written.
    explicit TestBackend(const Options& options);
    ~TestBackend();
    TestBackend(const TestBackend&) = delete;
    TestBackend& operator=(const TestBackend&) = delete;

    [[nodiscard]] std::uint16_t port() const;
    /// "https://localhost:PORT".
    [[nodiscard]] std::string baseURL() const;
    /// The file of the certificate authority that a client must trust, as PEM.
    [[nodiscard]] std::filesystem::path certificateAuthority() const;

    /// From now on, sends `reply` to requests for `path`, which is compared as sent and without the query.
    /// "*" sets the reply for all paths without their own; the default is a default `Reply`.
    void setReply(std::string path, Reply reply);
    /// The requests since the last call, in order of arrival.
    std::vector<Request> takeRequests();
    /// Calls `observer` for each request, on the thread that answers it. Call before the first request.
    void onRequest(std::function<void(const Request&)> observer);

private:
    class Server;
    std::unique_ptr<Server> m_server;
};
