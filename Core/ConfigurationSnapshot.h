#pragma once

#include "Core/ValidatedConfig.h"
#include "Platform/Date.h"
#include "Platform/PropertyList.h"

#include <cstdint>

namespace Core {

/// The managed configuration as it was applied, numbered: the record that the application and the
/// single-sign-on extension read from the shared suite.
struct ConfigurationSnapshot {
    static constexpr std::int64_t currentSchemaVersion = 1;

    ValidatedConfig config;
    /// The layout of this record.
    std::int64_t schemaVersion = currentSchemaVersion;
    /// Counts the updates applied; 0 in the default snapshot.
    std::int64_t configVersion = 0;
    /// When this snapshot was built.
    Platform::Date lastUpdated;

    /// What stands in for a snapshot that was never stored.
    static ConfigurationSnapshot defaultSnapshot(Platform::Date now);
    static ConfigurationSnapshot make(ValidatedConfig config, std::int64_t configVersion, Platform::Date now);

    /// A compact JSON object with one member per value and field; absent strings are left out, `lastUpdated`
    /// is a number of seconds. Throws `EncodingError` when that number is not finite.
    [[nodiscard]] Platform::Data encode() const;
    /// Throws `DecodingError`. Ignores unknown members.
    static ConfigurationSnapshot decode(const Platform::Data& bytes);

    friend bool operator==(const ConfigurationSnapshot&, const ConfigurationSnapshot&) = default;
};

} // namespace Core
