// The way of a managed configuration: policy file, validation, snapshot, stored JSON, and back.

#include "Core/ConfigurationSnapshot.h"
#include "Core/Constants.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/UnicodeText.h"
#include "Fuzzers/Fuzzing.h"
#include "Platform/PropertyLists/PropertyListReader.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

using namespace Core;
using Fuzzers::require;
using Platform::PropertyList;
namespace Keys = Core::Constants::ManagedConfigKeys;

namespace {

void examineBundleIds(const std::vector<std::string>& kept, const PropertyList& configured)
{
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";
    for (const std::string& identifier : kept)
        require(identifier.find('.') != std::string::npos &&
                    identifier.find_first_not_of(allowed) == std::string::npos,
                "a bundle identifier that is kept satisfies the rule");
    std::size_t entryCount = 0;
    if (const auto* text = configured.text())
        entryCount = static_cast<std::size_t>(std::count(text->begin(), text->end(), ',')) + 1;
    else if (const auto* array = configured.array())
        entryCount = array->size();
    require(kept.size() <= entryCount, "no bundle identifier is made up");
}

void examineScalar(const std::optional<std::string>& kept, const PropertyList& configured)
{
    if (!kept)
        require(!configured.isNumber() &&
                    (configured.text() == nullptr || trimmed(*configured.text()).empty()),
                "no text and no number is dropped");
    else if (const auto* text = configured.text())
        require(!kept->empty() && *kept == trimmed(*text), "a text is kept trimmed");
    else
        require(configured.isNumber() && *kept == configured.numberText(), "a number is kept as its text");
}

void examineFindings(const std::vector<ValidationFinding>& findings, const PropertyList::Dictionary& managed)
{
    for (const ValidationFinding& finding : findings) {
        const PropertyList& value = Platform::member(managed, finding.key);
        require(managed.contains(finding.key), "a finding is about a key of the file");
        if (finding.index && value.array() != nullptr)
            require(*finding.index < value.array()->size(), "a finding is about an entry of the array");
    }
}

/// The dictionary that says what `config` says.
PropertyList::Dictionary dictionaryOf(const ValidatedConfig& config)
{
    PropertyList::Dictionary dictionary;
    dictionary.emplace(Keys::allowedAppBundleIds, PropertyList::Array(config.allowedAppBundleIds.begin(),
                                                                      config.allowedAppBundleIds.end()));
    const auto addIfPresent = [&](std::string_view key, const std::optional<std::string>& text) {
        if (text)
            dictionary.emplace(key, *text);
    };
    addIfPresent(Keys::organizationId, config.organizationId);
    addIfPresent(Keys::BASE_DOMAIN, config.baseDomain);
    addIfPresent(Keys::API_KEY, config.apiKey);
    addIfPresent(Keys::DEVICE_ID, config.deviceId);
    return dictionary;
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    PropertyList root;
    try {
        root = Platform::PropertyLists::readPropertyList(input).root;
    } catch (const Platform::PropertyLists::PropertyListError&) {
        return;
    }
    if (root.dictionary() == nullptr)
        return;
    const PropertyList::Dictionary& managed = *root.dictionary();

    std::vector<ValidationFinding> findings;
    const ValidatedConfig config = validateManagedConfiguration(managed, &findings);
    require(validateManagedConfiguration(managed) == config, "whoever wants findings changes nothing");
    examineFindings(findings, managed);
    examineBundleIds(config.allowedAppBundleIds, Platform::member(managed, Keys::allowedAppBundleIds));
    examineScalar(config.organizationId, Platform::member(managed, Keys::organizationId));
    examineScalar(config.apiKey, Platform::member(managed, Keys::API_KEY));
    examineScalar(config.deviceId, Platform::member(managed, Keys::DEVICE_ID));
    require(!config.baseDomain || (hasPrefixIgnoringCase(*config.baseDomain, "https://") &&
                                   trimmed(*config.baseDomain) == *config.baseDomain),
            "a base domain begins with https:// and is trimmed");
    require(validateManagedConfiguration(dictionaryOf(config)) == config,
            "what was validated is valid as it stands");

    const auto snapshot =
        ConfigurationSnapshot::make(config, static_cast<std::int64_t>(input.size()), {986'802'277.2158307});
    require(ConfigurationSnapshot::decode(snapshot.encode()) == snapshot, "a snapshot reads back equal");
}
