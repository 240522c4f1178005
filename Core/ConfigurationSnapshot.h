#pragma once

#include "Core/ValidatedConfig.h"
#include "Platform/Date.h"
#include "Platform/PropertyList.h"

#include <cstdint>

namespace Core {

/// The managed configuration as it was applied, with a version number. The application and the single-sign-on
/// extension read it from the shared suite.
struct ConfigurationSnapshot {
    static constexpr std::int64_t currentSchemaVersion = 1;

    ValidatedConfig config;
    /// Version of the JSON layout.
    std::int64_t schemaVersion = currentSchemaVersion;
    /// Number of updates applied so far; 0 in the default snapshot.
    std::int64_t configVersion = 0;
    /// When this snapshot was created.
    Platform::Date lastUpdated;

    /// Returns an empty configuration, used when no snapshot is stored.
    static ConfigurationSnapshot defaultSnapshot(Platform::Date now);
    static ConfigurationSnapshot make(ValidatedConfig config, std::int64_t configVersion, Platform::Date now);

    /// Returns a compact JSON object with one member per value; absent strings are omitted. `lastUpdated` is
    /// in seconds since the reference date. Throws `EncodingError` if `lastUpdated` is not finite.
    [[nodiscard]] Platform::Data encode() const;
    /// Parses the output of `encode()`; ignores unknown members. Throws `DecodingError`.
    static ConfigurationSnapshot decode(const Platform::Data& bytes);

    friend bool operator==(const ConfigurationSnapshot&, const ConfigurationSnapshot&) = default;
};

} // namespace Core
