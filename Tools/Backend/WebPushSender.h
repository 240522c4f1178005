#pragma once

#include <filesystem>
#include <string_view>

struct WebPushSubscription;

/// Encrypts `text` and posts it to the endpoint (RFC 8030); waits for the answer and follows no redirect. An
/// empty `certificateAuthority` trusts the authorities that the system trusts, else those of that file alone.
/// Throws `std::runtime_error`, naming the host but not the rest of the endpoint, unless the status is 2xx.
void sendWebPush(const WebPushSubscription& subscription, std::string_view text,
                 const std::filesystem::path& certificateAuthority);
