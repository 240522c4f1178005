#include "Tools/qvctl/DevicePolicy.h"

#include "Platform/Linux/DevicePaths.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Qvctl {

namespace {

namespace fs = std::filesystem;
using Platform::Linux::Files::PolicyFileReading;
using Platform::PropertyLists::PropertyListDocument;
using State = PolicyFileReading::State;

std::string joined(const std::vector<fs::path>& paths, const char* separator)
{
    std::string names;
    for (const fs::path& path : paths)
        names += (names.empty() ? "" : separator) + path.string();
    return names;
}

/// Replaces the positions of all keys in `added`.
void addPositions(PropertyListDocument& document, const PropertyListDocument& added)
{
    auto& places = document.places.byPath;
    const auto& dictionary = *added.root.dictionary();
    std::erase_if(places, [&](const auto& place) {
        return dictionary.contains(place.first.substr(0, place.first.rfind('/'))) ||
               dictionary.contains(place.first);
    });
    places.insert(added.places.byPath.begin(), added.places.byPath.end());
}

} // namespace

DevicePolicy DevicePolicy::read(const std::optional<std::string>& managedConfiguration,
                                Platform::PropertyLists::WithPlaces withPlaces)
{
    DevicePolicy policy;
    policy.places = Platform::Linux::DevicePaths::policyPlaces(managedConfiguration);
    PolicyFileReading file = readFirstPolicyFile(policy.places.files, withPlaces, &policy.untrusted);
    if (file.state != State::missing) {
        policy.file = std::move(file);
        policy.findIgnored();
    }
    if (!policy.places.fragments.empty()) {
        auto readings = Platform::Linux::Files::readFragments(policy.places.fragments, withPlaces);
        policy.fragments = std::move(readings.files);
        if (readings.folder.state != State::good && readings.folder.state != State::missing)
            policy.folderProblem = std::move(readings.folder);
    }
    policy.reading = policy.combinedReading();
    return policy;
}

DevicePolicy DevicePolicy::ofFile(Reading file)
{
    DevicePolicy policy;
    policy.file = file;
    policy.reading = std::move(file);
    return policy;
}

void DevicePolicy::findIgnored()
{
    const auto used = std::find(places.files.begin(), places.files.end(), file->path);
    for (auto candidate = used; candidate != places.files.end(); ++candidate) {
        std::error_code error;
        if (candidate != used && fs::symlink_status(*candidate, error).type() != fs::file_type::not_found)
            ignored.push_back(*candidate);
    }
}

std::vector<const PolicyFileReading*> DevicePolicy::unusable() const
{
    std::vector<const PolicyFileReading*> readings;
    if (file && file->state != State::good)
        readings.push_back(&*file);
    if (folderProblem)
        readings.push_back(&*folderProblem);
    for (const PolicyFileReading& fragment : fragments) {
        if (fragment.state != State::good)
            readings.push_back(&fragment);
    }
    return readings;
}

PolicyFileReading DevicePolicy::combinedReading() const
{
    PolicyFileReading missing;
    missing.path = places.files.empty() ? places.fragments : places.files.front();
    // Without a trusted policy file, the app does not use the fragments either.
    if (!file && !untrusted.empty())
        return missing;
    if (const auto problems = unusable(); !problems.empty())
        return *problems.front();
    if (!file && fragments.empty())
        return missing;
    if (file && fragments.empty())
        return *file;
    PolicyFileReading whole = file ? *file : fragments.front();
    std::vector<Platform::PropertyList> parts{whole.document.root};
    for (const PolicyFileReading& fragment : fragments) {
        parts.push_back(fragment.document.root);
        addPositions(whole.document, fragment.document);
    }
    whole.document.root = Platform::Linux::Files::combined(parts);
    if (!file)
        whole.path = places.fragments;
    return whole;
}

const PolicyFileReading& DevicePolicy::bestReading() const
{
    return reading.state == State::missing && !untrusted.empty() ? untrusted.front() : reading;
}

std::vector<fs::path> DevicePolicy::sourcesOf(std::string_view key) const
{
    std::vector<fs::path> sources;
    const auto add = [&](const PolicyFileReading& part) {
        const auto* dictionary = part.document.root.dictionary();
        if (dictionary != nullptr && dictionary->contains(key))
            sources.push_back(part.path);
    };
    if (file)
        add(*file);
    std::for_each(fragments.begin(), fragments.end(), add);
    return sources;
}

std::vector<fs::path> DevicePolicy::fragmentPaths() const
{
    std::vector<fs::path> paths;
    for (const PolicyFileReading& fragment : fragments)
        paths.push_back(fragment.path);
    return paths;
}

std::string DevicePolicy::absence() const
{
    if (places.files.empty())
        return fmt::format("{} contains no fragments", places.fragments.string());
    if (places.files.size() == 1)
        return fmt::format("{} does not exist", places.files.front().string());
    return fmt::format("neither {} exists", joined(places.files, " nor "));
}

std::string DevicePolicy::ignoredText() const
{
    return ignored.empty()
               ? std::string()
               : fmt::format("{} is ignored because {} exists", joined(ignored, ", "), file->path.string());
}

std::vector<fs::path> fileNames(const std::vector<fs::path>& paths)
{
    std::vector<fs::path> names;
    for (const fs::path& path : paths)
        names.push_back(path.filename());
    return names;
}

std::string sourceText(const std::vector<fs::path>& sources)
{
    if (sources.size() < 2)
        return sources.empty() ? std::string() : sources.front().string();
    const std::vector<fs::path> replaced(sources.begin(), std::prev(sources.end()));
    return fmt::format("{}, which replaces the value in {}", sources.back().string(),
                       joined(replaced, " and "));
}

} // namespace Qvctl
