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

/// Performs requests through another session and stores the result of the last request to each server, for up
/// to `maximumServerCount` servers. Redirects count for the server of the original request.
///
/// To save commits, a result that equals the previous one is not written again within `refreshInterval`.
///
/// Threads: like the other session. The record is written before the completion runs, on the same thread.
/// Errors: store errors do not affect requests.
class RecordingURLSession final : public URLSession {
public:
    static constexpr std::size_t maximumServerCount = 8;
    static constexpr std::chrono::seconds refreshInterval{60};

    /// `store` and `clock` must outlive this object.
    RecordingURLSession(std::unique_ptr<URLSession> session, UserDefaults& store, const Clock& clock);

    /// Does not record a request whose URL has no valid host and port.
    void start(URLRequest request, Completion completion) override;

private:
    void record(const std::string& server, ExchangeRecord record);

    UserDefaults& m_store;
    const Clock& m_clock;
    std::mutex m_mutex;
    /// Absent until the first request ends.
    std::optional<ExchangeRecords> m_records;
    /// Declared last, because its destructor completes the pending requests.
    const std::unique_ptr<URLSession> m_session;
};

} // namespace Platform::Network
