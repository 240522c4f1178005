#include "Core/ConfigurationSnapshot.h"

#include "Core/JSON.h"
#include "Core/ManagedKeys.h"

#include <array>
#include <string_view>
#include <utility>

namespace Core {

namespace {

namespace CodingKeys {
constexpr std::string_view schemaVersion = "schemaVersion";
constexpr std::string_view configVersion = "configVersion";
constexpr std::string_view lastUpdated = "lastUpdated";
} // namespace CodingKeys

/// Large enough for typical snapshots: avoids heap allocations, because every getter decodes the snapshot.
constexpr std::size_t stackBytes = 4096;

std::size_t expectedBytes(const std::optional<std::string>& text)
{
    return text ? text->size() : 0;
}

std::size_t expectedBytes(const TextList& list)
{
    constexpr std::size_t bytesOfPunctuation = 3;
    return list.characters().size() + bytesOfPunctuation * list.size();
}

/// Returns the size of the encoded snapshot, rounded up. Escaped characters may need more.
std::size_t expectedBytes(const ValidatedConfig& config)
{
    constexpr std::size_t bytesOfKeys = 512;
    std::size_t count = bytesOfKeys;
    forEachValue(config, [&](const ManagedKey&, const auto& value) { count += expectedBytes(value); });
    return count;
}

void decodeInto(const KeyedDecoder& decoder, std::string_view key, std::optional<std::string>& text)
{
    text = decoder.optionalString(key);
}

void decodeInto(const KeyedDecoder& decoder, std::string_view key, TextList& list)
{
    list = decoder.strings(key);
}

void encodeInto(JSONObjectWriter& writer, std::string_view key, const std::optional<std::string>& text)
{
    if (text)
        writer.add(key, std::string_view(*text));
}

void encodeInto(JSONObjectWriter& writer, std::string_view key, const TextList& list)
{
    writer.add(key, list);
}

} // namespace

ConfigurationSnapshot ConfigurationSnapshot::defaultSnapshot(Platform::Date now)
{
    ConfigurationSnapshot snapshot;
    snapshot.lastUpdated = now;
    return snapshot;
}

ConfigurationSnapshot ConfigurationSnapshot::make(ValidatedConfig config, std::int64_t configVersion,
                                                  Platform::Date now)
{
    ConfigurationSnapshot snapshot;
    snapshot.config = std::move(config);
    snapshot.configVersion = configVersion;
    snapshot.lastUpdated = now;
    return snapshot;
}

Platform::Data ConfigurationSnapshot::encode() const
{
    JSONObjectWriter writer(expectedBytes(config));
    forEachValue(config,
                 [&](const ManagedKey& key, const auto& value) { encodeInto(writer, key.codingKey, value); });
    writer.add(CodingKeys::schemaVersion, schemaVersion);
    writer.add(CodingKeys::configVersion, configVersion);
    writer.add(CodingKeys::lastUpdated, lastUpdated.secondsSinceReferenceDate);
    return std::move(writer).finish();
}

ConfigurationSnapshot ConfigurationSnapshot::decode(const Platform::Data& bytes)
{
    std::array<unsigned char, stackBytes> buffer;
    boost::json::monotonic_resource resource(buffer.data(), buffer.size());
    const boost::json::value value = JSONDecoder().decode(bytes, &resource);
    const KeyedDecoder decoder(value);

    ConfigurationSnapshot snapshot;
    forEachValue(snapshot.config,
                 [&](const ManagedKey& key, auto& member) { decodeInto(decoder, key.codingKey, member); });
    snapshot.schemaVersion = decoder.integer(CodingKeys::schemaVersion);
    snapshot.configVersion = decoder.integer(CodingKeys::configVersion);
    snapshot.lastUpdated = {decoder.number(CodingKeys::lastUpdated)};
    return snapshot;
}

} // namespace Core
