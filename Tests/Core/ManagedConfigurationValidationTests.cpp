#include "Core/ManagedConfigurationValidation.h"

#include <gtest/gtest.h>

using namespace Core;
using Platform::PropertyList;
using Array = PropertyList::Array;
using Kind = ValidationFinding::Kind;

namespace {

using Kinds = std::vector<Kind>;

TEST(BundleIdListTest, KeepsOnlyBundleIdentifiers)
{
    constexpr const char* key = "AllowedAppsBundleIdsForSSOExtension";
    using enum ValidationFinding::Kind;
    // The findings with their positions in the list.
    using Positions = std::vector<std::pair<Kind, std::optional<std::size_t>>>;
    const std::tuple<PropertyList, TextList, Positions> cases[] = {
        {" com.acme.one , com.acme.two,,bad id,nodot,com.acme.one ",
         {"com.acme.one", "com.acme.two", "com.acme.one"},
         {{entryEmpty, 2}, {entryHasForbiddenCharacter, 3}, {entryHasNoDot, 4}, {entryRepeated, 5}}},
        {Array{" com.acme.one", "com_acme.two"}, {"com.acme.one"}, {{entryHasForbiddenCharacter, 1}}},
        {Array{"com.acme.one", 1}, {}, {{elementNotText, 1}}},
        {Array{1, "com.acme.one", PropertyList()}, {}, {{elementNotText, 0}, {elementNotText, 2}}},
        {Array{"com.a,com.b"}, {}, {{entryHasForbiddenCharacter, 0}}},
        {Array{}, {}, {}},
        {1.5, {}, {{wrongType, {}}}},
        {PropertyList::Dictionary{}, {}, {{wrongType, {}}}},
        {"a.b,-.-,.,COM.Acme.App,", {"a.b", "-.-", ".", "COM.Acme.App"}, {{entryEmpty, 4}}},
        {"\u3000com.acme.one\u2028,com.\u00e4cme,com.acme.one\nx",
         {"com.acme.one"},
         {{entryHasForbiddenCharacter, 1}, {entryHasForbiddenCharacter, 2}}},
    };
    for (const auto& [value, expected, positions] : cases) {
        SCOPED_TRACE(value.description());
        std::vector<ValidationFinding> findings;
        EXPECT_EQ(validateManagedConfiguration({{key, value}}, &findings).allowedAppBundleIds, expected);
        Positions found;
        for (const ValidationFinding& finding : findings) {
            EXPECT_EQ(finding.key, key);
            found.emplace_back(finding.kind, finding.index);
        }
        EXPECT_EQ(found, positions);
    }
}

TEST(ScalarTest, TrimsStringsFormatsNumbersAndDropsOtherTypes)
{
    const std::pair<PropertyList, std::optional<std::string>> cases[] = {
        {"  key  ", "key"},
        {"\t\v\f\r\n\u0085\u00a0\u1680\u2000\u200a\u2029\u202f\u205f\u3000in ner\u2003", "in ner"},
        {"\u200b", "\u200b"},                   // A zero-width space is not white space.
        {"\x80 a \xe3\x80", "\x80 a \xe3\x80"}, // Trimming stops at invalid UTF-8.
        {"\u3000", std::nullopt},
        {"   ", std::nullopt},
        {"", std::nullopt},
        {18'446'744'073'709'551'615U, "18446744073709551615"},
        {3.5, "3.5"},
        {true, "1"},
        {false, "0"},
        {Platform::Date{60}, std::nullopt},
        {Platform::Data{std::byte{65}}, std::nullopt},
        {PropertyList::Array{"a"}, std::nullopt},
        {PropertyList::Dictionary{{"a", "b"}}, std::nullopt},
        {PropertyList(), std::nullopt},
    };
    for (const auto& [value, expected] : cases) {
        const auto config = validateManagedConfiguration(
            {{"OrganizationId", value}, {"api_key", value}, {"device_id", value}});
        for (const auto& actual : {config.organizationId, config.apiKey, config.deviceId})
            EXPECT_EQ(actual, expected) << value.description();
    }
    EXPECT_EQ(validateManagedConfiguration({{"organizationId", "x"}, {"BASE_DOMAIN", "x"}}),
              ValidatedConfig())
        << "keys are case-sensitive";
}

TEST(BaseDomainTest, AlwaysStartsWithHTTPS)
{
    using enum ValidationFinding::Kind;
    const std::tuple<PropertyList, std::optional<std::string>, Kinds> cases[] = {
        {"Acme.Corp", "https://Acme.Corp", {schemeAdded}},
        {"HTTP://acme.corp/api", "https://acme.corp/api", {schemeUpgraded, carriesPath}},
        {" HTTPS://Acme.Corp ", "HTTPS://Acme.Corp", {whiteSpaceTrimmed}},
        {"hTtPs://acme.corp/", "hTtPs://acme.corp/", {}},
        {"", std::nullopt, {blank}},
        {42, "https://42", {numberTakenAsText, schemeAdded}},
        {true, "https://1", {booleanTakenAsText, schemeAdded}},
        {"http://", "https://", {schemeUpgraded}},
        {"ftp://acme.corp", "https://ftp://acme.corp", {schemeUnsupported}},
        {"https://https://acme.corp", "https://https://acme.corp", {schemeUnsupported}},
        {"https:/acme.corp", "https://https:/acme.corp", {schemeUnsupported}},
        {"http://HTTP:/acme.corp", "https://HTTP:/acme.corp", {schemeUnsupported}},
        {"acme:8443/ftp://x", "https://acme:8443/ftp://x", {schemeAdded, carriesPath}},
        {"://acme", "https://://acme", {schemeAdded, carriesPath}},
        {"localhost:/x", "https://localhost:/x", {schemeAdded, carriesPath}},
        {"\u201cacme\u201d", "https://\u201cacme\u201d", {quotationMarks, schemeAdded}},
        {"'acme'", "https://'acme'", {quotationMarks, schemeAdded}},
        {"'", "https://'", {schemeAdded}},
        {"o'acme\u2019", "https://o'acme\u2019", {schemeAdded}},
    };
    for (const auto& [value, expected, kinds] : cases) {
        std::vector<ValidationFinding> findings;
        EXPECT_EQ(validateManagedConfiguration({{"base_domain", value}}, &findings).baseDomain, expected);
        Kinds found;
        for (const ValidationFinding& finding : findings)
            found.push_back(finding.kind);
        EXPECT_EQ(found, kinds) << value.description();
    }
}

} // namespace
