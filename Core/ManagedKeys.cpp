#include "Core/ManagedKeys.h"

#include "Core/Constants.h"

#include <algorithm>
#include <array>

namespace Core {

namespace {

namespace Keys = Constants::ManagedConfigKeys;
using KeyKind = ManagedKey::Kind;

/// The order is part of the snapshot's format: append new rows at the end.
constexpr std::array table{
    ManagedKey{.name = Keys::allowedAppBundleIds,
               .kind = KeyKind::bundleIds,
               .member = &ValidatedConfig::allowedAppBundleIds,
               .codingKey = "allowedAppBundleIds",
               .noun = "allowed app",
               .label = "Apps allowed to use single sign-on",
               .description = "Bundle identifiers of the apps that may use single sign-on. If the list is "
                              "missing or empty, no app may use it.",
               .example = "com.example.mail,com.example.files"},
    ManagedKey{.name = Keys::organizationId,
               .kind = KeyKind::text,
               .member = &ValidatedConfig::organizationId,
               .codingKey = "organizationId",
               .noun = "organization id",
               .label = "Organization ID",
               .description = "Identifies the organization to the single-sign-on extension.",
               .example = "example-corp"},
    ManagedKey{.name = Keys::schemaVersion,
               .kind = KeyKind::revision,
               .label = "Revision",
               .description = "Any change of this value applies the configuration again. The value has no "
                              "other effect.",
               .example = "1"},
    ManagedKey{.name = Keys::BASE_DOMAIN,
               .kind = KeyKind::address,
               .member = &ValidatedConfig::baseDomain,
               .codingKey = "baseDomain",
               .noun = "base domain",
               .label = "Backend address",
               .description = "Address of the organization's backend. An address without a scheme gets "
                              "https://, and http:// becomes https://. Without this address, the app cannot "
                              "reach the backend.",
               .example = "https://mdm.example.com"},
    ManagedKey{.name = Keys::API_KEY,
               .kind = KeyKind::text,
               .member = &ValidatedConfig::apiKey,
               .codingKey = "apiKey",
               .isSecret = true,
               .noun = "api key",
               .label = "API key (secret)",
               .description = "Secret that authenticates the app to the backend. Without it, requests carry "
                              "no credentials.",
               .example = "replace-with-the-api-key"},
    ManagedKey{.name = Keys::DEVICE_ID,
               .kind = KeyKind::text,
               .member = &ValidatedConfig::deviceId,
               .codingKey = "deviceId",
               .noun = "device id",
               .label = "Device ID",
               .description =
                   "Identifies this device to the backend. Without it, the device token for pushes "
                   "is not uploaded.",
               .example = "DEVICE-0001"},
};

/// Checks that a row's kind matches its member and that no name is missing.
constexpr bool isComplete(const ManagedKey& key)
{
    return key.isStored() == (key.kind != KeyKind::revision) &&
           key.isList() == (key.kind == KeyKind::bundleIds) && key.isStored() != key.codingKey.empty() &&
           key.isStored() != key.noun.empty() && !key.label.empty() && !key.description.empty() &&
           !key.example.empty();
}
static_assert(std::all_of(table.begin(), table.end(), isComplete));

} // namespace

const int managedKeysVersion = 1;

std::span<const ManagedKey> managedKeys()
{
    return table;
}

const ManagedKey* findManagedKey(std::string_view name)
{
    const auto* found =
        std::find_if(table.begin(), table.end(), [&](const ManagedKey& key) { return key.name == name; });
    return found != table.end() ? found : nullptr;
}

std::string_view acceptedForms(ManagedKey::Kind kind)
{
    switch (kind) {
    case KeyKind::text:
    case KeyKind::address:
        return "a string or a number";
    case KeyKind::bundleIds:
        return "a string of comma-separated bundle identifiers, or an array of strings";
    case KeyKind::revision:
        break;
    }
    return "any value";
}

std::vector<std::string_view> valuesOf(const ManagedKey& key, const ValidatedConfig& config)
{
    if (const auto* list = std::get_if<ManagedKey::ListMember>(&key.member))
        return {(config.**list).begin(), (config.**list).end()};
    const auto* member = std::get_if<ManagedKey::TextMember>(&key.member);
    if (member == nullptr || !(config.**member))
        return {};
    return {*(config.**member)};
}

} // namespace Core
