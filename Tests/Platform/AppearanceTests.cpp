#include "Platform/Appearance.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

using namespace Platform;

TEST(AppearanceTest, EnvironmentOverridesSystem)
{
    const struct {
        const char* value;
        std::optional<Appearance> expected;
    } cases[] = {
        {"", std::nullopt},
        {"purple", std::nullopt},
        {"dark,", std::nullopt},
        {"dark,text=", std::nullopt},
        {"text=2x", std::nullopt},
        {"text=2.5", std::nullopt},
        {"text=0.5", std::nullopt},
        {"text=nan", std::nullopt},
        {"light", Appearance{}},
        {"dark", Appearance{.isDark = true}},
        {"light,text=1.5", Appearance{.textScale = 1.5}},
        {"high-contrast", Appearance{.isContrastHigh = true}},
        {"dark,reduced-motion,text=2", Appearance{.isDark = true, .isMotionReduced = true, .textScale = 2}},
    };
    for (const auto& [value, expected] : cases) {
        ::setenv("QUORVANE_APPEARANCE", value, 1);
        const auto appearance = FixedAppearance::fromEnvironment();
        EXPECT_EQ(appearance != nullptr, expected.has_value()) << value;
        EXPECT_TRUE(!appearance || appearance->current() == expected) << value;
    }
    ::unsetenv("QUORVANE_APPEARANCE");
}
