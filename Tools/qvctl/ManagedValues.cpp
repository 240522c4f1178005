#include "Tools/qvctl/ManagedValues.h"

#include "Platform/ASCII.h"
#include "Tools/qvctl/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace Qvctl {

using Core::ManagedKey;

namespace {

void maskValue(std::optional<std::string>& text)
{
    if (text)
        text = mask;
}

void maskValue(Core::TextList& list)
{
    Core::TextList masked;
    for (std::size_t index = 0; index < list.size(); ++index)
        masked.push_back(mask);
    list = std::move(masked);
}

/// "ApiKey" for "api key".
std::string camelCase(std::string_view words)
{
    std::string joined;
    bool isStart = true;
    for (const char character : words) {
        if (character != ' ')
            joined += isStart ? Platform::upperCaseASCII(character) : character;
        isStart = character == ' ';
    }
    return joined;
}

} // namespace

std::vector<ManagedKey> printedKeys()
{
    std::vector<ManagedKey> keys;
    const auto all = Core::managedKeys();
    std::copy_if(all.begin(), all.end(), std::back_inserter(keys),
                 [](const ManagedKey& key) { return key.isStored(); });
    std::stable_partition(keys.begin(), keys.end(), [](const ManagedKey& key) { return !key.isList(); });
    return keys;
}

std::string labelOf(const ManagedKey& key)
{
    return fmt::format("{}{}", key.noun, key.isList() ? "s" : "");
}

std::string statusMemberOf(const ManagedKey& key)
{
    std::string name = camelCase(key.noun);
    if (!key.isList())
        return "has" + name;
    name.front() = Platform::lowerCaseASCII(name.front());
    return name + "Count";
}

Core::ValidatedConfig maskedConfig(Core::ValidatedConfig config, bool isRevealing)
{
    Core::forEachValue(config, [&](const ManagedKey& key, auto& value) {
        if (key.isSecret && !isRevealing)
            maskValue(value);
    });
    return config;
}

std::string joinedValues(const ManagedKey& key, const Core::ValidatedConfig& config)
{
    return fmt::format("{}", fmt::join(Core::valuesOf(key, config), ", "));
}

bool isDifferent(const ManagedKey& key, const Core::ValidatedConfig& left, const Core::ValidatedConfig& right)
{
    const auto first = Core::valuesOf(key, left);
    const auto second = Core::valuesOf(key, right);
    return !std::equal(first.begin(), first.end(), second.begin(), second.end());
}

std::string differingKeys(const Core::ValidatedConfig& left, const Core::ValidatedConfig& right)
{
    std::string keys;
    for (const ManagedKey& key : Core::managedKeys()) {
        if (isDifferent(key, left, right))
            keys.append(keys.empty() ? "" : ", ").append(key.name);
    }
    return keys;
}

} // namespace Qvctl
