#include "PushNotifications/NotificationPayloadProcessor.h"

#include "Core/Constants.h"
#include "Core/JSON.h"
#include "Core/Logger.h"
#include "Platform/Clock.h"
#include "Platform/DispatchQueue.h"
#include "Platform/FatalError.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Services.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <utility>

namespace PushNotifications {

using Platform::PropertyList;

namespace {

namespace json = boost::json;

namespace CodingKeys {
constexpr std::string_view title = "title";
constexpr std::string_view body = "body";
constexpr std::string_view date = "date";
constexpr std::string_view userInfoKeys = "userInfoKeys";
} // namespace CodingKeys

std::optional<std::string> textOf(const PropertyList& value)
{
    const auto* text = value.text();
    return text != nullptr ? std::optional(*text) : std::nullopt;
}

std::optional<std::string> unlessEmpty(const std::string& text)
{
    return text.empty() ? std::nullopt : std::optional(text);
}

} // namespace

NotificationPayloadProcessor& NotificationPayloadProcessor::shared()
{
    const Platform::Services& services = Platform::services();
    static auto& instance =
        *new NotificationPayloadProcessor({Core::Logger::shared(), services.userDefaults,
                                           services.notificationCenter, services.mainQueue, services.clock});
    return instance;
}

void NotificationPayloadProcessor::processRemoteNotification(
    const PropertyList::Dictionary& userInfo,
    const Platform::ApplicationDelegate::FetchCompletion& fetchCompletionHandler)
{
    const ProcessedNotificationPayload payload = makePayload(userInfo);
    const bool isStored = store(payload);
    postProcessedPayload(payload);
    m_ports.logger.info(
        "Processed remote notification", "processRemoteNotification(userInfo:fetchCompletionHandler:)",
        {.category = Core::LogCategory::notifications,
         .context = {{"title", payload.title.value_or("")}, {"body", payload.body.value_or("")}}});
    fetchCompletionHandler(Platform::BackgroundFetchResult::newData, isStored);
}

bool NotificationPayloadProcessor::process(const Platform::UserNotification& notification)
{
    const ProcessedNotificationPayload payload{unlessEmpty(notification.title),
                                               unlessEmpty(notification.body), notification.userInfo,
                                               notification.date};
    const bool isStored = store(payload);
    postProcessedPayload(payload);
    m_ports.logger.info("Processed notification from center", "process(notification:)",
                        {.category = Core::LogCategory::notifications,
                         .context = {{"title", notification.title}, {"body", notification.body}}});
    return isStored;
}

ProcessedNotificationPayload
NotificationPayloadProcessor::makePayload(const PropertyList::Dictionary& userInfo) const
{
    const PropertyList& alert = member(member(userInfo, "aps"), "alert");
    ProcessedNotificationPayload payload{{}, {}, userInfo, m_ports.clock.now()};
    if (alert.dictionary() != nullptr) {
        payload.title = textOf(member(alert, "title"));
        payload.body = textOf(member(alert, "body"));
    } else {
        // An alert that is a string holds only the title.
        payload.title = textOf(alert);
    }
    return payload;
}

bool NotificationPayloadProcessor::store(const ProcessedNotificationPayload& payload)
{
    StoredPayloadItem item{payload.title, payload.body, payload.date, {}};
    for (const auto& entry : payload.userInfo)
        item.userInfoKeys.push_back(entry.first);
    std::vector<StoredPayloadItem> items = loadStoredItems(m_ports.userDefaults.standard());
    items.insert(items.begin(), std::move(item));
    items.resize(std::min(items.size(), maxStoredPayloads));
    return saveStoredItems(items);
}

std::vector<NotificationPayloadProcessor::StoredPayloadItem>
NotificationPayloadProcessor::loadStoredItems(const Platform::UserDefaults& standard)
{
    const auto data = standard.data(Core::Constants::StorageKeys::processedNotificationPayloads);
    if (!data)
        return {};
    std::vector<StoredPayloadItem> items;
    try {
        const json::value list = Core::JSONDecoder().decode(*data);
        for (const json::value& element : list.as_array()) {
            const Core::KeyedDecoder decoder(element);
            items.push_back({decoder.optionalString(CodingKeys::title),
                             decoder.optionalString(CodingKeys::body),
                             {decoder.number(CodingKeys::date)},
                             decoder.strings(CodingKeys::userInfoKeys)});
        }
    } catch (const std::exception&) {
        return {};
    }
    return items;
}

bool NotificationPayloadProcessor::saveStoredItems(const std::vector<StoredPayloadItem>& items)
{
    json::array list;
    for (const StoredPayloadItem& item : items) {
        json::object object;
        if (item.title)
            object[CodingKeys::title] = *item.title;
        if (item.body)
            object[CodingKeys::body] = *item.body;
        object[CodingKeys::date] = item.date.secondsSinceReferenceDate;
        object[CodingKeys::userInfoKeys] = json::array(item.userInfoKeys.begin(), item.userInfoKeys.end());
        list.push_back(std::move(object));
    }
    try {
        return m_ports.userDefaults.standard().set(
            Core::Constants::StorageKeys::processedNotificationPayloads,
            Core::JSONEncoder().encode(std::move(list)));
    } catch (const Core::EncodingError&) {
        // The date is not finite; the history stays unchanged.
        return false;
    }
}

void NotificationPayloadProcessor::postProcessedPayload(const ProcessedNotificationPayload& payload)
{
    m_ports.mainQueue.async([&center = m_ports.notificationCenter, payload] {
        center.post({std::string(pushNotificationDidProcessPayload), nullptr, {{"payload", payload}}});
    });
}

std::vector<NotificationPayloadProcessor::Summary>
NotificationPayloadProcessor::recentPayloadSummaries(std::int64_t limit) const
{
    return payloadSummaries(m_ports.userDefaults.standard(), limit);
}

std::vector<NotificationPayloadProcessor::Summary>
NotificationPayloadProcessor::payloadSummaries(const Platform::UserDefaults& standard, std::int64_t limit)
{
    if (limit < 0)
        Platform::fatalError("recentPayloadSummaries(limit:) requires a limit of at least 0");
    std::vector<Summary> summaries;
    for (const StoredPayloadItem& item : loadStoredItems(standard)) {
        if (std::cmp_greater_equal(summaries.size(), limit))
            break;
        summaries.push_back({item.title, item.body, item.date});
    }
    return summaries;
}

} // namespace PushNotifications
