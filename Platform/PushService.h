#pragma once

#include "Platform/Error.h"
#include "Platform/PropertyList.h"
#include "Platform/PushRefusal.h"

#include <functional>
#include <optional>

namespace Platform {

/// Receives the events of a push service.
///
/// Threads: main.
class PushServiceListener {
public:
    /// `refusal` is absent once the payload's content is committed or shown.
    using Completion = std::function<void(std::optional<PushRefusal> refusal)>;

    virtual ~PushServiceListener() = default;

    virtual void didRegister(const Data& deviceToken) = 0;
    virtual void didFailToRegister(const Error& error) = 0;
    /// The listener must call `completion` exactly once, on any thread.
    virtual void didReceive(const PropertyList::Dictionary& payload, Completion completion) = 0;
    /// The service refused a push because its content cannot be read.
    virtual void didReceiveUnreadablePush() = 0;
};

/// Receives the pushes that a backend sends to this device.
///
/// Threads: main. Implementations must call the listener on the main thread, never inside one of these
/// operations, and must not acknowledge a payload before its completion is called.
class PushService {
public:
    virtual ~PushService() = default;

    /// Starts delivering events to `listener`, which must outlive the service. Called once.
    virtual void start(PushServiceListener& listener) = 0;
    /// Requests the device token; the listener receives the token or an error. The token stays the same
    /// unless the service has lost it.
    virtual void registerDevice() = 0;
};

} // namespace Platform
