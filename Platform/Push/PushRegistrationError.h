#pragma once

#include "Platform/Error.h"

#include <string>
#include <utility>

namespace Platform::Push {

/// What keeps this device from being registered for remote notifications.
enum class PushRegistrationErrorCode {
    /// Nothing on this device brings pushes.
    noDistributor = 1,
    /// Another program holds our name on the bus.
    nameTaken = 2,
    /// The distributor does not answer, or not as it should.
    distributorFault = 3,
    distributorOffline = 4,
    /// The user has to do something in the distributor.
    actionRequired = 5,
    /// The distributor will not serve this application.
    refused = 6,
    /// What makes this device the same receiver after a restart cannot be stored.
    notStored = 7,
};

/// `description` is a whole sentence: what is the matter, and what mends it.
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
