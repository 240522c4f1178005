#pragma once

#include "Tools/Backend/TestBackend.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// The hexadecimal device token that `request` uploads; absent for other requests.
std::optional<std::string> uploadedToken(const TestBackend::Request& request);

/// How a backend reaches devices.
struct PushRoutes {
    /// The socket of an app that runs with --push local.
    std::filesystem::path localSocket;
    /// The certificate authority to trust for push services; empty for those that the system trusts.
    std::filesystem::path certificateAuthority;
};

/// Sends `payload` to the device with this hexadecimal token: to the endpoint, encrypted, if the token is a
/// Web Push subscription, else through the local socket. Blocks. Throws `std::runtime_error` with the reason
/// if the payload was not accepted.
void pushToDevice(std::string_view token, std::string_view payload, const PushRoutes& routes);
