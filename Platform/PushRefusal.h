#pragma once

#include <string>

namespace Platform {

/// The reason why a payload was refused.
struct PushRefusal {
    /// A human-readable clause, without a period.
    std::string reason;
    /// The same payload may be accepted later, so the sender should retry.
    bool isTemporary = false;

    /// The refusal for a store error, which the store has logged.
    static PushRefusal notStored() { return {"it could not be stored; see the log", true}; }

    friend bool operator==(const PushRefusal&, const PushRefusal&) = default;
};

} // namespace Platform
