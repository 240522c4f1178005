#include "Tools/qvctl/SnapshotFields.h"

#include "Core/Constants.h"
#include "Tools/qvctl/FindingText.h"
#include "Tools/qvctl/Output.h"

namespace Qvctl {

namespace Keys = Core::Constants::ManagedConfigKeys;

std::optional<std::string> SnapshotField::shown(bool isRevealing) const
{
    return value && isSecret && !isRevealing ? std::string(mask) : value;
}

std::array<SnapshotField, 4> fieldsOf(const Core::ConfigurationSnapshot& snapshot)
{
    return {{{"organization id", "organizationId", isSecret(Keys::organizationId), snapshot.organizationId},
             {"base domain", "baseDomain", isSecret(Keys::BASE_DOMAIN), snapshot.baseDomain},
             {"api key", "apiKey", isSecret(Keys::API_KEY), snapshot.apiKey},
             {"device id", "deviceId", isSecret(Keys::DEVICE_ID), snapshot.deviceId}}};
}

} // namespace Qvctl
