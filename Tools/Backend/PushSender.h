#pragma once

#include "Tools/Backend/TestBackend.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// The token that a device uploaded with `request`, hexadecimal; absent for other requests.
std::optional<std::string> uploadedToken(const TestBackend::Request& request);

/// What a backend needs to reach a device.
struct PushRoutes {
    /// Where the device listens when it has no distributor but its own.
    std::filesystem::path localSocket;
    /// Whom push services are to be signed by; empty: whom the system trusts.
    std::filesystem::path certificateAuthority;
};

/// Sends `payload` to the device with this token: encrypted, to the endpoint that the token names when it is
/// a Web Push subscription, through the local socket otherwise. Throws `std::runtime_error` when it was not
/// taken, with the reason.
void pushToDevice(std::string_view token, std::string_view payload, const PushRoutes& routes);
