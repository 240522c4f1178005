#include "Platform/Push/PushPayload.h"

#include "Platform/PropertyLists/PropertyListReader.h"

#include <fmt/format.h>

namespace Platform::Push {

std::variant<PropertyList::Dictionary, std::string> readPushPayload(std::string_view bytes)
{
    if (bytes.size() > maximumPayloadSize)
        return fmt::format("the payload is larger than {} bytes", maximumPayloadSize);
    // Other formats that the reader knows are none of a payload's.
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

} // namespace Platform::Push
