#pragma once

#include "Platform/PropertyLists/PropertyListReader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Platform::Linux::Files {

/// What came of reading one policy file.
struct PolicyFileReading {
    enum class State {
        missing,
        /// Somebody else could have written it; counts as missing.
        untrusted,
        unreadable,
        malformed,
        good,
    };

    State state = State::missing;
    std::filesystem::path path;
    /// Why, unless `good` or `missing`: one sentence without the path of the file.
    std::string reason;
    /// Differs between any two files, and between two states of one; empty when missing.
    std::string revision;
    /// Where a malformed text stops making sense.
    std::optional<PropertyLists::TextPosition> position;
    /// When `good`: what the file holds, and what that says. Its root is a dictionary.
    std::string bytes;
    PropertyLists::PropertyListDocument document;

    /// "FILE:LINE:COLUMN: reason", as far as they are known.
    [[nodiscard]] std::string diagnostic() const;
};

enum class TrustCheck { required, skipped };

/// Reads `path`, absolute. Never throws for anything the file is or holds.
PolicyFileReading readPolicyFile(const std::filesystem::path& path, TrustCheck trustCheck,
                                 PropertyLists::WithPlaces withPlaces = PropertyLists::WithPlaces::no);

/// Reads to its end what is open as `descriptor`, a pipe or a terminal for example, without a check of trust.
/// `name` is for the diagnostics. Never throws for anything that is read.
PolicyFileReading readPolicyStream(int descriptor, const std::filesystem::path& name,
                                   PropertyLists::WithPlaces withPlaces = PropertyLists::WithPlaces::no);

/// The reading that counts among `candidates`, best first: that of the first file that is there and is
/// believed; else `missing`. `passedOver`, when given, receives the untrusted ones met on the way.
PolicyFileReading readFirstPolicyFile(const std::vector<std::filesystem::path>& candidates,
                                      PropertyLists::WithPlaces withPlaces,
                                      std::vector<PolicyFileReading>* passedOver = nullptr);

} // namespace Platform::Linux::Files
