#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/// Every fixed text and number that crosses a boundary of the application. All keys compare case-sensitively.
namespace Core::Constants {

/// Declared for the backend; no request sends it.
inline constexpr std::string_view organizationIdHeader = "X-QV-OrgId";
/// Declared for the backend; no request sends it.
inline constexpr std::string_view cookieHeader = "Cookie";
inline constexpr std::string_view authorizationHeader = "Authorization";
/// Stands directly before the API key; its last character is a blank.
inline constexpr std::string_view bearerPrefix = "Bearer ";
inline constexpr std::string_view deviceIdHeader = "X-Device-Id";

/// Words that the application and the single-sign-on extension share.
namespace UI {
inline constexpr std::string_view authenticationTitle = "Authentication";
inline constexpr std::string_view cancelButtonTitle = "Cancel";
inline constexpr std::string_view loadingText = "Loading...";
inline constexpr std::string_view poweredByText = "Powered by Quorvane";
inline constexpr std::string_view okButtonTitle = "OK";
} // namespace UI

/// Keys of the dictionary that the management profile hands to the single-sign-on extension.
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

/// Keys of the managed dictionary; `ManagedKeys.h` tells what they are for. Their mixed spelling is what
/// management consoles send.
namespace ManagedConfigKeys {
inline constexpr std::string_view allowedAppBundleIds = "AllowedAppsBundleIdsForSSOExtension";
inline constexpr std::string_view organizationId = "OrganizationId";
inline constexpr std::string_view BASE_DOMAIN = "base_domain";
inline constexpr std::string_view API_KEY = "api_key";
inline constexpr std::string_view DEVICE_ID = "device_id";
/// Only its printed form matters, to the fingerprint.
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

/// The defaults suite shared with the single-sign-on extension.
inline constexpr std::string_view appGroupSuiteName = "group.com.quorvane.mdm";

/// Keys written in that suite.
namespace SnapshotKeys {
inline constexpr std::string_view configSnapshot = "ConfigSnapshot";
inline constexpr std::string_view configVersion = "ConfigVersion";
inline constexpr std::string_view lastUpdated = "LastUpdated";
inline constexpr std::string_view schemaVersion = "SchemaVersion";

/// In the order in which they are written and removed.
inline constexpr std::array all{configSnapshot, configVersion, lastUpdated, schemaVersion};
} // namespace SnapshotKeys

} // namespace Core::Constants
