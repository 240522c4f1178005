#include "Platform/Network/RecordingURLSession.h"

#include "Platform/Clock.h"
#include "Platform/Network/SecureRequest.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <utility>

namespace Platform::Network {

namespace {

/// Returns "host:port"; absent if the URL is invalid.
std::optional<std::string> serverOf(const std::string& url)
{
    try {
        return parseSecureURL(url).endpoint();
    } catch (const URLError&) {
        return std::nullopt;
    }
}

void setOutcome(ExchangeRecord& record, const URLSession::Outcome& outcome)
{
    if (const auto* error = std::get_if<URLError>(&outcome))
        record.errorCode = error->errorCode();
    else if (const auto& http = std::get<URLResponse>(outcome).http)
        record.statusCode = http->statusCode;
}

/// Returns whether `next` need not be written.
bool isCoveredBy(const ExchangeRecord& previous, const ExchangeRecord& next)
{
    const double age = next.time.secondsSinceReferenceDate - previous.time.secondsSinceReferenceDate;
    ExchangeRecord same = next;
    same.time = previous.time;
    return same == previous && age >= 0 && age < RecordingURLSession::refreshInterval.count();
}

void dropOldest(ExchangeRecords& records)
{
    while (records.size() > RecordingURLSession::maximumServerCount)
        records.erase(
            std::min_element(records.begin(), records.end(), [](const auto& left, const auto& right) {
                return left.second.time.secondsSinceReferenceDate <
                       right.second.time.secondsSinceReferenceDate;
            }));
}

} // namespace

RecordingURLSession::RecordingURLSession(std::unique_ptr<URLSession> session, UserDefaults& store,
                                         const Clock& clock)
    : m_store(store), m_clock(clock), m_session(std::move(session))
{}

void RecordingURLSession::start(URLRequest request, Completion completion)
{
    const auto server = serverOf(request.url);
    if (!server) {
        m_session->start(std::move(request), std::move(completion));
        return;
    }
    ExchangeRecord begun;
    begun.method = request.httpMethod;
    begun.pathSegmentCount = pathSegmentCount(request.url);
    m_session->start(std::move(request), [this, server = *server, begun = std::move(begun),
                                          completion = std::move(completion)](Outcome outcome) {
        ExchangeRecord ended = begun;
        ended.time = m_clock.now();
        setOutcome(ended, outcome);
        record(server, std::move(ended));
        completion(std::move(outcome));
    });
}

void RecordingURLSession::record(const std::string& server, ExchangeRecord record)
{
    const std::lock_guard lock(m_mutex);
    if (!m_records)
        m_records = storedExchanges(m_store);
    const auto previous = m_records->find(server);
    if (previous != m_records->end() && isCoveredBy(previous->second, record))
        return;
    m_records->insert_or_assign(server, std::move(record));
    dropOldest(*m_records);
    storeExchanges(m_store, *m_records);
}

} // namespace Platform::Network
