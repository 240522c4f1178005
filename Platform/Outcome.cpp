#include "Platform/Outcome.h"

#include "Platform/UserDefaults.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace Platform {

namespace {

constexpr std::string_view outcomesKey = "Outcomes";

constexpr std::array<std::string_view, 3> subjectNames{"upload", "push", "configurationError"};
constexpr std::array<std::string_view, 3> resultNames{"succeeded", "failed", "deferred"};
constexpr std::array<std::string_view, 11> kindNames{"none",       "alert",     "silent",   "status",
                                                     "network",    "address",   "response", "untrusted",
                                                     "unreadable", "malformed", "notStored"};

/// The enumerator with that name; absent for a name that a later version has stored.
template <typename Value, std::size_t count>
std::optional<Value> valueNamed(const std::array<std::string_view, count>& names, const std::string* name)
{
    const auto found = std::find(names.begin(), names.end(), name != nullptr ? *name : "");
    return found != names.end() ? std::optional(static_cast<Value>(found - names.begin())) : std::nullopt;
}

std::optional<Outcome> decodeOutcome(const PropertyList& value)
{
    const auto result = valueNamed<Outcome::Result>(resultNames, member(value, "result").text());
    const auto kind = valueNamed<Outcome::Kind>(kindNames, member(value, "kind").text());
    const auto* code = member(value, "code").integer();
    const auto* time = member(value, "time").date();
    if (!result || !kind || code == nullptr || time == nullptr)
        return std::nullopt;
    return Outcome{*result, *kind, *code, *time};
}

} // namespace

std::string_view outcomeName(Outcome::Result result)
{
    return resultNames.at(static_cast<std::size_t>(result));
}

std::string_view outcomeName(Outcome::Kind kind)
{
    return kindNames.at(static_cast<std::size_t>(kind));
}

Outcomes storedOutcomes(const UserDefaults& store)
{
    const PropertyList stored = store.object(outcomesKey).value_or(PropertyList());
    Outcomes outcomes;
    for (std::size_t i = 0; i < subjectNames.size(); ++i) {
        if (const auto outcome = decodeOutcome(member(stored, subjectNames.at(i))))
            outcomes.emplace(static_cast<Outcome::Subject>(i), *outcome);
    }
    return outcomes;
}

bool storeOutcomes(UserDefaults& store, const Outcomes& outcomes)
{
    PropertyList::Dictionary values;
    for (const auto& [subject, outcome] : outcomes)
        values.emplace(std::string(subjectNames.at(static_cast<std::size_t>(subject))),
                       PropertyList::Dictionary{{"result", std::string(outcomeName(outcome.result))},
                                                {"kind", std::string(outcomeName(outcome.kind))},
                                                {"code", outcome.code},
                                                {"time", outcome.time}});
    return store.set(outcomesKey, std::move(values));
}

} // namespace Platform
