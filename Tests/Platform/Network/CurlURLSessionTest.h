#pragma once

#include "Platform/Network/CurlURLSession.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/Backend/TestBackend.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <future>
#include <netinet/in.h>
#include <sys/socket.h>

class CurlURLSessionTest : public testing::Test {
protected:
    using Code = Platform::URLError::Code;
    using Outcome = Platform::URLSession::Outcome;

    /// Makes the socket accept connections without ever responding. Returns its port.
    static int listenSilently(const Platform::Storage::FileDescriptor& socket)
    {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket.get(), generic, size) != 0 || ::listen(socket.get(), SOMAXCONN) != 0 ||
            ::getsockname(socket.get(), generic, &size) != 0)
            throw std::runtime_error("no port");
        return ntohs(address.sin_port);
    }

    /// A backend and a session that trusts it.
    struct Line {
        explicit Line(
            TestBackend::Certificate certificate = TestBackend::Certificate::good,
            TestBackend::ClientCertificate clientCertificate = TestBackend::ClientCertificate::ignored)
            : backend({.certificate = certificate,
                       .clientCertificate = clientCertificate,
                       .folder = folder.path()})
        {
            ::setenv("SSL_CERT_FILE", backend.certificateAuthority().c_str(), 1);
            ::setenv("no_proxy", "*", 1);
            session = std::make_unique<Platform::Network::CurlURLSession>();
        }

        [[nodiscard]] std::future<Outcome> start(Platform::URLRequest request) const
        {
            const auto promise = std::make_shared<std::promise<Outcome>>();
            session->start(std::move(request),
                           [promise](Outcome outcome) { promise->set_value(std::move(outcome)); });
            return promise->get_future();
        }
        /// Requests a path of the backend.
        [[nodiscard]] std::future<Outcome> get(const std::string& path,
                                               std::chrono::seconds timeout = std::chrono::seconds(20)) const
        {
            return start({.url = backend.baseURL() + path, .timeoutInterval = timeout});
        }
        /// Replaces "{same}" and "{other}" with URLs of the backend, "{port}" and "{silent}" with the ports.
        [[nodiscard]] std::string expand(const std::string& text) const
        {
            return fmt::format(fmt::runtime(text), fmt::arg("same", backend.baseURL()),
                               fmt::arg("other", fmt::format("https://127.0.0.1:{}", backend.port())),
                               fmt::arg("port", backend.port()), fmt::arg("silent", silentPort));
        }

        TemporaryFolder folder;
        Platform::Storage::FileDescriptor silentSocket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
        int silentPort = listenSilently(silentSocket);
        TestBackend backend;
        std::unique_ptr<Platform::Network::CurlURLSession> session;
    };

    /// Returns the status of a response or the code of an error, for comparison with a table row.
    static std::int64_t result(const Outcome& outcome)
    {
        const auto* response = std::get_if<Platform::URLResponse>(&outcome);
        return response == nullptr ? std::get<Platform::URLError>(outcome).errorCode()
                                   : response->http->statusCode;
    }

    static std::string description(const Outcome& outcome)
    {
        const auto* error = std::get_if<Platform::URLError>(&outcome);
        return error == nullptr ? "" : error->what();
    }

    static constexpr std::int64_t number(Code code) { return static_cast<std::int64_t>(code); }
};
