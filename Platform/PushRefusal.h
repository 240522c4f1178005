#pragma once

#include <string>

namespace Platform {

/// Why a payload was not accepted.
struct PushRefusal {
    /// A sentence without a full stop.
    std::string reason;
    /// The same payload may be accepted later, so the sender should keep it.
    bool isTemporary = false;

    /// The store failed; its adapter has logged why.
    static PushRefusal notStored() { return {"it could not be stored; see the log", true}; }

    friend bool operator==(const PushRefusal&, const PushRefusal&) = default;
};

} // namespace Platform
