#include "Platform/Push/PushServiceState.h"

#include "Platform/UserDefaults.h"

#include <algorithm>
#include <array>
#include <string>

namespace Platform::Push {

namespace {

constexpr std::string_view stateKey = "PushService.State";

constexpr std::array<std::string_view, 4> kindNames{"UnifiedPush", "local", "off", "unavailable"};

} // namespace

std::string_view pushServiceName(PushServiceKind kind)
{
    return kindNames.at(static_cast<std::size_t>(kind));
}

std::optional<PushServiceState> PushServiceState::stored(const UserDefaults& store)
{
    const PropertyList value = store.object(stateKey).value_or(PropertyList());
    const auto* kind = member(value, "kind").text();
    const auto name = std::find(kindNames.begin(), kindNames.end(), kind != nullptr ? *kind : "");
    if (name == kindNames.end())
        return std::nullopt;
    PushServiceState state{static_cast<PushServiceKind>(name - kindNames.begin())};
    const auto* code = member(value, "failureCode").integer();
    const auto* time = member(value, "failureTime").date();
    if (code != nullptr && time != nullptr)
        state.failure = Failure{*code, *time};
    return state;
}

bool PushServiceState::write(UserDefaults& store) const
{
    if (stored(store) == *this)
        return true;
    PropertyList::Dictionary values{{"kind", std::string(pushServiceName(kind))}};
    if (failure) {
        values.emplace("failureCode", failure->code);
        values.emplace("failureTime", failure->time);
    }
    return store.set(stateKey, std::move(values));
}

} // namespace Platform::Push
