#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// Strings and numbers shared with other programs and the backend. All keys are case-sensitive.
namespace Core::Constants {

/// Part of the backend's API; no request sends it.
inline constexpr std::string_view organizationIdHeader = "X-QV-OrgId";
/// Part of the backend's API; no request sends it.
inline constexpr std::string_view cookieHeader = "Cookie";
inline constexpr std::string_view authorizationHeader = "Authorization";
/// Precedes the API key; ends with a space.
inline constexpr std::string_view bearerPrefix = "Bearer ";
inline constexpr std::string_view deviceIdHeader = "X-Device-Id";

/// Strings that the application shares with the single-sign-on extension.
namespace UI {
inline constexpr std::string_view authenticationTitle = "Authentication";
inline constexpr std::string_view cancelButtonTitle = "Cancel";
inline constexpr std::string_view loadingText = "Loading...";
inline constexpr std::string_view poweredByText = "Powered by Quorvane";
inline constexpr std::string_view okButtonTitle = "OK";
} // namespace UI

/// Keys of the dictionary that the management profile passes to the single-sign-on extension.
namespace ExtensionDataKeys {
inline constexpr std::string_view acsRequestURL = "ACSRequestURL";
inline constexpr std::string_view organizationId = "OrganizationId";
inline constexpr std::string_view allowedAppBundleIds = "AllowedAppsBundleIdsForSSOExtension";
} // namespace ExtensionDataKeys

/// Keys of the application's standard defaults.
namespace StorageKeys {
inline constexpr std::string_view remoteNotificationDeviceToken =
    "com.quorvane.mdm.remoteNotificationDeviceToken";
inline constexpr std::string_view processedNotificationPayloads =
    "com.quorvane.mdm.processedNotificationPayloads";
} // namespace StorageKeys

/// Keys of the managed configuration, spelled as management consoles send them. See `ManagedKeys.cpp`.
namespace ManagedConfigKeys {
inline constexpr std::string_view allowedAppBundleIds = "AllowedAppsBundleIdsForSSOExtension";
inline constexpr std::string_view organizationId = "OrganizationId";
inline constexpr std::string_view BASE_DOMAIN = "base_domain";
inline constexpr std::string_view API_KEY = "api_key";
inline constexpr std::string_view DEVICE_ID = "device_id";
/// Part of the fingerprint only; the value is not stored.
inline constexpr std::string_view schemaVersion = "SchemaVersion";
} // namespace ManagedConfigKeys

namespace HTTPStatusCodes {
inline constexpr std::int64_t success = 200;
}

namespace HTTPRequestMethods {
inline constexpr std::string_view get = "GET";
inline constexpr std::string_view post = "POST";
inline constexpr std::string_view put = "PUT";
inline constexpr std::string_view patch = "PATCH";
inline constexpr std::string_view delete_ = "DELETE";
} // namespace HTTPRequestMethods

/// Name of the suite shared with the single-sign-on extension.
inline constexpr std::string_view appGroupSuiteName = "group.com.quorvane.mdm";

/// Keys in that suite.
namespace SnapshotKeys {
inline constexpr std::string_view configSnapshot = "ConfigSnapshot";
inline constexpr std::string_view configVersion = "ConfigVersion";
inline constexpr std::string_view lastUpdated = "LastUpdated";
inline constexpr std::string_view schemaVersion = "SchemaVersion";

/// In removal order.
inline constexpr std::array all{configSnapshot, configVersion, lastUpdated, schemaVersion};
} // namespace SnapshotKeys

} // namespace Core::Constants
