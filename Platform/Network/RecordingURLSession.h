#pragma once

#include "Platform/Network/ExchangeRecord.h"
#include "Platform/URLSession.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace Platform {
class Clock;
class UserDefaults;
} // namespace Platform

namespace Platform::Network {

/// Performs requests through another session, and keeps in a store how the last request to each server ended,
/// for the newest `maximumServerCount` servers. The server is that of the request, whatever it redirects to.
///
/// Each write is a commit, so an exchange that ends like the one before it within `refreshInterval` is not
/// written.
///
/// Threads: as the other session; the store is written before the outcome is delivered, on the same thread.
/// Errors: those of the store, which affect no request.
class RecordingURLSession final : public URLSession {
public:
    static constexpr std::size_t maximumServerCount = 8;
    static constexpr std::chrono::seconds refreshInterval{60};

    /// `store` and `clock` must outlive this object.
    RecordingURLSession(std::unique_ptr<URLSession> session, UserDefaults& store, const Clock& clock);

    /// A request whose address names no server is performed but not recorded.
    void start(URLRequest request, Completion completion) override;

private:
    void record(const std::string& server, ExchangeRecord record);

    UserDefaults& m_store;
    const Clock& m_clock;
    std::mutex m_mutex;
    /// Absent until the first request ends.
    std::optional<ExchangeRecords> m_records;
    /// Last, because its destructor completes the requests that are under way.
    const std::unique_ptr<URLSession> m_session;
};

} // namespace Platform::Network
