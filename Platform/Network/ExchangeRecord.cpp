#include "Platform/Network/ExchangeRecord.h"

#include "Platform/URLReference.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <optional>

namespace Platform::Network {

namespace {

constexpr std::string_view exchangesKey = "URLSession.LastExchanges";

PropertyList encodeExchange(const ExchangeRecord& record)
{
    return PropertyList::Dictionary{{"time", record.time},
                                    {"method", record.method},
                                    {"pathSegmentCount", record.pathSegmentCount},
                                    {"statusCode", record.statusCode},
                                    {"errorCode", record.errorCode}};
}

std::optional<ExchangeRecord> decodeExchange(const PropertyList& value)
{
    const auto* time = member(value, "time").date();
    const auto* method = member(value, "method").text();
    const auto* pathSegmentCount = member(value, "pathSegmentCount").integer();
    const auto* statusCode = member(value, "statusCode").integer();
    const auto* errorCode = member(value, "errorCode").integer();
    if (time == nullptr || method == nullptr || pathSegmentCount == nullptr || statusCode == nullptr ||
        errorCode == nullptr)
        return std::nullopt;
    return ExchangeRecord{*time, *method, *pathSegmentCount, *statusCode, *errorCode};
}

} // namespace

ExchangeRecords storedExchanges(const UserDefaults& store)
{
    ExchangeRecords records;
    const auto stored = store.object(exchangesKey);
    const auto* servers = stored ? stored->dictionary() : nullptr;
    if (servers == nullptr)
        return records;
    for (const auto& [server, value] : *servers) {
        if (auto record = decodeExchange(value))
            records.emplace(server, *std::move(record));
    }
    return records;
}

bool storeExchanges(UserDefaults& store, const ExchangeRecords& records)
{
    PropertyList::Dictionary servers;
    for (const auto& [server, record] : records)
        servers.emplace(server, encodeExchange(record));
    return store.set(exchangesKey, std::move(servers));
}

std::int64_t pathSegmentCount(std::string_view url)
{
    const std::string path = splitURL(url).path;
    return std::count(path.begin(), path.end(), '/');
}

} // namespace Platform::Network
