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

void decodeInto(const KeyedDecoder& decoder, std::string_view key, std::optional<std::string>& text)
{
    text = decoder.optionalString(key);
}

void decodeInto(const KeyedDecoder& decoder, std::string_view key, std::vector<std::string>& list)
{
    list = decoder.strings(key);
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
    std::array<unsigned char, stackBytes> buffer;
    boost::json::monotonic_resource resource(buffer.data(), buffer.size());
    boost::json::object object(&resource);
    for (const ManagedKey& key : managedKeys()) {
        const auto values = valuesOf(key, config);
        if (key.isList())
            object[key.codingKey] = boost::json::array(values.begin(), values.end(), &resource);
        else if (!values.empty())
            object[key.codingKey] = values.front();
    }
    object[CodingKeys::schemaVersion] = schemaVersion;
    object[CodingKeys::configVersion] = configVersion;
    object[CodingKeys::lastUpdated] = lastUpdated.secondsSinceReferenceDate;
    return JSONEncoder().encode(std::move(object));
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
