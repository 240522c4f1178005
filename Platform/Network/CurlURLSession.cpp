#include "Platform/Network/CurlURLSession.h"

#include "Platform/FatalError.h"
#include "Platform/Network/CurlTransfer.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <map>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <utility>
#include <vector>

/// GnuTLS calls this when it is loaded, and initializes itself only if it returns 0; see
/// GNUTLS_SKIP_GLOBAL_INIT in gnutls.h. libcurl loads it for LDAP and RTMP, which we do not use; users of it
/// that call gnutls_global_init() still can.
extern "C" int _gnutls_global_init_skip()
{
    return 1;
}

namespace Platform::Network {

namespace {

/// The usual limit of browsers.
constexpr long maximumConnectionsPerHostCount = 6;
/// The number of handles to reuse; each takes a few KiB.
constexpr std::size_t pooledHandleCount = 32;

struct MultiDeleter {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct ShareDeleter {
    void operator()(CURLSH* share) const { curl_share_cleanup(share); }
};

} // namespace

class CurlURLSession::Worker {
public:
    Worker() : m_sessionState{.certificates = CertificateEnvironment::read()} {}
    ~Worker();

    void start(URLRequest request, Completion completion);

private:
    struct Waiting {
        URLRequest request;
        Completion completion;
    };

    void run();
    void setUp();
    void tearDown();
    bool beginWaiting();
    void begin(Waiting waiting);
    void add(std::unique_ptr<CurlTransfer> transfer);
    void concludeEnded();
    void endIdle();
    void endAll(const URLError& reason);
    void end(CURL* handle, Outcome outcome);
    void deliver(CurlTransfer& transfer, Outcome outcome);
    void recycle(CurlHandle handle);
    [[nodiscard]] bool isAnyWaiting();
    [[nodiscard]] int pollTime() const;

    std::mutex m_mutex;
    std::vector<Waiting> m_waiting;
    bool m_isEnding = false;
    /// The multi handle while the thread can be woken, otherwise null.
    CURLM* m_wakeable = nullptr;

    // Used only on the thread.
    CurlTransfer::SessionState m_sessionState;
    std::unique_ptr<CURLSH, ShareDeleter> m_share;
    std::unique_ptr<CURLM, MultiDeleter> m_multi;
    std::vector<CurlHandle> m_pool;
    std::map<CURL*, std::unique_ptr<CurlTransfer>> m_transfers;

    std::thread m_thread;
};

CurlURLSession::Worker::~Worker()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
        if (m_wakeable != nullptr)
            curl_multi_wakeup(m_wakeable);
    }
    if (m_thread.joinable())
        m_thread.join();
}

void CurlURLSession::Worker::start(URLRequest request, Completion completion)
{
    CURLM* toBeWoken = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        m_waiting.push_back({std::move(request), std::move(completion)});
        if (!m_thread.joinable())
            m_thread = std::thread([this] { run(); });
        // When a completion starts another request, the thread is already awake.
        if (m_waiting.size() == 1 && m_thread.get_id() != std::this_thread::get_id())
            toBeWoken = m_wakeable;
    }
    // Not under the lock, because the woken thread takes it at once. The destructor, which ends the thread,
    // cannot run during this call.
    if (toBeWoken != nullptr)
        curl_multi_wakeup(toBeWoken);
}

void CurlURLSession::Worker::run()
{
    setUp();
    while (beginWaiting()) {
        int running = 0;
        CURLMcode code = curl_multi_perform(m_multi.get(), &running);
        concludeEnded();
        endIdle();
        // A completion may have started another request.
        if (code == CURLM_OK && !isAnyWaiting())
            code = curl_multi_poll(m_multi.get(), nullptr, 0, pollTime(), nullptr);
        if (code != CURLM_OK)
            endAll({URLError::Code::unknown,
                    fmt::format("This program cannot wait for the network: {}.", curl_multi_strerror(code))});
    }
    tearDown();
}

void CurlURLSession::Worker::setUp()
{
    ::pthread_setname_np(::pthread_self(), "url-session");
    // Other threads handle the program's signals; and a closed connection must not raise SIGPIPE here.
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);

    static const CURLcode globalState = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (globalState == CURLE_OK) {
        m_multi.reset(curl_multi_init());
        m_share.reset(curl_share_init());
    }
    if (!m_multi || !m_share)
        fatalError("the network library cannot be initialized");
    curl_multi_setopt(m_multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, maximumConnectionsPerHostCount);
    curl_multi_setopt(m_multi.get(), CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
    curl_share_setopt(m_share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    m_sessionState.share = m_share.get();

    const std::lock_guard lock(m_mutex);
    m_wakeable = m_multi.get();
}

void CurlURLSession::Worker::tearDown()
{
    {
        const std::lock_guard lock(m_mutex);
        m_wakeable = nullptr;
    }
    m_pool.clear();
    m_multi.reset();
    m_share.reset();
}

/// Starts the waiting requests. Returns false once the session is ending and all requests are completed,
/// including those started by completions.
bool CurlURLSession::Worker::beginWaiting()
{
    while (true) {
        std::vector<Waiting> waiting;
        bool isEnding = false;
        {
            const std::lock_guard lock(m_mutex);
            waiting.swap(m_waiting);
            isEnding = m_isEnding;
        }
        for (Waiting& each : waiting)
            begin(std::move(each));
        if (!isEnding)
            return true;
        if (waiting.empty() && m_transfers.empty())
            return false;
        endAll({URLError::Code::cancelled, "The request was canceled because its session ended."});
    }
}

void CurlURLSession::Worker::begin(Waiting waiting)
{
    CurlHandle handle;
    if (m_pool.empty()) {
        handle.reset(curl_easy_init());
        if (!handle)
            fatalError("out of memory for a request");
    } else {
        handle = std::move(m_pool.back());
        m_pool.pop_back();
    }
    auto transfer = std::make_unique<CurlTransfer>(std::move(waiting.request), std::move(waiting.completion),
                                                   m_sessionState, std::move(handle));
    try {
        transfer->prepare();
    } catch (const URLError& error) {
        deliver(*transfer, error);
        return;
    }
    add(std::move(transfer));
}

void CurlURLSession::Worker::add(std::unique_ptr<CurlTransfer> transfer)
{
    const CURLMcode code = curl_multi_add_handle(m_multi.get(), transfer->handle());
    if (code == CURLM_OK)
        m_transfers.emplace(transfer->handle(), std::move(transfer));
    else
        deliver(*transfer, URLError(URLError::Code::unknown, fmt::format("The request cannot be started: {}.",
                                                                         curl_multi_strerror(code))));
}

void CurlURLSession::Worker::concludeEnded()
{
    int remaining = 0;
    while (const CURLMsg* message = curl_multi_info_read(m_multi.get(), &remaining)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        CURL* const handle = message->easy_handle;
        const CURLcode code = message->data.result;
        auto found = m_transfers.extract(handle);
        curl_multi_remove_handle(m_multi.get(), handle);
        auto transfer = std::move(found.mapped());
        if (auto outcome = transfer->conclude(code))
            deliver(*transfer, *std::move(outcome));
        else
            add(std::move(transfer));
    }
}

void CurlURLSession::Worker::endIdle()
{
    const auto now = CurlTransfer::Clock::now();
    for (auto next = m_transfers.begin(); next != m_transfers.end();) {
        const auto current = next++;
        if (current->second->deadline() <= now)
            end(current->first, current->second->timeoutError());
    }
}

void CurlURLSession::Worker::endAll(const URLError& reason)
{
    while (!m_transfers.empty())
        end(m_transfers.begin()->first, reason);
}

void CurlURLSession::Worker::end(CURL* handle, Outcome outcome)
{
    curl_multi_remove_handle(m_multi.get(), handle);
    const auto transfer = std::move(m_transfers.extract(handle).mapped());
    deliver(*transfer, std::move(outcome));
}

/// Completes a transfer, which must not be used afterwards.
void CurlURLSession::Worker::deliver(CurlTransfer& transfer, Outcome outcome)
{
    const Completion completion = transfer.takeCompletion();
    recycle(transfer.takeHandle());
    completion(std::move(outcome));
}

void CurlURLSession::Worker::recycle(CurlHandle handle)
{
    if (m_pool.size() == pooledHandleCount)
        return;
    curl_easy_reset(handle.get());
    m_pool.push_back(std::move(handle));
}

bool CurlURLSession::Worker::isAnyWaiting()
{
    const std::lock_guard lock(m_mutex);
    return !m_waiting.empty();
}

/// Returns the time until the next deadline, in milliseconds.
int CurlURLSession::Worker::pollTime() const
{
    auto first = CurlTransfer::Clock::time_point::max();
    for (const auto& [handle, transfer] : m_transfers)
        first = std::min(first, transfer->deadline());
    if (m_transfers.empty())
        return INT_MAX;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(first - CurlTransfer::Clock::now()).count();
    return static_cast<int>(std::clamp<long>(left, 0, INT_MAX));
}

CurlURLSession::CurlURLSession() : m_worker(std::make_unique<Worker>()) {}

CurlURLSession::~CurlURLSession() = default;

void CurlURLSession::start(URLRequest request, Completion completion)
{
    m_worker->start(std::move(request), std::move(completion));
}

} // namespace Platform::Network
