#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"
#include "Platform/PushRefusal.h"

#include <functional>
#include <optional>

namespace Platform {

/// Told of what a push service has for this device. Threads: main.
class PushServiceListener {
public:
    /// Absent when everything the payload brought is committed or shown.
    using Completion = std::function<void(std::optional<PushRefusal> refusal)>;

    virtual ~PushServiceListener() = default;

    virtual void didRegister(const Data& deviceToken) = 0;
    virtual void didFailToRegister(const Error& error) = 0;
    /// `completion` is to be called exactly once, on any thread.
    virtual void didReceive(const PropertyList::Dictionary& payload, Completion completion) = 0;
};

/// Brings the payloads that a backend sends to this device.
///
/// Threads: main. Implementers owe: the listener is called on the main thread, never inside one of these
/// operations; a payload counts as delivered only after its completion.
class PushService {
public:
    virtual ~PushService() = default;

    /// Payloads go to `listener` from now on; it must outlive the service. Once.
    virtual void start(PushServiceListener& listener) = 0;
    /// Asks for the token of this device; the listener gets it, or the error. The same one every time unless
    /// the service has lost it.
    virtual void registerDevice() = 0;
};

} // namespace Platform
