#include "Platform/RememberedAppearance.h"

#include "Tests/Fakes/FakeAppearance.h"
#include "Tests/Fakes/FakeUserDefaults.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace Platform;

namespace {

TEST(AppearanceTest, EnvironmentOverridesSystem)
{
    std::vector<std::pair<const char*, std::optional<Appearance>>> cases{
        {"light,text=1.5", Appearance{.textScale = 1.5}},
        {"high-contrast", Appearance{.isContrastHigh = true}},
        {"dark,reduced-motion,text=2", Appearance{.isDark = true, .isMotionReduced = true, .textScale = 2}},
    };
    for (const char* invalid :
         {"", "purple", "dark,", "dark,text=", "text=2x", "text=2.5", "text=0.5", "text=nan"})
        cases.emplace_back(invalid, std::nullopt);
    for (const auto& [value, expected] : cases) {
        ::setenv("QUORVANE_APPEARANCE", value, 1);
        const auto appearance = FixedAppearance::fromEnvironment();
        EXPECT_EQ(appearance != nullptr, expected.has_value()) << value;
        EXPECT_TRUE(!appearance || appearance->current() == expected) << value;
    }
    ::unsetenv("QUORVANE_APPEARANCE");
}

TEST(RememberedAppearanceTest, NextLaunchStartsWithTheLastAppearance)
{
    const Appearance appearances[] = {
        {.isDark = true}, {.isMotionReduced = true}, {.textScale = 1.15}, {.isContrastHigh = true}, {}};
    FakeUserDefaults store;
    std::optional<Appearance> last;
    for (const Appearance& appearance : appearances) {
        FakeAppearance system;
        RememberedAppearance launch(system, store);
        EXPECT_EQ(launch.current(), last);
        system.answer = appearance;
        EXPECT_EQ(launch.current(), appearance);
        std::optional<Appearance> seen;
        launch.observe([&](const Appearance& value) { seen = value; });
        const int commitCount = store.commitCount;
        for (int count = 0; count < 2; ++count)
            system.answerWith(appearance);
        EXPECT_EQ(seen, appearance);
        EXPECT_EQ(launch.current(), appearance);
        EXPECT_EQ(store.commitCount, commitCount + 1) << "written only if changed";
        last = appearance;
    }
}

TEST(RememberedAppearanceTest, InvalidValuesCountAsTheDefaults)
{
    const PropertyList values[] = {"dark", PropertyList::Dictionary{{"isDark", 1}, {"textPercent", 9000.5}},
                                   PropertyList::Dictionary{{"textPercent", 50}}};
    for (const PropertyList& value : values) {
        FakeAppearance system;
        FakeUserDefaults store;
        store.values.emplace("Appearance", value);
        EXPECT_EQ(RememberedAppearance(system, store).current().value_or(Appearance()), Appearance());
    }
}

} // namespace
