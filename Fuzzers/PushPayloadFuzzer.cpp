// Fuzzes push payloads: each is rejected, or processed, stored, announced and logged.

#include "Core/Logger.h"
#include "Fuzzers/Fuzzing.h"
#include "Platform/Linux/Logging/StandardErrorLog.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Push/PushPayload.h"
#include "PushNotifications/NotificationPayloadProcessor.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <algorithm>
#include <any>
#include <optional>
#include <string>
#include <variant>

using Fuzzers::isSame, Fuzzers::Numbers, Fuzzers::require;
using Platform::PropertyList;
using PushNotifications::NotificationPayloadProcessor, PushNotifications::ProcessedNotificationPayload;

namespace {

std::optional<std::string> textOf(const PropertyList& value)
{
    return value.text() != nullptr ? std::optional(*value.text()) : std::nullopt;
}

class Device {
public:
    void examine(const PropertyList::Dictionary& payload)
    {
        const auto token =
            m_center.addObserver(NotificationPayloadProcessor::pushNotificationDidProcessPayload, nullptr,
                                 nullptr, [&](const Platform::Notification& notification) {
                                     const auto announced = std::any_cast<ProcessedNotificationPayload>(
                                         notification.userInfo.at("payload"));
                                     require(isSame(announced.userInfo, payload, Numbers::exactly),
                                             "a payload is announced unchanged");
                                     ++m_announcementCount;
                                 });
        int completionCount = 0;
        m_processor.processRemoteNotification(payload, [&](Platform::BackgroundFetchResult, bool isStored) {
            require(isStored, "a record is stored");
            ++completionCount;
        });
        const PropertyList& alert = Platform::member(Platform::member(payload, "aps"), "alert");
        const bool isShort = alert.text() != nullptr;
        const NotificationPayloadProcessor::Summary expected{
            textOf(isShort ? alert : Platform::member(alert, "title")),
            textOf(Platform::member(alert, "body")), m_scheduler.now()};
        m_processor.process(
            {expected.title.value_or(""), expected.body.value_or(""), payload, expected.date});
        m_scheduler.runUntilIdle();

        const auto summaries = m_processor.recentPayloadSummaries(3);
        require(completionCount == 1 && m_announcementCount == 2 && summaries.size() == 2,
                "a notification is completed, announced and stored once");
        require(summaries.back() == expected, "the stored record matches the payload");
        for (const auto& entry : m_log.takeEntries()) {
            std::string line = Platform::Linux::Logging::logLine(expected.date, "info", entry.subsystem,
                                                                 entry.category, entry.line);
            require(!line.empty() && line.back() == '\n', "a log entry ends with a line break");
            line.pop_back();
            // Tabs are allowed.
            std::replace(line.begin(), line.end(), '\t', ' ');
            require(!Fuzzers::holdsControlCharacter(line), "a log entry is one line");
        }
    }

private:
    ManualScheduler m_scheduler;
    Platform::NotificationCenter m_center;
    FakeUserDefaultsDomains m_domains{m_center, m_scheduler.mainQueue};
    RecordingUnifiedLog m_log;
    Core::Logger m_logger{std::make_unique<Core::OSLogSink>(m_log), "com.example.acme"};
    NotificationPayloadProcessor m_processor{
        {m_logger, m_domains, m_center, m_scheduler.mainQueue, m_scheduler}};
    int m_announcementCount = 0;
};

} // namespace

void Fuzzers::examine(std::string_view input)
{
    const auto withCanary = Platform::Push::readPushPayload(Fuzzers::withCanary(input));
    if (const auto* refusal = std::get_if<std::string>(&withCanary))
        requireNoCanary(*refusal);
    const auto payload = Platform::Push::readPushPayload(input);
    if (const auto* refusal = std::get_if<std::string>(&payload)) {
        require(!refusal->empty() && !holdsControlCharacter(*refusal),
                "a rejection has a reason of one line");
        return;
    }
    require(input.size() <= Platform::Push::maximumPayloadSize,
            "an accepted payload is within the size limit");
    Device().examine(std::get<PropertyList::Dictionary>(payload));
}
