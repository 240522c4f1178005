#pragma once

#include "Platform/Date.h"

#include <cstdint>
#include <map>
#include <string_view>

namespace Platform {

class UserDefaults;

/// How an upload, a push or a configuration change ended, for diagnosis by another process. Holds only a
/// time, names from this file and a number, never a configured value, a token or the text of a notification.
struct Outcome {
    /// What an outcome is about. The store keeps the last one of each.
    enum class Subject { upload, push, configurationError };
    enum class Result {
        succeeded,
        failed,
        /// A push that the sender should repeat later.
        deferred,
    };
    enum class Kind {
        none,
        // Pushes; `none` if the content cannot be read.
        alert,
        silent,
        // Failed uploads.
        status,
        network,
        address,
        response,
        // Configuration errors.
        untrusted,
        unreadable,
        malformed,
        notStored,
    };

    Result result = Result::succeeded;
    Kind kind = Kind::none;
    /// The status code of an upload, or the `URLError::Code` if its kind is `network`; otherwise 0.
    std::int64_t code = 0;
    Date time = {};

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

/// Returns the name of the enumerator.
std::string_view outcomeName(Outcome::Result result);
std::string_view outcomeName(Outcome::Kind kind);

/// The last outcome of each area.
using Outcomes = std::map<Outcome::Subject, Outcome>;

/// Returns the stored outcomes. Skips invalid ones.
Outcomes storedOutcomes(const UserDefaults& store);
/// Replaces all stored outcomes. Returns whether it succeeded.
bool storeOutcomes(UserDefaults& store, const Outcomes& outcomes);

} // namespace Platform
