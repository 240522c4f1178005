#include "Platform/Network/ResponseHeader.h"

namespace Platform::Network {

namespace {

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool isSameName(std::string_view left, std::string_view right)
{
    const HeaderNameLess isLess;
    return !isLess(left, right) && !isLess(right, left);
}

} // namespace

bool ResponseHeader::addLine(std::string_view line)
{
    m_byteCount += line.size();
    if (isTooLong())
        return false;
    // Each response starts with a status line. The final response replaces proxy and interim responses.
    if (line.starts_with("HTTP/")) {
        m_fields.clear();
        m_fieldCount = 0;
        m_isComplete = false;
        m_lastValue = nullptr;
    } else if (trimmed(line).empty()) {
        m_isComplete = true;
    } else if (!m_isComplete) {
        const bool isContinuation = line.front() == ' ' || line.front() == '\t';
        isContinuation ? continueField(trimmed(line)) : addField(line);
    }
    return true;
}

void ResponseHeader::addField(std::string_view line)
{
    m_lastValue = nullptr;
    const auto colon = line.find(':');
    if (colon == std::string_view::npos)
        return;
    const std::string_view name = trimmed(line.substr(0, colon));
    // A redirect needs exactly one target, so `Location` is exempt from the limit and never joined to a list.
    const bool isLocation = isSameName(name, "Location");
    if (!isLocation && ++m_fieldCount > maximumFieldCount)
        return;
    const std::string_view value = trimmed(line.substr(colon + 1));
    const auto [position, isNew] = m_fields.try_emplace(std::string(name), value);
    if (!isNew && isLocation)
        return;
    if (!isNew)
        position->second.append(", ").append(value);
    m_lastValue = &position->second;
}

void ResponseHeader::continueField(std::string_view line)
{
    // RFC 9112, section 5.2: a folded line continues the value after a single space.
    if (m_lastValue != nullptr)
        m_lastValue->append(" ").append(line);
}

} // namespace Platform::Network
