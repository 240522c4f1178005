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
    policy.candidates = Platform::Linux::DevicePaths::policyCandidates(managedConfiguration);
    policy.reading = readFirstPolicyFile(policy.candidates, withPlaces, &policy.untrusted);
    if (policy.reading.state == PolicyFileReading::State::missing)
        return policy;
    const auto used = std::find(policy.candidates.begin(), policy.candidates.end(), policy.reading.path);
    for (auto candidate = used; candidate != policy.candidates.end(); ++candidate) {
        std::error_code error;
        if (candidate != used && fs::symlink_status(*candidate, error).type() != fs::file_type::not_found)
            policy.ignored.push_back(*candidate);
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
    if (candidates.size() == 1)
        return fmt::format("{} does not exist", candidates.front().string());
    std::string names;
    for (const fs::path& candidate : candidates)
        names += (names.empty() ? "" : " nor ") + candidate.string();
    return fmt::format("neither {} exists", names);
}

std::string DevicePolicy::ignoredText() const
{
    std::string names;
    for (const fs::path& file : ignored)
        names += (names.empty() ? "" : ", ") + file.string();
    return names.empty() ? names
                         : fmt::format("{} is ignored because {} exists", names, reading.path.string());
}

} // namespace Qvctl
