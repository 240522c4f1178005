// Fuzzes the processing of a managed configuration: policy file, validation, snapshot, stored JSON, and back.

#include "Core/ConfigurationSnapshot.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Core/UnicodeText.h"
#include "Fuzzers/Fuzzing.h"
#include "Platform/PropertyLists/PropertyListReader.h"

using namespace Core;
using Fuzzers::require;
using Platform::PropertyList;
using Platform::PropertyLists::PropertyListError, Platform::PropertyLists::readPropertyList;

namespace {

void examineFindings(const std::vector<ValidationFinding>& findings, const PropertyList::Dictionary& managed)
{
    for (const ValidationFinding& finding : findings) {
        const PropertyList& value = Platform::member(managed, finding.key);
        require(managed.contains(finding.key), "a finding names a key of the file");
        if (finding.index && value.array() != nullptr)
            require(*finding.index < value.array()->size(), "a finding's index is in the array");
    }
}

/// Returns the values of `config` as a policy file would set them.
PropertyList::Dictionary policyOf(ValidatedConfig config)
{
    PropertyList::Dictionary policy;
    forEachValue(config, [&](const ManagedKey& key, auto& value) {
        if constexpr (std::is_same_v<decltype(value), TextList&>) {
            PropertyList::Array array;
            for (const std::string_view text : value)
                array.emplace_back(std::string(text));
            policy.emplace(key.name, std::move(array));
        } else if (value) {
            require(*value == trimmed(*value) && !value->empty(), "a value is trimmed and not empty");
            policy.emplace(key.name, *value);
        }
    });
    return policy;
}

} // namespace

void Fuzzers::examine(std::string_view input)
{
    const auto document = accepted<PropertyListError>([&] { return readPropertyList(input); });
    if (!document || document->root.dictionary() == nullptr)
        return;
    const PropertyList::Dictionary& managed = *document->root.dictionary();

    std::vector<ValidationFinding> findings;
    const ValidatedConfig config = validateManagedConfiguration(managed, &findings);
    require(validateManagedConfiguration(managed) == config,
            "collecting findings does not change the result");
    examineFindings(findings, managed);
    require(validateManagedConfiguration(policyOf(config)) == config,
            "validating accepted values again changes nothing");

    const auto snapshot =
        ConfigurationSnapshot::make(config, static_cast<std::int64_t>(input.size()), {986'802'277.2158307});
    require(ConfigurationSnapshot::decode(snapshot.encode()) == snapshot, "a snapshot survives encoding");
}
