#include "Platform/Push/PendingNotifications.h"

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Push/PushPayload.h"
#include "Platform/UserDefaults.h"

#include <string>
#include <string_view>
#include <utility>

namespace Platform::Push {

namespace {

/// An array of dictionaries, oldest first.
constexpr std::string_view storeKey = "KeptNotifications";

constexpr std::string_view titleKey = "title";
constexpr std::string_view bodyKey = "body";
constexpr std::string_view dateKey = "date";
/// Encoded separately, because a payload may use the full nesting depth of the reader.
constexpr std::string_view userInfoKey = "userInfo";

PropertyList encoded(const UserNotification& notification)
{
    return PropertyList::Dictionary{
        {std::string(titleKey), notification.title},
        {std::string(bodyKey), notification.body},
        {std::string(dateKey), notification.date},
        {std::string(userInfoKey), PropertyLists::writeBinaryPropertyList(notification.userInfo)}};
}

/// Absent if `value` is not an encoded notification.
std::optional<UserNotification> decoded(const PropertyList& value)
{
    const auto* title = member(value, titleKey).text();
    const auto* body = member(value, bodyKey).text();
    const auto* date = member(value, dateKey).date();
    const auto* userInfo = member(value, userInfoKey).data();
    if (title == nullptr || body == nullptr || date == nullptr || userInfo == nullptr)
        return std::nullopt;
    try {
        const auto document = PropertyLists::readPropertyList(
            {reinterpret_cast<const char*>(userInfo->data()), userInfo->size()});
        if (const auto* payload = document.root.dictionary()) {
            auto notification = readPushContents(*payload, *date).notification.value_or(UserNotification());
            notification.title = *title;
            notification.body = *body;
            notification.userInfo = *payload;
            notification.date = *date;
            return notification;
        }
    } catch (const PropertyLists::PropertyListError&) {
        // Not written by this class.
    }
    return std::nullopt;
}

} // namespace

PendingNotifications::Addition PendingNotifications::add(const UserNotification& notification)
{
    std::vector<UserNotification> all = load();
    if (all.size() >= maximumCount)
        return Addition::full;
    all.push_back(notification);
    return save(all) ? Addition::added : Addition::notStored;
}

std::optional<UserNotification> PendingNotifications::oldest() const
{
    std::vector<UserNotification> all = load();
    return all.empty() ? std::nullopt : std::optional(std::move(all.front()));
}

bool PendingNotifications::removeOldest()
{
    std::vector<UserNotification> all = load();
    if (!all.empty())
        all.erase(all.begin());
    return save(all);
}

std::vector<UserNotification> PendingNotifications::load() const
{
    const auto value = m_store.object(storeKey);
    const auto* list = value ? value->array() : nullptr;
    std::vector<UserNotification> all;
    if (list == nullptr)
        return all;
    for (const PropertyList& element : *list)
        if (auto notification = decoded(element))
            all.push_back(*std::move(notification));
    return all;
}

bool PendingNotifications::save(const std::vector<UserNotification>& all)
{
    if (all.empty())
        return m_store.removeObject(storeKey);
    PropertyList::Array list;
    for (const UserNotification& notification : all)
        list.push_back(encoded(notification));
    return m_store.set(storeKey, std::move(list));
}

} // namespace Platform::Push
