#include "Tools/Backend/TestBackend.h"

#include "Tools/Backend/Certificates.h"

#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;

/// Ends before that of a server certificate, so that clients have to look at the whole chain.
constexpr Certificates::Validity authorityValidity{-96h, 72h};
constexpr std::chrono::seconds silentClientTimeout = 60s;
/// A client that stops reading an endless response is not cut off.
constexpr std::chrono::seconds writeTimeout = 1h;
constexpr std::size_t requestsPerConnection = 1'000'000;
constexpr std::size_t endlessBlockBytes = 16384;
/// Between the blocks of an endless response, which would otherwise keep a processor busy.
constexpr std::chrono::milliseconds endlessPause = 1ms;
/// The library decodes targets before it matches them, line ends included.
constexpr const char* anyPath = R"([\s\S]*)";

/// Runs each connection on its own thread, so that a slow one never delays another.
///
/// Threads: the thread that accepts connections.
class ThreadPerConnection final : public httplib::TaskQueue {
public:
    /// Void in version 0.11 of the library; later versions return whether the work is taken.
    using Enqueued = decltype(std::declval<httplib::TaskQueue&>().enqueue({}));

    Enqueued enqueue(std::function<void()> work) override
    {
        std::erase_if(m_connections,
                      [](const auto& each) { return each.wait_for(0s) == std::future_status::ready; });
        m_connections.push_back(std::async(std::launch::async, std::move(work)));
        return Enqueued(true);
    }

    /// Blocks until all connections have ended.
    void shutdown() override { m_connections.clear(); }

private:
    std::vector<std::future<void>> m_connections;
};

std::string repeated(const std::string& body)
{
    std::string block;
    while (block.size() < endlessBlockBytes)
        block += body.empty() ? " " : body;
    return block;
}

void closeConnection(const SSL* ssl)
{
    ::shutdown(SSL_get_fd(ssl), SHUT_RDWR);
}

/// Makes the system send a reset instead of the rest of the data.
void resetConnection(const SSL* ssl)
{
    const sockaddr none{AF_UNSPEC, {}};
    ::connect(SSL_get_fd(ssl), &none, sizeof none);
}

/// The open connections, from the start of their handshake. The library cannot close idle ones: it waits
/// until they time out.
///
/// Threads: any. Outlives the connections.
class OpenConnections {
public:
    void watch(SSL_CTX* context)
    {
        SSL_CTX_set_app_data(context, this);
        SSL_CTX_set_info_callback(context, [](const SSL* ssl, int where, int /*result*/) {
            if ((where & SSL_CB_HANDSHAKE_START) != 0 && SSL_get_ex_data(ssl, slot()) == nullptr)
                static_cast<OpenConnections*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)))->add(ssl);
        });
    }

    /// Ends later connections too.
    void endAll()
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
        for (const auto& [ssl, descriptor] : m_connections)
            ::shutdown(descriptor, SHUT_RDWR);
    }

private:
    void add(const SSL* ssl)
    {
        const std::lock_guard lock(m_mutex);
        SSL_set_ex_data(const_cast<SSL*>(ssl), slot(), this);
        m_connections.emplace(ssl, SSL_get_fd(ssl));
        if (m_isEnding)
            closeConnection(ssl);
    }

    void remove(const SSL* ssl)
    {
        const std::lock_guard lock(m_mutex);
        m_connections.erase(ssl);
    }

    /// The slot where a connection keeps the object that watches it. The library frees the connection before
    /// it closes the descriptor, so `endAll` never shuts down a reused descriptor.
    static int slot()
    {
        static const int index = SSL_get_ex_new_index(
            0, nullptr, nullptr, nullptr,
            [](void* ssl, void* registry, CRYPTO_EX_DATA*, int /*index*/, long, void*) {
                if (registry != nullptr)
                    static_cast<OpenConnections*>(registry)->remove(static_cast<const SSL*>(ssl));
            });
        return index;
    }

    std::mutex m_mutex;
    /// With their descriptors: OpenSSL 3.5 frees what knows the descriptor before it frees the connection's
    /// data.
    std::map<const SSL*, int> m_connections;
    bool m_isEnding = false;
};

class Listener final : public httplib::SSLServer {
public:
    explicit Listener(const Certificates::Identity& identity)
        : SSLServer(identity.certificate.get(), identity.key.get())
    {
        if (!is_valid())
            throw std::runtime_error("the server does not accept its certificate");
        new_task_queue = [] { return new ThreadPerConnection; };
        set_tcp_nodelay(true);
        set_keep_alive_max_count(requestsPerConnection);
        set_keep_alive_timeout(silentClientTimeout.count());
        set_read_timeout(silentClientTimeout);
        set_write_timeout(writeTimeout);
        // By default the library lets a second server share the port.
        set_socket_options([](socket_t socket) {
            const int on = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        });
    }

    std::uint16_t bind(std::uint16_t port)
    {
        const bool isBound = port != 0 && bind_to_port("127.0.0.1", port);
        const int bound = port == 0 ? bind_to_any_port("127.0.0.1") : isBound ? port : 0;
        if (bound <= 0)
            throw std::runtime_error(fmt::format("port {} of 127.0.0.1 is taken or not permitted", port));
        // The library's backlog of five is too short for clients that open many connections at once.
        ::listen(svr_sock_, SOMAXCONN);
        return static_cast<std::uint16_t>(bound);
    }
};

void demandClientCertificate(SSL_CTX* context, TestBackend::ClientCertificate demand)
{
    using Kind = TestBackend::ClientCertificate;
    if (demand == Kind::ignored)
        return;
    const bool isDemanded = demand != Kind::requested;
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | (isDemanded ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0),
                       nullptr);
    SSL_CTX_set_max_proto_version(context, demand == Kind::demandedInTLS12 ? TLS1_2_VERSION : TLS1_3_VERSION);
}

Certificates::Identity makeServerIdentity(TestBackend::Certificate certificate,
                                          const Certificates::Identity& authority)
{
    using Kind = TestBackend::Certificate;
    const Certificates::ServerName localhost{"localhost", "DNS:localhost,IP:127.0.0.1,IP:::1"};
    // More names than doctor lists.
    const Certificates::ServerName elsewhere{
        "elsewhere.example", "DNS:elsewhere.example,DNS:b.example,DNS:c.example,DNS:d.example,"
                             "DNS:e.example,DNS:f.example"};
    const auto& name = certificate == Kind::wrongHost ? elsewhere : localhost;
    const bool isPast = certificate == Kind::expired;
    const bool isFuture = certificate == Kind::notYetValid;
    const Certificates::Validity validity{isPast ? -72h : isFuture ? 24h : -1h, isPast ? -24h : 96h};
    const auto stranger = Certificates::makeAuthority("Untrusted Test Authority", authorityValidity);
    const auto* signer = certificate == Kind::untrusted ? &stranger : &authority;
    return Certificates::makeServer(name, validity, certificate == Kind::selfSigned ? nullptr : signer);
}

} // namespace

class TestBackend::Server {
public:
    explicit Server(const Options& options) : m_authorityFile(options.folder / "authority.pem")
    {
        const auto authority = Certificates::makeAuthority("Test Authority", authorityValidity);
        const auto identity = makeServerIdentity(options.certificate, authority);
        m_listener = std::make_unique<Listener>(identity);
        m_connections.watch(m_listener->ssl_context());
        demandClientCertificate(m_listener->ssl_context(), options.clientCertificate);
        route();
        m_port = m_listener->bind(options.port);
        // Only now that the port is ours: another backend may keep its certificates in the same folder.
        Certificates::write(authority, m_authorityFile);
        Certificates::write(identity, options.folder / "server.pem");
        m_thread = std::thread([this] { m_listener->listen_after_bind(); });
        // The library cannot stop a server that is not running yet.
        while (!m_listener->is_running())
            std::this_thread::sleep_for(1ms);
    }

    ~Server()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnding = true;
        }
        m_ending.notify_all();
        m_listener->stop();
        m_connections.endAll();
        m_thread.join();
    }

    [[nodiscard]] std::uint16_t port() const { return m_port; }
    [[nodiscard]] const std::filesystem::path& authorityFile() const { return m_authorityFile; }

    void setReply(std::string path, Reply reply)
    {
        const std::lock_guard lock(m_mutex);
        m_replies.insert_or_assign(std::move(path), std::move(reply));
    }

    std::vector<Request> takeRequests()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_requests, {});
    }

    void onRequest(std::function<void(const Request&)> observer)
    {
        const std::lock_guard lock(m_mutex);
        m_observer = std::move(observer);
    }

private:
    void route()
    {
        const auto withoutBody = [this](const auto& request, auto& response) {
            answer(request, response, request.body);
        };
        // We read the body, because the library takes forms apart and limits their size.
        const auto withBody = [this](const auto& request, auto& response, const auto& reader) {
            if (auto body = read(request, reader))
                answer(request, response, *std::move(body));
            else
                closeConnection(request.ssl);
        };
        m_listener->Get(anyPath, withoutBody).Options(anyPath, withoutBody).Delete(anyPath, withoutBody);
        m_listener->Post(anyPath, withBody).Put(anyPath, withBody).Patch(anyPath, withBody);
        m_listener->Delete(anyPath, withBody);
    }

    /// Reads the body; absent if the client disconnects before its end.
    static std::optional<std::string> read(const httplib::Request& request,
                                           const httplib::ContentReader& reader)
    {
        std::string body;
        // Without these fields there is no body, but the library would read until the end of the connection.
        if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding"))
            return body;
        const auto append = [&body](const char* data, std::size_t size) {
            body.append(data, size);
            return true;
        };
        // Of a multipart body, the library passes on only the parts.
        const auto part = [](const httplib::MultipartFormData&) { return true; };
        const bool isWhole = request.is_multipart_form_data() ? reader(part, append) : reader(append);
        return isWhole ? std::optional(std::move(body)) : std::nullopt;
    }

    void answer(const httplib::Request& request, httplib::Response& response, std::string body)
    {
        const Reply reply = remember(request, std::move(body));
        const bool isDelayed = reply.ending != Ending::dripping;
        if ((isDelayed && !rest(reply.delay)) || reply.ending == Ending::closedBefore)
            return closeConnection(request.ssl);
        // On request the library would compress the body or return a part of it; a test needs exactly the
        // bytes that it set.
        const_cast<httplib::Request&>(request).headers.erase("Accept-Encoding");
        const_cast<httplib::Request&>(request).ranges.clear();
        fill(response, reply, request.ssl);
    }

    Reply remember(const httplib::Request& request, std::string body)
    {
        Request remembered{request.method, request.target, {}, std::move(body)};
        for (const auto& [name, value] : request.headers) {
            // The library adds these fields.
            if (name != "REMOTE_ADDR" && name != "REMOTE_PORT" && name != "LOCAL_ADDR" &&
                name != "LOCAL_PORT")
                remembered.headerFields.emplace(name, value);
        }
        std::unique_lock lock(m_mutex);
        m_requests.push_back(remembered);
        auto found = m_replies.find(remembered.target.substr(0, remembered.target.find('?')));
        if (found == m_replies.end())
            found = m_replies.find("*");
        Reply reply = found == m_replies.end() ? Reply() : found->second;
        const auto observer = m_observer;
        lock.unlock();
        if (observer)
            observer(remembered);
        return reply;
    }

    void fill(httplib::Response& response, Reply reply, const SSL* ssl)
    {
        response.status = reply.status;
        response.headers.insert(reply.headerFields.begin(), reply.headerFields.end());
        // These responses end with the header; a client would take a body for the next response.
        if (reply.status == 204 || reply.status == 304)
            return;
        const std::string type = response.get_header_value("Content-Type");
        response.headers.erase("Content-Type");
        const auto size = reply.body.size();
        switch (reply.ending) {
        case Ending::complete:
        case Ending::closedBefore:
            response.set_content(reply.body, type);
            break;
        case Ending::truncated:
        case Ending::reset:
            response.set_content_provider(
                std::max<std::size_t>(size, 1), type,
                [reply = std::move(reply), ssl](std::size_t, std::size_t, auto& sink) {
                    sink.write(reply.body.data(), reply.body.size() / 2);
                    reply.ending == Ending::reset ? resetConnection(ssl) : closeConnection(ssl);
                    return false;
                });
            break;
        case Ending::endless:
            response.set_chunked_content_provider(
                type, [this, block = repeated(reply.body)](std::size_t, auto& sink) {
                    return sink.write(block.data(), block.size()) && rest(endlessPause);
                });
            break;
        case Ending::dripping:
            response.set_content_provider(
                size, type, [this, reply = std::move(reply)](std::size_t offset, std::size_t, auto& sink) {
                    return (offset == 0 || rest(reply.delay)) && sink.write(&reply.body[offset], 1);
                });
            break;
        }
    }

    /// Waits; returns false if the backend ends meanwhile.
    bool rest(std::chrono::milliseconds duration)
    {
        std::unique_lock lock(m_mutex);
        return !m_ending.wait_for(lock, duration, [this] { return m_isEnding; });
    }

    const std::filesystem::path m_authorityFile;
    std::mutex m_mutex;
    std::condition_variable m_ending;
    bool m_isEnding = false;
    std::map<std::string, Reply> m_replies;
    std::vector<Request> m_requests;
    std::function<void(const Request&)> m_observer;
    OpenConnections m_connections;
    std::unique_ptr<Listener> m_listener;
    std::uint16_t m_port = 0;
    std::thread m_thread;
};

TestBackend::TestBackend(const Options& options) : m_server(std::make_unique<Server>(options)) {}

TestBackend::~TestBackend() = default;

std::uint16_t TestBackend::port() const
{
    return m_server->port();
}

std::string TestBackend::baseURL() const
{
    return fmt::format("https://localhost:{}", port());
}

std::filesystem::path TestBackend::certificateAuthority() const
{
    return m_server->authorityFile();
}

void TestBackend::setReply(std::string path, Reply reply)
{
    m_server->setReply(std::move(path), std::move(reply));
}

std::vector<TestBackend::Request> TestBackend::takeRequests()
{
    return m_server->takeRequests();
}

void TestBackend::onRequest(std::function<void(const Request&)> observer)
{
    m_server->onRequest(std::move(observer));
}
