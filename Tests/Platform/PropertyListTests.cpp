#include "Platform/PropertyList.h"

#include "Platform/ASCII.h"
#include "Platform/NumberText.h"
#include "Tests/Fakes/ForeignLocale.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <limits>

using Platform::Data;
using Platform::Date;
using Platform::PropertyList;

namespace {

TEST(PropertyListTest, DescriptionAndComparisonDistinguishTypesAndContents)
{
    const std::pair<PropertyList, std::string> cases[] = {
        {"a \"text\"", "a \"text\""},
        {PropertyList(), "<null>"},
        {42, "42"},
        {8.7, "8.699999999999999"},
        {true, "true"},
        {Date{0.5}, "<date 0.5>"},
        {Data{std::byte{0x00}, std::byte{0xab}}, "<data 00ab>"},
        {PropertyList::Array{}, "[]"},
        {PropertyList::Array{"", true, {}}, R"(["", true, <null>])"},
        {PropertyList::Array{"a\", \"b\\", 1, PropertyList::Array{"c"}}, R"(["a\", \"b\\", 1, ["c"]])"},
        {PropertyList::Dictionary{{"b", false}, {"a", "x"}}, R"({"a": "x", "b": false})"},
        {PropertyList::Dictionary{{"a\": 1, \"b", 2}}, R"({"a\": 1, \"b": 2})"},
    };
    for (const auto& [value, expected] : cases) {
        EXPECT_EQ(value.description(), expected);
        for (const auto& [other, description] : cases)
            EXPECT_EQ(value == other, expected == description) << expected << " and " << description;
    }
}

TEST(PropertyListTest, NumberTextIsThatOfPrintfInEveryLocale)
{
    using Limits = std::numeric_limits<double>;
    std::vector<std::pair<PropertyList, std::string>> cases{
        {1234567, "1234567"},
        {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
        {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
        {0.30000000000000004, "0.3"},
        {8.7, "8.699999999999999"}};
    for (const double real :
         {0.1, 1.0, -0.0, 0.0001, 1e-5, 9999999999999998.0, 1e16, 1e22, Limits::lowest(),
          Limits::denorm_min(), Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN()}) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%.16g", real);
        cases.emplace_back(real, text.data());
    }
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(value.numberText(), expected);
    const ForeignLocale locale;
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(value.numberText(), expected);
    EXPECT_EQ(Date{785'000'000.25}.utcText(), "2025-11-16T15:33:20.250Z");
    EXPECT_EQ(Platform::parseDecimal("1234.5"), 1234.5);
    for (const char* bad : {"1234,5", "inf", "nan(1)", "+1", " 1", ""})
        EXPECT_EQ(Platform::parseDecimal(bad), std::nullopt) << bad;
    EXPECT_TRUE(Platform::equalsIgnoringASCIICase("Ident\xC4", "iDENT\xC4"));
}

TEST(DateTest, WritesUTCForEveryNumber)
{
    const std::pair<double, const char*> cases[] = {
        {-0.0001, "2000-12-31T23:59:59.999Z"},
        {-63'145'526'400, "0000-01-01T00:00:00.000Z"},
        {252'423'993'599, "9999-12-31T23:59:59.000Z"},
        {252'423'993'600, "252423993600"},
        {1e300, "1e+300"},
        {std::numeric_limits<double>::quiet_NaN(), "nan"},
    };
    for (const auto& [seconds, expected] : cases)
        EXPECT_EQ(Date{seconds}.utcText(), expected);
    EXPECT_EQ(Date::fromSystemTime(std::chrono::system_clock::time_point{}).secondsSinceReferenceDate,
              -978'307'200);
}

} // namespace
