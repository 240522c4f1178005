#include "Core/ConfigurationSnapshot.h"

#include "Core/JSON.h"
#include "Core/ManagedConfigurationValidation.h"

#include <array>
#include <string_view>
#include <utility>

namespace Core {

namespace {

namespace CodingKeys {
constexpr std::string_view allowedAppBundleIds = "allowedAppBundleIds";
constexpr std::string_view organizationId = "organizationId";
constexpr std::string_view baseDomain = "baseDomain";
constexpr std::string_view apiKey = "apiKey";
constexpr std::string_view deviceId = "deviceId";
constexpr std::string_view schemaVersion = "schemaVersion";
constexpr std::string_view configVersion = "configVersion";
constexpr std::string_view lastUpdated = "lastUpdated";
} // namespace CodingKeys

/// A usual record is put together and taken apart on the stack: every reader of a setting decodes it anew.
constexpr std::size_t stackBytes = 4096;

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
    snapshot.allowedAppBundleIds = std::move(config.allowedAppBundleIds);
    snapshot.organizationId = std::move(config.organizationId);
    snapshot.baseDomain = std::move(config.baseDomain);
    snapshot.apiKey = std::move(config.apiKey);
    snapshot.deviceId = std::move(config.deviceId);
    snapshot.configVersion = configVersion;
    snapshot.lastUpdated = now;
    return snapshot;
}

Platform::Data ConfigurationSnapshot::encode() const
{
    std::array<unsigned char, stackBytes> buffer;
    boost::json::monotonic_resource resource(buffer.data(), buffer.size());
    boost::json::object object(&resource);
    const auto setIfPresent = [&](std::string_view key, const std::optional<std::string>& text) {
        if (text)
            object[key] = *text;
    };
    object[CodingKeys::allowedAppBundleIds] =
        boost::json::array(allowedAppBundleIds.begin(), allowedAppBundleIds.end(), &resource);
    setIfPresent(CodingKeys::organizationId, organizationId);
    setIfPresent(CodingKeys::baseDomain, baseDomain);
    setIfPresent(CodingKeys::apiKey, apiKey);
    setIfPresent(CodingKeys::deviceId, deviceId);
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
    snapshot.allowedAppBundleIds = decoder.texts(CodingKeys::allowedAppBundleIds);
    snapshot.organizationId = decoder.optionalText(CodingKeys::organizationId);
    snapshot.baseDomain = decoder.optionalText(CodingKeys::baseDomain);
    snapshot.apiKey = decoder.optionalText(CodingKeys::apiKey);
    snapshot.deviceId = decoder.optionalText(CodingKeys::deviceId);
    snapshot.schemaVersion = decoder.integer(CodingKeys::schemaVersion);
    snapshot.configVersion = decoder.integer(CodingKeys::configVersion);
    snapshot.lastUpdated = {decoder.number(CodingKeys::lastUpdated)};
    return snapshot;
}

} // namespace Core
