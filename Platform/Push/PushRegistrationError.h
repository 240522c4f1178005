#pragma once

#include "Platform/Error.h"

#include <string>
#include <utility>

namespace Platform::Push {

/// The reason why this device cannot register for remote notifications.
enum class PushRegistrationErrorCode {
    /// There is no push service on this device.
    noDistributor = 1,
    /// Another program owns our name on the bus.
    nameTaken = 2,
    /// The distributor does not reply, or its reply is invalid.
    distributorFault = 3,
    distributorOffline = 4,
    /// The user must complete a step in the distributor.
    actionRequired = 5,
    /// The distributor refuses to serve this application.
    refused = 6,
    /// The registration cannot be stored.
    notStored = 7,
};

/// Returns a registration error. `description` is a full sentence with the problem and its fix.
inline Error pushRegistrationError(PushRegistrationErrorCode code, std::string description)
{
    constexpr const char* domain = "Platform.Linux.PushRegistrationError";
    return {.typeName = domain,
            .domain = domain,
            .code = static_cast<int>(code),
            .localizedDescription = std::move(description),
            .localizedFailureReason = {}};
}

} // namespace Platform::Push
