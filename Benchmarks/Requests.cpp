#include "Benchmarks/Figures.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Platform/Network/CurlURLSession.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ChildProcess.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace Platform;

constexpr std::string_view payload =
    R"({"token":"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"})";

/// A backend on loopback. This process and its children trust its certificate.
class TrustedBackend {
public:
    TrustedBackend()
    {
        ::setenv("SSL_CERT_FILE", m_backend.certificateAuthority().c_str(), 1);
        ::setenv("no_proxy", "*", 1);
    }
    ~TrustedBackend() { ::unsetenv("SSL_CERT_FILE"); }
    TrustedBackend(const TrustedBackend&) = delete;
    TrustedBackend& operator=(const TrustedBackend&) = delete;

    [[nodiscard]] std::string url() const { return m_backend.baseURL() + "/token"; }
    [[nodiscard]] std::string certificateAuthority() const { return m_backend.certificateAuthority(); }
    void answerWithFields(int count)
    {
        TestBackend::Reply reply;
        for (int i = 0; i < count; ++i)
            reply.headerFields.emplace("A", "");
        m_backend.setReply("*", reply);
    }
    /// Throws unless exactly `count` requests have arrived since the last call.
    void verifyArrived(int count)
    {
        if (const std::size_t arrived = m_backend.takeRequests().size(); std::cmp_not_equal(arrived, count))
            throw std::runtime_error(fmt::format("of {} requests, {} arrived", count, arrived));
    }

private:
    TemporaryFolder m_folder;
    TestBackend m_backend{{.folder = m_folder.path()}};
};

URLRequest tokenUpload(const std::string& url)
{
    URLRequest request{.url = url, .httpMethod = "POST"};
    request.setValue("application/json", "Content-Type");
    const auto* bytes = reinterpret_cast<const std::byte*>(payload.data());
    request.httpBody.emplace(bytes, bytes + payload.size());
    return request;
}

/// A session that has already sent a request.
class WarmSession {
public:
    WarmSession() { post(1, 1); }
    void answerWithFields(int count) { m_backend.answerWithFields(count); }

    /// Runs `taskCount` tasks that send `requestCount` requests each, one after the other; blocks until all
    /// have ended. Throws if a request failed or did not arrive.
    void post(int taskCount, int requestCount)
    {
        std::latch ended(taskCount);
        m_failureCount = 0;
        for (int i = 0; i < taskCount; ++i)
            spawn(m_tasks, upload(requestCount, ended));
        ended.wait();
        m_backend.verifyArrived(taskCount * requestCount);
        if (m_failureCount > 0)
            throw std::runtime_error(fmt::format("{} requests failed", m_failureCount.load()));
    }

private:
    Task<void> upload(int requestCount, std::latch& ended)
    {
        for (int i = 0; i < requestCount; ++i) {
            try {
                auto transfer = m_session.data(tokenUpload(m_backend.url()));
                const URLResponse response = co_await std::move(transfer);
                if (!response.http || response.http->statusCode != 200)
                    ++m_failureCount;
            } catch (const URLError&) {
                ++m_failureCount;
            }
        }
        ended.count_down();
    }

    TrustedBackend m_backend;
    std::atomic<int> m_failureCount = 0;
    Linux::WorkerQueue m_tasks{"tasks", Linux::WorkerQueue::Priority::default_};
    Network::CurlURLSession m_session;
};

/// A handle of libcurl that posts the payload, with the same header fields as ours.
class BareHandle {
public:
    explicit BareHandle(const TrustedBackend& backend)
    {
        curl_easy_setopt(get(), CURLOPT_URL, backend.url().c_str());
        curl_easy_setopt(get(), CURLOPT_CAINFO, backend.certificateAuthority().c_str());
        curl_easy_setopt(get(), CURLOPT_HTTPHEADER, m_headers.get());
        curl_easy_setopt(get(), CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(get(), CURLOPT_USERAGENT, "quorvane-mdm");
        curl_easy_setopt(get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(payload.size()));
        curl_easy_setopt(get(), CURLOPT_POSTFIELDS, payload.data());
        curl_easy_setopt(
            get(), CURLOPT_WRITEFUNCTION,
            +[](char*, std::size_t size, std::size_t count, void*) { return size * count; });
    }
    [[nodiscard]] CURL* get() const { return m_handle.get(); }

private:
    struct Free {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    std::unique_ptr<curl_slist, Free> m_headers{curl_slist_append(nullptr, "Content-Type: application/json")};
    std::unique_ptr<CURL, Free> m_handle{curl_easy_init()};
};

/// One connection of libcurl, reused for all requests.
class BareConnection {
public:
    BareConnection() { post(1); }
    void answerWithFields(int count) { m_backend.answerWithFields(count); }

    void post(int count)
    {
        for (int i = 0; i < count; ++i) {
            if (const CURLcode code = curl_easy_perform(m_handle.get()); code != CURLE_OK)
                throw std::runtime_error(curl_easy_strerror(code));
        }
        m_backend.verifyArrived(count);
    }

private:
    TrustedBackend m_backend;
    BareHandle m_handle{m_backend};
};

/// As many connections of libcurl as our session opens to one host.
class BareCrowd {
public:
    BareCrowd()
    {
        constexpr long connectionCount = 6;
        curl_multi_setopt(m_multi, CURLMOPT_MAX_HOST_CONNECTIONS, connectionCount);
        post(1);
    }
    ~BareCrowd() { curl_multi_cleanup(m_multi); }
    BareCrowd(const BareCrowd&) = delete;
    BareCrowd& operator=(const BareCrowd&) = delete;

    void post(int count)
    {
        std::vector<BareHandle> handles;
        for (int i = 0; i < count; ++i)
            curl_multi_add_handle(m_multi, handles.emplace_back(m_backend).get());
        constexpr int longestWaitMilliseconds = 1000;
        for (int running = 1; running > 0;) {
            curl_multi_perform(m_multi, &running);
            curl_multi_poll(m_multi, nullptr, 0, running > 0 ? longestWaitMilliseconds : 0, nullptr);
        }
        for (const BareHandle& handle : handles)
            curl_multi_remove_handle(m_multi, handle.get());
        m_backend.verifyArrived(count);
    }

private:
    TrustedBackend m_backend;
    CURLM* m_multi = curl_multi_init();
};

/// A session or connection whose backend answers with a given number of header fields.
template <typename Subject, int count>
class WithFields : public Subject {
public:
    WithFields() { Subject::answerWithFields(count); }
};

/// Runs `measure` on a `Subject`. Its construction is not measured.
template <typename Subject, typename Measure>
Figure::Measurement on(Measure measure)
{
    return Figure::catching([measure](benchmark::State& state) {
        Subject subject;
        for (auto _ : state)
            measure(subject);
    });
}

template <int count>
Figure responseFigure()
{
    return {fmt::format("response of {} header fields", count),
            on<WithFields<WarmSession, count>>([](WarmSession& session) { session.post(1, 1); }),
            {{"libcurl, one connection",
              on<WithFields<BareConnection, count>>([](BareConnection& connection) { connection.post(1); })}},
            Figure::Clock::wall,
            10,
            Figure::Quantity::duration,
            0,
            "response of 500 header fields"};
}

void postWithProgram(TrustedBackend& backend)
{
    ChildProcess program({"curl", "--silent", "--fail", "--cacert", backend.certificateAuthority(),
                          "--header", "Content-Type: application/json", "--data", std::string(payload),
                          backend.url()},
                         {});
    if (program.waitForExit() != 0)
        throw std::runtime_error("curl failed");
}

} // namespace

std::vector<Figure> requestFigures()
{
    static constexpr int sequenceCount = 500;
    static constexpr int crowdCount = 1000;
    return {
        {"token upload, warm process",
         on<WarmSession>([](WarmSession& session) { session.post(1, 1); }),
         {{"curl, whole program", on<TrustedBackend>(postWithProgram), {.ratio = 0.5}}},
         Figure::Clock::wall,
         10},
        {"500 uploads in a row",
         on<WarmSession>([](WarmSession& session) { session.post(1, sequenceCount); }),
         {{"libcurl, one connection",
           on<BareConnection>([](BareConnection& connection) { connection.post(sequenceCount); }),
           {.ratio = 1.2}}},
         Figure::Clock::wall,
         1},
        {"1000 uploads in flight, all arrived",
         on<WarmSession>([](WarmSession& session) { session.post(crowdCount, 1); }),
         {{"libcurl, six connections", on<BareCrowd>([](BareCrowd& crowd) { crowd.post(crowdCount); })}},
         Figure::Clock::wall,
         1},
        responseFigure<500>(),
        responseFigure<5'000>(),
        responseFigure<50'000>(),
    };
}
