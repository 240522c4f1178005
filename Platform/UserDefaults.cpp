#include "Platform/UserDefaults.h"

#include <cmath>
#include <utility>

namespace Platform {

bool UserDefaults::set(std::string_view key, PropertyList value)
{
    const Entry entry{key, std::move(value)};
    return write({&entry, 1});
}

std::optional<Data> UserDefaults::data(std::string_view key) const
{
    auto value = object(key);
    return value ? std::move(*value).takeData() : std::nullopt;
}

std::optional<std::string> UserDefaults::text(std::string_view key) const
{
    auto value = object(key);
    return value ? std::move(*value).takeText() : std::nullopt;
}

std::int64_t UserDefaults::integer(std::string_view key) const
{
    const auto value = object(key);
    if (!value)
        return 0;
    if (const auto* integer = value->integer())
        return *integer;
    if (const auto* boolean = value->boolean())
        return *boolean ? 1 : 0;
    constexpr double limit = 9'223'372'036'854'775'808.0;
    if (const auto* real = value->real(); real != nullptr && *real >= -limit && *real < limit)
        return static_cast<std::int64_t>(*real);
    return 0;
}

bool UserDefaults::boolean(std::string_view key) const
{
    const auto value = object(key);
    return value && value->isNumber() && value->numberText() != "0";
}

} // namespace Platform
