#pragma once

#include "Core/ConfigurationSnapshot.h"

#include <array>
#include <optional>
#include <string>

namespace Qvctl {

/// One optional value of a snapshot, for showing.
struct SnapshotField {
    const char* label;
    /// What it is called in JSON.
    const char* member;
    bool isSecret;
    std::optional<std::string> value;

    /// The value as it may be seen.
    [[nodiscard]] std::optional<std::string> shown(bool isRevealing) const;
};

std::array<SnapshotField, 4> fieldsOf(const Core::ConfigurationSnapshot& snapshot);

} // namespace Qvctl
