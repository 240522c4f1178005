#include "Platform/PropertyLists/PropertyListReader.h"

#include "Platform/PropertyLists/PropertyListFormats.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace Platform::PropertyLists {

namespace {

void validateUTF8(std::string_view text, TextDocument& document)
{
    for (std::size_t offset = 0; offset < text.size();) {
        const auto character = decodeUTF8(text.substr(offset));
        if (!character)
            document.fail("is not valid UTF-8; save it as UTF-8", offset);
        offset += character->length;
    }
}

bool startsWithWideByteOrderMark(std::string_view bytes)
{
    using namespace std::string_view_literals;
    return bytes.starts_with("\xFE\xFF"sv) || bytes.starts_with("\xFF\xFE"sv) ||
           bytes.starts_with("\0\0\xFE\xFF"sv);
}

} // namespace

std::string_view formatName(PropertyListFormat format)
{
    switch (format) {
    case PropertyListFormat::xml:
        return "XML property list";
    case PropertyListFormat::binary:
        return "binary property list";
    case PropertyListFormat::json:
        break;
    }
    return "JSON";
}

PropertyListError::PropertyListError(std::string reason, std::optional<TextPosition> position)
    : ErrorException(std::move(reason)), m_position(position)
{}

PropertyListDocument readPropertyList(std::string_view bytes, WithPlaces withPlaces)
{
    if (bytes.size() > maximumPropertyListBytes)
        throw PropertyListError(fmt::format("is larger than {} MiB", maximumPropertyListBytes >> 20U));
    if (bytes.starts_with("bplist00"))
        return readBinaryPropertyList(bytes);
    if (bytes.starts_with("bplist"))
        throw PropertyListError("is a binary property list of an unsupported version; only 00 is supported");
    if (startsWithWideByteOrderMark(bytes))
        throw PropertyListError("is encoded in UTF-16 or UTF-32; save it as UTF-8");

    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const std::string_view text =
        bytes.starts_with(byteOrderMark) ? bytes.substr(byteOrderMark.size()) : bytes;
    const std::size_t start = text.find_first_not_of(textBlanks);
    if (start == std::string_view::npos)
        throw PropertyListError("is empty");
    if (text[start] != '<' && text[start] != '{')
        throw PropertyListError("is neither an XML property list, a binary property list nor a JSON object");
    TextDocument document(text, WithPlaces::no);
    validateUTF8(text, document);
    return text[start] == '<' ? readXMLPropertyList(text, withPlaces)
                              : readJSONPropertyList(text, withPlaces);
}

std::string tooDeepReason()
{
    return fmt::format("arrays and dictionaries are nested more than {} levels deep",
                       maximumPropertyListDepth);
}

std::string tooManyValuesReason()
{
    return fmt::format("contains more than {} values", maximumPropertyListValueCount);
}

TextPosition TextDocument::positionOf(std::size_t offset)
{
    if (offset < m_measuredBytes) {
        m_measuredBytes = 0;
        m_measured = {};
    }
    for (const std::size_t end = std::min(offset, m_text.size()); m_measuredBytes < end; ++m_measuredBytes) {
        const char byte = m_text[m_measuredBytes];
        if (byte == '\n')
            m_measured = {m_measured.line + 1, 1};
        else if (!isContinuationByte(byte))
            ++m_measured.column;
    }
    return m_measured;
}

void TextDocument::fail(std::string reason, std::size_t offset)
{
    throw PropertyListError(std::move(reason), positionOf(offset));
}

void TextDocument::countValue(std::size_t offset)
{
    if (++m_valueCount > maximumPropertyListValueCount)
        fail(tooManyValuesReason(), offset);
}

void TextDocument::notePlace(std::string_view path, std::optional<std::size_t> keyOffset,
                             std::size_t valueOffset)
{
    if (m_withPlaces == WithPlaces::no)
        return;
    PropertyListPlaces::Place place;
    if (keyOffset)
        place.key = positionOf(*keyOffset);
    place.value = positionOf(valueOffset);
    m_places.byPath.insert_or_assign(std::string(path), place);
}

PropertyList& TextDictionary::insert(std::string key, std::size_t offset, TextDocument& document)
{
    const auto [entry, isNew] = m_values.try_emplace(std::move(key));
    if (!isNew) {
        const auto first = std::ranges::find(m_keyOffsets, &entry->first,
                                             &std::pair<const std::string*, std::size_t>::first);
        const std::size_t firstLine = document.positionOf(first->second).line;
        document.fail(fmt::format("a key appears twice in one dictionary (first on line {})", firstLine),
                      offset);
    }
    m_keyOffsets.emplace_back(&entry->first, offset);
    return entry->second;
}

} // namespace Platform::PropertyLists
