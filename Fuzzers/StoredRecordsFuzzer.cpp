// Fuzzes the readers of stored records, which another program may have changed: the snapshot and the history.

#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Fuzzers/Fuzzing.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tests/Fakes/Bytes.h"

#include <algorithm>

using namespace Core;
using Fuzzers::require;
using PushNotifications::NotificationPayloadProcessor;
using Summaries = std::vector<NotificationPayloadProcessor::Summary>;

namespace {

constexpr std::size_t historyLimit = 100;

void examineSnapshot(const Platform::Data& stored)
{
    const auto snapshot =
        Fuzzers::accepted<DecodingError>([&] { return ConfigurationSnapshot::decode(stored); });
    if (!snapshot)
        return;
    static_cast<void>(snapshot->lastUpdated.utcText());
    require(ConfigurationSnapshot::decode(snapshot->encode()) == *snapshot, "a snapshot survives encoding");
}

void examineHistory(const Platform::Data& stored)
{
    Fuzzers::Device device;
    NotificationPayloadProcessor processor(
        {device.logger, device.domains, device.center, device.scheduler.mainQueue, device.scheduler});
    device.domains.standard().set(Constants::StorageKeys::processedNotificationPayloads, stored);

    const auto all = static_cast<std::int64_t>(stored.size());
    const Summaries before = processor.recentPayloadSummaries(all);
    for (const auto& summary : before)
        static_cast<void>(summary.date.utcText());
    require(processor.recentPayloadSummaries(1).size() == std::min<std::size_t>(before.size(), 1),
            "the number of records respects the limit");

    processor.processRemoteNotification({{"aps", Platform::PropertyList::Dictionary{{"alert", "newest"}}}},
                                        [](Platform::BackgroundFetchResult, bool) {});
    const Summaries after = processor.recentPayloadSummaries(all + 1);
    require(after.size() == std::min(before.size() + 1, historyLimit) && after.front().title == "newest",
            "the newest notification is added and the history stays within its limit");
    require(std::equal(after.begin() + 1, after.end(), before.begin()), "older records are unchanged");
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    const Platform::Data stored = bytesOf(input);
    examineSnapshot(stored);
    examineHistory(stored);
}
