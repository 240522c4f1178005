#pragma once

#include <filesystem>
#include <string_view>

struct WebPushSubscription;

/// Encrypts `text`, posts it to the endpoint (RFC 8030) and waits for the response. Follows no redirects.
/// Trusts the certificates in `certificateAuthority`, or those that the system trusts if it is empty. Throws
/// `std::runtime_error` unless the status is 2xx; the error names the host but not the rest of the endpoint.
void sendWebPush(const WebPushSubscription& subscription, std::string_view text,
                 const std::filesystem::path& certificateAuthority);
