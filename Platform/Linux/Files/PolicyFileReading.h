#pragma once

#include "Platform/PropertyLists/PropertyListReader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Platform::Linux::Files {

/// The result of reading one policy file.
struct PolicyFileReading {
    enum class State {
        missing,
        /// Another user could have written it; counts as missing.
        untrusted,
        unreadable,
        malformed,
        good,
    };

    State state = State::missing;
    std::filesystem::path path;
    /// The error as a clause without the file's path; empty if `good` or `missing`.
    std::string reason;
    /// Differs between any two files, and after each change of a file; empty if missing.
    std::string revision;
    /// The location of a syntax error, if known.
    std::optional<PropertyLists::TextPosition> position;
    /// If `good`: the file's content, raw and parsed. The root is a dictionary.
    std::string bytes;
    PropertyLists::PropertyListDocument document;

    /// Returns "FILE:LINE:COLUMN: reason", or "FILE: reason" if the position is not known.
    [[nodiscard]] std::string diagnostic() const;
    void setRevision(const struct stat& status);
};

/// Returns `reading` with an error.
PolicyFileReading failed(PolicyFileReading reading, PolicyFileReading::State state, std::string reason);

enum class TrustCheck { required, skipped };

/// Reads the file at `path`, absolute. Reports every failure in the result.
PolicyFileReading readPolicyFile(const std::filesystem::path& path, TrustCheck trustCheck,
                                 PropertyLists::WithPlaces withPlaces = PropertyLists::WithPlaces::no);

/// Reads `descriptor`, such as a pipe or a terminal, to its end without a trust check. `name` is used in
/// diagnostics. Reports every failure in the result.
PolicyFileReading readPolicyStream(int descriptor, const std::filesystem::path& name,
                                   PropertyLists::WithPlaces withPlaces = PropertyLists::WithPlaces::no);

/// Reads the first of `candidates` that exists and is trusted; otherwise, returns `missing`. Appends
/// untrusted files found before it to `skipped` if that is not null.
PolicyFileReading readFirstPolicyFile(const std::vector<std::filesystem::path>& candidates,
                                      PropertyLists::WithPlaces withPlaces,
                                      std::vector<PolicyFileReading>* skipped = nullptr);

} // namespace Platform::Linux::Files
