#include "Platform/RememberedAppearance.h"

#include "Platform/UserDefaults.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace Platform {

namespace {

constexpr std::string_view appearanceKey = "Appearance";
constexpr const char* darkKey = "isDark";
constexpr const char* motionKey = "isMotionReduced";
constexpr const char* contrastKey = "isContrastHigh";
constexpr const char* textKey = "textPercent";

} // namespace

std::optional<Appearance> RememberedAppearance::current() const
{
    const auto current = m_source.current();
    return current ? current : remembered();
}

void RememberedAppearance::observe(Observer observer)
{
    m_source.observe([this, observer = std::move(observer)](const Appearance& appearance) {
        remember(appearance);
        if (observer)
            observer(appearance);
    });
}

std::optional<Appearance> RememberedAppearance::remembered() const
{
    const auto stored = m_store.object(appearanceKey);
    const auto* values = stored ? stored->dictionary() : nullptr;
    if (values == nullptr)
        return {};
    const auto flag = [&](const char* key) {
        const auto found = values->find(key);
        const bool* value = found != values->end() ? found->second.boolean() : nullptr;
        return value != nullptr && *value;
    };
    const auto text = values->find(textKey);
    const std::int64_t* percent = text != values->end() ? text->second.integer() : nullptr;
    return Appearance{
        .isDark = flag(darkKey),
        .isMotionReduced = flag(motionKey),
        .textScale =
            percent != nullptr ? static_cast<double>(std::clamp<std::int64_t>(*percent, 100, 200)) / 100 : 1,
        .isContrastHigh = flag(contrastKey)};
}

void RememberedAppearance::remember(const Appearance& appearance)
{
    PropertyList values(PropertyList::Dictionary{
        {darkKey, appearance.isDark},
        {motionKey, appearance.isMotionReduced},
        {contrastKey, appearance.isContrastHigh},
        {textKey, static_cast<std::int64_t>(std::lround(appearance.textScale * 100))},
    });
    if (m_store.object(appearanceKey) != values)
        m_store.set(appearanceKey, std::move(values));
}

} // namespace Platform
