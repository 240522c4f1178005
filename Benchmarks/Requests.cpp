#include "Benchmarks/Figures.h"
#include "Platform/Linux/CurlURLSession.h"
#include "Platform/Linux/WorkerQueue.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/Backend/TestBackend.h"
#include "Tools/Tour/ChildProcess.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <stdexcept>

namespace {

using namespace Platform;

constexpr std::string_view payload =
    R"({"token":"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"})";

/// A backend on loopback whose certificate this process and those it starts trust.
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
    std::size_t takeRequestCount() { return m_backend.takeRequests().size(); }

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

/// The session of a process that has sent a request before.
class WarmSession {
public:
    WarmSession() { post(1, 1); }

    /// Lets `taskCount` tasks send `requestCount` requests each, one after the other; returns when all have
    /// ended. Throws when a request failed or did not arrive.
    void post(int taskCount, int requestCount)
    {
        std::latch ended(taskCount);
        m_failureCount = 0;
        for (int i = 0; i < taskCount; ++i)
            spawn(m_tasks, upload(requestCount, ended));
        ended.wait();
        const auto arrived = static_cast<int>(m_backend.takeRequestCount());
        if (m_failureCount > 0 || arrived != taskCount * requestCount)
            throw std::runtime_error(fmt::format("of {} requests, {} arrived and {} failed",
                                                 taskCount * requestCount, arrived, m_failureCount.load()));
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
    Linux::CurlURLSession m_session;
};

/// One connection of the library, used again and again.
class BareConnection {
public:
    BareConnection()
    {
        m_headers = curl_slist_append(nullptr, "Content-Type: application/json");
        curl_easy_setopt(m_handle, CURLOPT_URL, m_backend.url().c_str());
        curl_easy_setopt(m_handle, CURLOPT_CAINFO, m_backend.certificateAuthority().c_str());
        curl_easy_setopt(m_handle, CURLOPT_HTTPHEADER, m_headers);
        curl_easy_setopt(
            m_handle, CURLOPT_WRITEFUNCTION,
            +[](char*, std::size_t size, std::size_t count, void*) { return size * count; });
        post(1);
    }
    ~BareConnection()
    {
        curl_slist_free_all(m_headers);
        curl_easy_cleanup(m_handle);
    }
    BareConnection(const BareConnection&) = delete;
    BareConnection& operator=(const BareConnection&) = delete;

    void post(int count)
    {
        for (int i = 0; i < count; ++i) {
            curl_easy_setopt(m_handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(payload.size()));
            curl_easy_setopt(m_handle, CURLOPT_POSTFIELDS, payload.data());
            if (const CURLcode code = curl_easy_perform(m_handle); code != CURLE_OK)
                throw std::runtime_error(curl_easy_strerror(code));
        }
    }

private:
    TrustedBackend m_backend;
    CURL* m_handle = curl_easy_init();
    curl_slist* m_headers = nullptr;
};

/// Runs `measure` on a `Subject`, whose making is not measured.
template <typename Subject, typename Measure>
Figure::Measurement on(Measure measure)
{
    return [measure](benchmark::State& state) {
        try {
            Subject subject;
            for (auto _ : state)
                measure(subject);
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
    };
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
         {},
         Figure::Clock::wall,
         1},
    };
}
