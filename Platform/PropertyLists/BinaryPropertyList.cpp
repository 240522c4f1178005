#include "Platform/PropertyLists/PropertyListFormats.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace Platform::PropertyLists {

namespace {

constexpr std::size_t headerBytes = 8;
constexpr std::size_t trailerBytes = 32;
/// The limit for all strings and data, counted once per reference. Without it a small document could expand
/// to a huge one.
constexpr std::size_t maximumExpandedBytes = std::size_t{64} * 1024 * 1024;

/// Decodes up to eight bytes as a big-endian number.
std::uint64_t bigEndian(std::string_view bytes)
{
    std::uint64_t value = 0;
    for (const char byte : bytes)
        value = (value << 8U) | static_cast<unsigned char>(byte);
    return value;
}

[[noreturn]] void fail(std::string reason)
{
    throw PropertyListError(std::move(reason));
}

class BinaryReader {
public:
    explicit BinaryReader(std::string_view bytes);

    PropertyList root() { return value(m_top); }

private:
    /// An object's decoded marker.
    struct Object {
        /// The high four bits of the marker.
        unsigned type = 0;
        /// The low four bits of the marker.
        unsigned low = 0;
        /// The number of bytes, code units or elements, for the types that have a count.
        std::uint64_t count = 0;
        /// Where the content starts, after marker and count.
        std::size_t offset = 0;
    };

    [[nodiscard]] Object objectAt(std::uint64_t index) const;
    [[nodiscard]] std::string_view slice(std::size_t offset, std::uint64_t count,
                                         std::size_t unitBytes = 1) const;
    [[nodiscard]] PropertyList integer(const Object& object) const;
    [[nodiscard]] double floatingPoint(const Object& object) const;
    PropertyList value(std::uint64_t index);
    [[nodiscard]] PropertyList date(const Object& object) const;
    PropertyList data(const Object& object);
    PropertyList array(const Object& object);
    PropertyList dictionary(const Object& object);
    std::string text(const Object& object);
    std::string utf16Text(std::string_view units);
    void enter(std::uint64_t index);
    void countValues(std::uint64_t count);
    void countExpanded(std::size_t bytes);
    [[nodiscard]] std::uint64_t reference(std::string_view references, std::uint64_t position) const;

    std::string_view m_objects;
    std::string_view m_offsets;
    std::size_t m_offsetBytes = 0;
    std::size_t m_referenceBytes = 0;
    std::uint64_t m_objectCount = 0;
    std::uint64_t m_top = 0;
    /// The indexes of the containers being read, outermost first.
    std::vector<std::uint64_t> m_path;
    std::uint64_t m_valueCount = 1;
    std::size_t m_expandedBytes = 0;
};

BinaryReader::BinaryReader(std::string_view bytes)
{
    if (bytes.size() < headerBytes + trailerBytes)
        fail("ends before the trailer");
    const std::string_view trailer = bytes.substr(bytes.size() - trailerBytes);
    m_offsetBytes = static_cast<unsigned char>(trailer[6]);
    m_referenceBytes = static_cast<unsigned char>(trailer[7]);
    m_objectCount = bigEndian(trailer.substr(8, 8));
    m_top = bigEndian(trailer.substr(16, 8));
    const std::uint64_t tableOffset = bigEndian(trailer.substr(24, 8));

    if (m_offsetBytes < 1 || m_offsetBytes > 8 || m_referenceBytes < 1 || m_referenceBytes > 8)
        fail("the trailer contains an invalid size of offsets or references");
    // The first checks bound the numbers, so that the sum cannot overflow.
    const std::size_t tableEnd = bytes.size() - trailerBytes;
    if (tableOffset < headerBytes || tableOffset > tableEnd || m_objectCount > tableEnd ||
        tableOffset + m_objectCount * m_offsetBytes != tableEnd)
        fail("is cut short or damaged: the offset table does not fill the space before the trailer");
    if (m_top >= m_objectCount)
        fail("the trailer refers to a root object that does not exist");
    m_objects = bytes.substr(0, tableOffset);
    m_offsets = bytes.substr(tableOffset, tableEnd - tableOffset);
}

BinaryReader::Object BinaryReader::objectAt(std::uint64_t index) const
{
    if (index >= m_objectCount)
        fail("refers to an object that does not exist");
    const std::uint64_t start = bigEndian(m_offsets.substr(index * m_offsetBytes, m_offsetBytes));
    if (start < headerBytes || start >= m_objects.size())
        fail("an object starts outside the object area");
    const unsigned marker = static_cast<unsigned char>(m_objects[start]);
    Object object{marker >> 4U, marker & 0xFU, marker & 0xFU, start + 1};
    const bool isCounted = object.type >= 0x4 && object.type != 0x8;
    if (isCounted && object.low == 0xF) {
        const unsigned countMarker = static_cast<unsigned char>(slice(object.offset, 1).front());
        if (countMarker < 0x10 || countMarker > 0x13)
            fail("an object has an invalid count");
        const std::size_t countBytes = std::size_t{1} << (countMarker & 0xFU);
        object.count = bigEndian(slice(object.offset + 1, countBytes));
        object.offset += 1 + countBytes;
    }
    return object;
}

/// Returns `count` units starting at `offset`. Throws if they extend past the object area.
std::string_view BinaryReader::slice(std::size_t offset, std::uint64_t count, std::size_t unitBytes) const
{
    if (offset > m_objects.size() || count > (m_objects.size() - offset) / unitBytes)
        fail("an object extends past the object area");
    return m_objects.substr(offset, count * unitBytes);
}

PropertyList BinaryReader::value(std::uint64_t index)
{
    const Object object = objectAt(index);
    switch (object.type) {
    case 0x0:
        if (object.low == 0x0)
            return {};
        if (object.low == 0x8 || object.low == 0x9)
            return object.low == 0x9;
        break;
    case 0x1:
        return integer(object);
    case 0x2:
        return floatingPoint(object);
    case 0x3:
        return date(object);
    case 0x4:
        return data(object);
    case 0x5:
    case 0x6:
        return text(object);
    case 0x8:
        fail("contains a UID, which is not a property list value");
    case 0xA:
    case 0xD: {
        enter(index);
        PropertyList container = object.type == 0xA ? array(object) : dictionary(object);
        m_path.pop_back();
        return container;
    }
    case 0xB:
    case 0xC:
        fail("contains a set, which is not a property list value");
    default:
        break;
    }
    fail("an object has an unknown type");
}

PropertyList BinaryReader::integer(const Object& object) const
{
    if (object.low > 4)
        fail("an integer is longer than 16 bytes");
    const std::string_view bytes = slice(object.offset, std::uint64_t{1} << object.low);
    // Integers of fewer than eight bytes are unsigned.
    const std::uint64_t low = bigEndian(bytes.substr(bytes.size() - std::min<std::size_t>(bytes.size(), 8)));
    if (bytes.size() < 8)
        return low;
    const auto asSigned = static_cast<std::int64_t>(low);
    if (bytes.size() == 8)
        return asSigned;
    const std::uint64_t high = bigEndian(bytes.substr(0, 8));
    if (high == 0)
        return low;
    if (high != ~std::uint64_t{0} || asSigned >= 0)
        fail("an integer does not fit 64 bits");
    return asSigned;
}

double BinaryReader::floatingPoint(const Object& object) const
{
    if (object.low != 2 && object.low != 3)
        fail("a real number or date is neither 4 nor 8 bytes long");
    const std::uint64_t bits = bigEndian(slice(object.offset, std::uint64_t{1} << object.low));
    if (object.low == 2)
        return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    return std::bit_cast<double>(bits);
}

PropertyList BinaryReader::date(const Object& object) const
{
    const double seconds = floatingPoint(object);
    if (object.low != 3 || !std::isfinite(seconds))
        fail("a date is not a finite number of 8 bytes");
    return Date{seconds};
}

PropertyList BinaryReader::data(const Object& object)
{
    const std::string_view bytes = slice(object.offset, object.count);
    countExpanded(bytes.size());
    const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
    return Data(first, first + bytes.size());
}

std::string BinaryReader::text(const Object& object)
{
    if (object.type == 0x6)
        return utf16Text(slice(object.offset, object.count, 2));
    const std::string_view bytes = slice(object.offset, object.count);
    if (std::ranges::any_of(bytes, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; }))
        fail("an ASCII string contains a byte that is not ASCII");
    countExpanded(bytes.size());
    return std::string(bytes);
}

std::string BinaryReader::utf16Text(std::string_view units)
{
    const auto unitAt = [units](std::size_t offset) {
        return static_cast<char32_t>(bigEndian(units.substr(offset, 2)));
    };
    std::string out;
    for (std::size_t offset = 0; offset < units.size(); offset += 2) {
        char32_t codePoint = unitAt(offset);
        if (codePoint >= 0xD800 && codePoint < 0xE000) {
            const char32_t second = offset + 2 < units.size() ? unitAt(offset + 2) : 0;
            if (codePoint >= 0xDC00 || second < 0xDC00 || second >= 0xE000)
                fail("a UTF-16 string contains half of a surrogate pair");
            codePoint = 0x10000 + ((codePoint - 0xD800) << 10U) + (second - 0xDC00);
            offset += 2;
        }
        appendUTF8(out, codePoint);
    }
    countExpanded(out.size());
    return out;
}

PropertyList BinaryReader::array(const Object& object)
{
    const std::string_view references = slice(object.offset, object.count, m_referenceBytes);
    countValues(object.count);
    PropertyList::Array elements;
    elements.reserve(object.count);
    for (std::uint64_t position = 0; position < object.count; ++position)
        elements.push_back(value(reference(references, position)));
    return elements;
}

PropertyList BinaryReader::dictionary(const Object& object)
{
    // All keys come first, then all values.
    const std::string_view references = slice(object.offset, object.count, 2 * m_referenceBytes);
    countValues(object.count);
    PropertyList::Dictionary entries;
    for (std::uint64_t position = 0; position < object.count; ++position) {
        const Object key = objectAt(reference(references, position));
        if (key.type != 0x5 && key.type != 0x6)
            fail("a key is not a string");
        const auto [entry, isNew] = entries.try_emplace(text(key));
        if (!isNew)
            fail("a key appears twice in one dictionary");
        entry->second = value(reference(references, object.count + position));
    }
    return entries;
}

/// Pushes a container onto the path. Throws if it contains itself or the nesting is too deep.
void BinaryReader::enter(std::uint64_t index)
{
    if (std::ranges::find(m_path, index) != m_path.end())
        fail("an array or dictionary contains itself");
    if (m_path.size() == maximumPropertyListDepth)
        fail(tooDeepReason());
    m_path.push_back(index);
}

void BinaryReader::countValues(std::uint64_t count)
{
    if (count > maximumPropertyListValueCount - m_valueCount)
        fail(tooManyValuesReason());
    m_valueCount += count;
}

void BinaryReader::countExpanded(std::size_t bytes)
{
    m_expandedBytes += bytes;
    if (m_expandedBytes > maximumExpandedBytes)
        fail(fmt::format("expands to more than {} MiB", maximumExpandedBytes >> 20U));
}

std::uint64_t BinaryReader::reference(std::string_view references, std::uint64_t position) const
{
    return bigEndian(references.substr(position * m_referenceBytes, m_referenceBytes));
}

} // namespace

PropertyListDocument readBinaryPropertyList(std::string_view bytes)
{
    return {BinaryReader(bytes).root(), PropertyListFormat::binary, {}};
}

} // namespace Platform::PropertyLists
