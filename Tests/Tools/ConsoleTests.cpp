#include "Core/ManagedKeys.h"
#include "Platform/Linux/PropertyListReader.h"
#include "Tests/Fakes/ForeignLocale.h"
#include "Tools/qvctl/FindingText.h"
#include "Tools/qvctl/ManagedKeyForms.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/TimeText.h"

#include <gmock/gmock.h>
#include <pugixml.hpp>

#include <algorithm>
#include <regex>
#include <set>

namespace json = boost::json;
using namespace Qvctl;
using testing::IsEmpty;

namespace {

TEST(TimeTextTest, TakesAgesAndTimes)
{
    const Platform::Date now{1'000'000};
    struct Case {
        const char* text;
        std::optional<const char*> expected;
    };
    const Case cases[] = {
        {"90s", "2001-01-12T13:45:10.000Z"},
        {"10m", "2001-01-12T13:36:40.000Z"},
        {"2h", "2001-01-12T11:46:40.000Z"},
        {"3d", "2001-01-09T13:46:40.000Z"},
        {"2026-11-21T15:04:05Z", "2026-11-21T15:04:05.000Z"},
        {"2026-11-21 15:04:05.25Z", "2026-11-21T15:04:05.250Z"},
        {"2026-11-21T15:04Z", "2026-11-21T15:04:00.000Z"},
        {"2026-07-01", "2026-06-30T22:00:00.000Z"}, // Local, in summer.
        {"2026-01-01T00:30", "2025-12-31T23:30:00.000Z"},
        {"2024-02-29T00:00Z", "2024-02-29T00:00:00.000Z"},
        {"2026-02-29T00:00Z", {}},
        {"2026-13-01", {}},
        {"2026-11-21T24:00Z", {}},
        {"2026-11-21Z", {}},
        {"10", {}},
        {"-10m", {}},
        {"10w", {}},
        {"9999999999s", {}},
        {"yesterday", {}},
        {"", {}},
    };
    const ForeignLocale locale;
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    for (const Case& row : cases) {
        const auto date = timeFromText(row.text, now);
        EXPECT_EQ(date ? std::optional(date->utcText()) : std::nullopt, row.expected) << row.text;
    }
}

TEST(FindingTextTest, SuggestsKeysInEveryLocale)
{
    const ForeignLocale locale;
    EXPECT_EQ(suggestedKey("DEVICE IDS"), "device_id");
    EXPECT_EQ(suggestedKey("organizationid"), "OrganizationId");
    EXPECT_EQ(suggestedKey("password"), std::nullopt);
}

bool lintHasErrors(const std::string& policy)
{
    const auto findings = judge(Platform::Linux::readPropertyList(policy), false);
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity::error; });
}

/// As much of a validator as our schema needs.
bool isValid(const json::value& value, const json::object& schema)
{
    if (const auto* reference = schema.if_contains("$ref")) {
        const json::object root = jsonSchema();
        return isValid(value, root.at("$defs").at(reference->as_string().subview(8)).as_object());
    }
    if (const auto* choices = schema.if_contains("anyOf"))
        return std::any_of(choices->as_array().begin(), choices->as_array().end(),
                           [&](const json::value& choice) { return isValid(value, choice.as_object()); });
    if (const auto* type = schema.if_contains("type")) {
        const auto isOf = [&](std::string_view name) {
            return name == "string"   ? value.is_string()
                   : name == "array"  ? value.is_array()
                   : name == "number" ? value.is_number()
                                      : value.is_bool();
        };
        const bool isOne = type->is_string() ? isOf(type->as_string())
                                             : isOf(type->at(0).as_string()) || isOf(type->at(1).as_string());
        if (!isOne)
            return false;
    }
    if (const auto* pattern = schema.if_contains("pattern")) {
        // The standard library compares bytes: ASCII has to do here.
        static const std::regex beyondASCII(R"((\\u[0-9a-f]{4}-?)+)");
        const std::regex expression(std::regex_replace(std::string(pattern->as_string()), beyondASCII, ""));
        return std::regex_search(std::string(value.as_string()), expression);
    }
    const auto* items = schema.if_contains("items");
    return items == nullptr ||
           std::all_of(value.as_array().begin(), value.as_array().end(),
                       [&](const json::value& item) { return isValid(item, items->as_object()); });
}

TEST(ManagedKeyFormsTest, SchemaTakesWhatLintHasNoErrorsAbout)
{
    const json::object schema = jsonSchema();
    for (const char* text : {R"("a")",
                             R"(" a ")",
                             R"("")",
                             R"(" \t")",
                             "1",
                             "1.5",
                             "true",
                             "null",
                             "[]",
                             "{}",
                             R"("a.b")",
                             R"("a.b, c.d")",
                             R"("a.b,,c.d")",
                             R"("a.b,c")",
                             R"("a_b.c")",
                             R"("a b.c")",
                             R"(".")",
                             R"("-.-")",
                             R"(["a.b"])",
                             R"(["a.b", ""])",
                             R"(["a.b,c.d"])",
                             R"([" a.b "])",
                             R"(["a.b", 1])",
                             R"([["a.b"]])"}) {
        for (const Core::ManagedKey& key : Core::managedKeys()) {
            const json::object policy{{key.name, json::parse(text)}};
            EXPECT_EQ(isValid(policy.at(key.name), schema.at("properties").at(key.name).as_object()),
                      !lintHasErrors(json::serialize(policy)))
                << key.name << " " << text;
        }
    }
}

TEST(ManagedKeyFormsTest, SampleHasEveryKeyAndNothingToRemark)
{
    const json::object sample = samplePolicy();
    EXPECT_EQ(sample.size(), Core::managedKeys().size());
    EXPECT_THAT(judge(Platform::Linux::readPropertyList(prettyJSON(sample)), false), IsEmpty());
}

TEST(ManagedKeyFormsTest, FormAsksForEachKeyThatItDeclaresOnce)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(appConfigForm().c_str()));
    const auto root = document.child("managedAppConfiguration");
    EXPECT_STREQ(root.child("bundleId").text().get(), "com.quorvane.mdm");
    std::multiset<std::string> declared;
    std::multiset<std::string> asked;
    for (const auto& value : root.child("dict"))
        declared.insert(value.attribute("keyName").value());
    for (const auto& field : root.child("presentation")) {
        asked.insert(field.attribute("keyName").value());
        const std::string_view label = field.child("label").child("language").text().get();
        const auto* key = Core::findManagedKey(field.attribute("keyName").value());
        ASSERT_NE(key, nullptr);
        EXPECT_EQ(label.find("secret") != std::string_view::npos, key->isSecret) << label;
    }
    EXPECT_EQ(declared, asked);
    EXPECT_EQ(declared.size(), Core::managedKeys().size());
}

} // namespace
