// Fuzzes the processing of a managed configuration: policy file, validation, snapshot, stored JSON, and back.

#include "Core/ConfigurationSnapshot.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Core/UnicodeText.h"
#include "Fuzzers/Fuzzing.h"
#include "Platform/PropertyLists/PropertyListReader.h"

#include <algorithm>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

using namespace Core;
using Fuzzers::require;
using Platform::PropertyList;

namespace {

void examineBundleIds(const TextList& kept, const PropertyList& configured)
{
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";
    for (const std::string_view identifier : kept)
        require(identifier.find('.') != std::string_view::npos &&
                    identifier.find_first_not_of(allowed) == std::string_view::npos,
                "an accepted bundle identifier is valid");
    std::size_t entryCount = 0;
    if (const auto* text = configured.text())
        entryCount = static_cast<std::size_t>(std::count(text->begin(), text->end(), ',')) + 1;
    else if (const auto* array = configured.array())
        entryCount = array->size();
    require(kept.size() <= entryCount, "every bundle identifier comes from the configuration");
}

void examineScalar(const std::optional<std::string>& kept, const PropertyList& configured)
{
    if (!kept)
        require(!configured.isNumber() &&
                    (configured.text() == nullptr || trimmed(*configured.text()).empty()),
                "strings that are not blank and numbers are kept");
    else if (const auto* text = configured.text())
        require(!kept->empty() && *kept == trimmed(*text), "a string is stored trimmed");
    else
        require(configured.isNumber() && *kept == configured.numberText(), "a number is stored as its text");
}

void examineFindings(const std::vector<ValidationFinding>& findings, const PropertyList::Dictionary& managed)
{
    for (const ValidationFinding& finding : findings) {
        const PropertyList& value = Platform::member(managed, finding.key);
        require(managed.contains(finding.key), "a finding names a key of the file");
        if (finding.index && value.array() != nullptr)
            require(*finding.index < value.array()->size(), "a finding's index is in the array");
    }
}

void examineAddress(const std::optional<std::string>& kept)
{
    require(!kept || (hasPrefixIgnoringCase(*kept, "https://") && trimmed(*kept) == *kept),
            "a URL starts with https:// and is trimmed");
}

/// Checks each value in `config` and returns a dictionary of the same values.
PropertyList::Dictionary examineValues(ValidatedConfig config, const PropertyList::Dictionary& managed)
{
    PropertyList::Dictionary same;
    forEachValue(config, [&](const ManagedKey& key, auto& value) {
        const PropertyList& configured = Platform::member(managed, key.name);
        if constexpr (std::is_same_v<decltype(value), TextList&>) {
            examineBundleIds(value, configured);
            PropertyList::Array array;
            for (const std::string_view text : value)
                array.emplace_back(std::string(text));
            same.emplace(key.name, std::move(array));
        } else {
            if (key.kind == ManagedKey::Kind::address)
                examineAddress(value);
            else
                examineScalar(value, configured);
            if (value)
                same.emplace(key.name, *value);
        }
    });
    return same;
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
    require(validateManagedConfiguration(managed) == config,
            "collecting findings does not change the result");
    examineFindings(findings, managed);
    require(validateManagedConfiguration(examineValues(config, managed)) == config,
            "validating accepted values again changes nothing");

    const auto snapshot =
        ConfigurationSnapshot::make(config, static_cast<std::int64_t>(input.size()), {986'802'277.2158307});
    require(ConfigurationSnapshot::decode(snapshot.encode()) == snapshot, "a snapshot survives encoding");
}
