#include "Platform/Push/PushPayload.h"

#include "Platform/PropertyLists/PropertyListReader.h"

#include <fmt/format.h>

namespace Platform::Push {

namespace {

std::string textOf(const PropertyList& value)
{
    const auto* text = value.text();
    return text != nullptr ? *text : std::string();
}

} // namespace

std::variant<PropertyList::Dictionary, std::string> readPushPayload(std::string_view bytes)
{
    if (bytes.size() > maximumPayloadSize)
        return fmt::format("the payload is larger than {} bytes", maximumPayloadSize);
    // The reader also accepts formats that are not valid for a payload.
    const auto start = bytes.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos || bytes[start] != '{')
        return "the payload is not a JSON object";
    try {
        return *PropertyLists::readPropertyList(bytes).root.dictionary();
    } catch (const PropertyLists::PropertyListError& error) {
        const std::string place =
            error.position()
                ? fmt::format("line {}, column {}: ", error.position()->line, error.position()->column)
                : "";
        return fmt::format("the payload cannot be read: {}{}", place, error.description());
    }
}

PushContents readPushContents(const PropertyList::Dictionary& payload, Date date)
{
    const PropertyList& aps = member(payload, "aps");
    const PropertyList& alert = member(aps, "alert");
    const auto* contentAvailable = member(aps, "content-available").integer();
    PushContents contents{.notification = {},
                          .isContentAvailable = contentAvailable != nullptr && *contentAvailable == 1};
    const bool isShort = alert.text() != nullptr;
    if (isShort || alert.dictionary() != nullptr)
        contents.notification =
            UserNotification{.title = textOf(isShort ? alert : member(alert, "title")),
                             .body = textOf(member(alert, "body")),
                             .userInfo = payload,
                             .date = date,
                             .hasSound = !member(aps, "sound").isNull(),
                             .isPassive = textOf(member(aps, "interruption-level")) == "passive"};
    return contents;
}

} // namespace Platform::Push
