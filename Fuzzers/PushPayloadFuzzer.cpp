// Fuzzes push payloads: each is rejected, or processed, stored, announced and logged.

#include "Fuzzers/Fuzzing.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/Push/PushPayload.h"
#include "PushNotifications/NotificationPayloadProcessor.h"

#include <algorithm>

using Fuzzers::isSame, Fuzzers::Numbers, Fuzzers::require;
using Platform::PropertyList;
using PushNotifications::NotificationPayloadProcessor, PushNotifications::ProcessedNotificationPayload;

namespace {

std::optional<std::string> textOf(const PropertyList& value)
{
    return value.text() != nullptr ? std::optional(*value.text()) : std::nullopt;
}

void examineAccepted(const PropertyList::Dictionary& payload)
{
    Fuzzers::Device device;
    NotificationPayloadProcessor processor(
        {device.logger, device.domains, device.center, device.scheduler.mainQueue, device.scheduler});
    int announcementCount = 0;
    const auto token =
        device.center.addObserver(NotificationPayloadProcessor::pushNotificationDidProcessPayload, nullptr,
                                  nullptr, [&](const Platform::Notification& notification) {
                                      const auto announced = std::any_cast<ProcessedNotificationPayload>(
                                          notification.userInfo.at("payload"));
                                      require(isSame(announced.userInfo, payload, Numbers::exactly),
                                              "a payload is announced unchanged");
                                      ++announcementCount;
                                  });
    int completionCount = 0;
    processor.processRemoteNotification(payload, [&](Platform::BackgroundFetchResult, bool isStored) {
        require(isStored, "a record is stored");
        ++completionCount;
    });
    const PropertyList& alert = Platform::member(Platform::member(payload, "aps"), "alert");
    const bool isShort = alert.text() != nullptr;
    const NotificationPayloadProcessor::Summary expected{
        textOf(isShort ? alert : Platform::member(alert, "title")), textOf(Platform::member(alert, "body")),
        device.scheduler.now()};
    processor.process({expected.title.value_or(""), expected.body.value_or(""), payload, expected.date});
    device.scheduler.runUntilIdle();

    const auto summaries = processor.recentPayloadSummaries(3);
    require(completionCount == 1 && announcementCount == 2 && summaries.size() == 2,
            "a notification is completed, announced and stored once");
    require(summaries.back() == expected, "the stored record matches the payload");
    for (const auto& entry : device.log.takeEntries()) {
        std::string line = Platform::Linux::Logging::logLine(expected.date, "info", entry.subsystem,
                                                             entry.category, entry.line);
        require(!line.empty() && line.back() == '\n', "a log entry ends with a line break");
        line.pop_back();
        std::replace(line.begin(), line.end(), '\t', ' '); // Tabs are allowed.
        require(!Fuzzers::holdsControlCharacter(line), "a log entry is one line");
    }
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    for (const std::string& text : {std::string(input), withCanary(input)}) {
        const auto payload = Platform::Push::readPushPayload(text);
        if (const auto* refusal = std::get_if<std::string>(&payload)) {
            require(!refusal->empty() && !holdsControlCharacter(*refusal),
                    "a rejection has a reason of one line");
            requireNoCanary(*refusal);
            continue;
        }
        require(text.size() <= Platform::Push::maximumPayloadSize,
                "an accepted payload is within the size limit");
        examineAccepted(std::get<PropertyList::Dictionary>(payload));
    }
}
