#include "Tools/qvctl/DevicePolicy.h"

#include "Platform/Linux/DevicePaths.h"

#include <fmt/format.h>

#include <algorithm>

namespace Qvctl {

namespace fs = std::filesystem;
using Platform::Linux::Files::PolicyFileReading;

DevicePolicy DevicePolicy::read(const std::optional<std::string>& managedConfiguration,
                                Platform::PropertyLists::WithPlaces withPlaces)
{
    DevicePolicy policy;
    policy.places = Platform::Linux::DevicePaths::policyCandidates(managedConfiguration);
    policy.reading = readFirstPolicyFile(policy.places, withPlaces, &policy.untrusted);
    if (policy.reading.state == PolicyFileReading::State::missing)
        return policy;
    const auto counting = std::find(policy.places.begin(), policy.places.end(), policy.reading.path);
    for (auto place = counting; place != policy.places.end(); ++place) {
        std::error_code error;
        if (place != counting && fs::symlink_status(*place, error).type() != fs::file_type::not_found)
            policy.ignored.push_back(*place);
    }
    return policy;
}

const PolicyFileReading& DevicePolicy::bestReading() const
{
    return reading.state == PolicyFileReading::State::missing && !untrusted.empty() ? untrusted.front()
                                                                                    : reading;
}

std::string DevicePolicy::absence() const
{
    if (places.size() == 1)
        return fmt::format("{} is not there", places.front().string());
    std::string names;
    for (const fs::path& place : places)
        names += (names.empty() ? "" : " nor ") + place.string();
    return fmt::format("neither {} is there", names);
}

std::string DevicePolicy::ignoredText() const
{
    std::string names;
    for (const fs::path& file : ignored)
        names += (names.empty() ? "" : ", ") + file.string();
    return names.empty()
               ? names
               : fmt::format("{} is ignored, because {} is there too", names, reading.path.string());
}

} // namespace Qvctl
