#include "Core/ManagedKeys.h"

#include "Core/Constants.h"

#include <algorithm>
#include <array>

namespace Core {

namespace {

namespace Keys = Constants::ManagedConfigKeys;
using KeyKind = ManagedKey::Kind;

constexpr std::array table{
    ManagedKey{Keys::allowedAppBundleIds, KeyKind::bundleIds, false, "Apps allowed to use single sign-on",
               "Bundle identifiers of the apps that may use single sign-on. Without one, no app may.",
               "com.example.mail,com.example.files"},
    ManagedKey{Keys::organizationId, KeyKind::text, false, "Organization ID",
               "Names the organization to the single-sign-on extension.", "example-corp"},
    ManagedKey{Keys::schemaVersion, KeyKind::revision, false, "Revision",
               "A change of it alone has the configuration applied again; nothing else reads it.", "1"},
    ManagedKey{Keys::BASE_DOMAIN, KeyKind::address, false, "Backend address",
               "Address of the organization's backend. https:// is put in front where no scheme is written, "
               "and in place of http://. Without it, the backend cannot be reached.",
               "https://mdm.example.com"},
    ManagedKey{Keys::API_KEY, KeyKind::text, true, "API key (secret)",
               "Secret with which the app identifies itself to the backend. Without it, requests carry no "
               "credential.",
               "replace-with-the-api-key"},
    ManagedKey{Keys::DEVICE_ID, KeyKind::text, false, "Device ID",
               "Names this device to the backend. Without it, the device token for pushes is not uploaded.",
               "DEVICE-0001"},
};

} // namespace

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
        return "a text or a number";
    case KeyKind::bundleIds:
        return "a text of comma-separated bundle identifiers, or an array of texts";
    case KeyKind::revision:
        break;
    }
    return "anything";
}

} // namespace Core
