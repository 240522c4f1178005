#include "Core/ManagedConfigurationValidation.h"

#include "Core/UnicodeText.h"

#include <gtest/gtest.h>

using namespace Core;
using Platform::PropertyList;
using Kind = ValidationFinding::Kind;

namespace {

constexpr const char* listKey = "AllowedAppsBundleIdsForSSOExtension";

struct ListCase {
    const char* name;
    PropertyList value;
    TextList expected;
    std::vector<std::pair<Kind, std::optional<std::size_t>>> findings;
};

class BundleIdListTest : public testing::TestWithParam<ListCase> {};

TEST_P(BundleIdListTest, KeepsOnlyBundleIdentifiers)
{
    const ListCase& row = GetParam();
    std::vector<ValidationFinding> findings;
    const auto config = validateManagedConfiguration({{listKey, row.value}}, &findings);
    EXPECT_EQ(config.allowedAppBundleIds, row.expected);
    std::vector<std::pair<Kind, std::optional<std::size_t>>> kinds;
    for (const auto& finding : findings) {
        EXPECT_EQ(finding.key, listKey);
        kinds.emplace_back(finding.kind, finding.index);
    }
    EXPECT_EQ(kinds, row.findings);
}

const ListCase listCases[] = {
    {"CommaSeparated",
     " com.acme.one , com.acme.two,,bad id,nodot,com.acme.one ",
     {"com.acme.one", "com.acme.two", "com.acme.one"},
     {{Kind::entryEmpty, 2},
      {Kind::entryHasForbiddenCharacter, 3},
      {Kind::entryHasNoDot, 4},
      {Kind::entryRepeated, 5}}},
    {"Array",
     PropertyList::Array{" com.acme.one", "com_acme.two"},
     {"com.acme.one"},
     {{Kind::entryHasForbiddenCharacter, 1}}},
    {"MixedArray", PropertyList::Array{"com.acme.one", 1}, {}, {{Kind::elementNotText, 1}}},
    {"ArrayWithNull", PropertyList::Array{"com.acme.one", PropertyList()}, {}, {{Kind::elementNotText, 1}}},
    {"CommasInArrayElements",
     PropertyList::Array{"com.a,com.b"},
     {},
     {{Kind::entryHasForbiddenCharacter, 0}}},
    {"EmptyArray", PropertyList::Array{}, {}, {}},
    {"Number", 1.5, {}, {{Kind::wrongType, std::nullopt}}},
    {"Dictionary", PropertyList::Dictionary{}, {}, {{Kind::wrongType, std::nullopt}}},
    {"OddButAllowed", "a.b,-.-,.,COM.Acme.App", {"a.b", "-.-", ".", "COM.Acme.App"}, {}},
    {"UnicodeSpaceAndLetters",
     "\u3000com.acme.one\u2028,com.\u00e4cme,com.acme.one\nx",
     {"com.acme.one"},
     {{Kind::entryHasForbiddenCharacter, 1}, {Kind::entryHasForbiddenCharacter, 2}}},
};
INSTANTIATE_TEST_SUITE_P(Lists, BundleIdListTest, testing::ValuesIn(listCases),
                         [](const auto& row) { return row.param.name; });

TEST(ScalarTest, TrimsStringsFormatsNumbersAndDropsOtherTypes)
{
    struct Case {
        PropertyList value;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"  key  ", "key"},
        {"\t\v\f\r\n\u0085\u00a0\u1680\u2000\u200a\u2029\u202f\u205f\u3000in ner\u2003", "in ner"},
        {"\u200b", "\u200b"}, // A zero-width space is not white space.
        {"   ", std::nullopt},
        {"", std::nullopt},
        {12345, "12345"},
        {-1, "-1"},
        {0, "0"},
        {18'446'744'073'709'551'615U, "18446744073709551615"},
        {3.5, "3.5"},
        {0.1, "0.1"},
        {1e20, "1e+20"},
        {100000.0, "100000"},
        {true, "1"},
        {false, "0"},
        {Platform::Date{60}, std::nullopt},
        {Platform::Data{std::byte{65}}, std::nullopt},
        {PropertyList::Array{"a"}, std::nullopt},
        {PropertyList::Dictionary{{"a", "b"}}, std::nullopt},
        {PropertyList(), std::nullopt},
    };
    for (const auto& [value, expected] : cases) {
        const ValidatedConfig config = validateManagedConfiguration(
            {{"OrganizationId", value}, {"api_key", value}, {"device_id", value}});
        EXPECT_EQ(config.organizationId, expected) << value.description();
        EXPECT_EQ(config.apiKey, expected) << value.description();
        EXPECT_EQ(config.deviceId, expected) << value.description();
    }
}

TEST(BaseDomainTest, AlwaysStartsWithHTTPS)
{
    struct Case {
        PropertyList value;
        std::optional<std::string> expected;
        std::vector<Kind> findings;
    };
    const Case cases[] = {
        {"Acme.Corp", "https://Acme.Corp", {Kind::schemeAdded}},
        {"HTTP://acme.corp/api", "https://acme.corp/api", {Kind::schemeUpgraded, Kind::carriesPath}},
        {" HTTPS://Acme.Corp ", "HTTPS://Acme.Corp", {Kind::whiteSpaceTrimmed}},
        {"hTtPs://acme.corp/", "hTtPs://acme.corp/", {}},
        {"", std::nullopt, {Kind::blank}},
        {42, "https://42", {Kind::numberTakenAsText, Kind::schemeAdded}},
        {true, "https://1", {Kind::booleanTakenAsText, Kind::schemeAdded}},
        {"http://", "https://", {Kind::schemeUpgraded}},
        {"ftp://acme.corp", "https://ftp://acme.corp", {Kind::schemeUnsupported}},
        {"https://https://acme.corp", "https://https://acme.corp", {Kind::schemeUnsupported}},
        {"https:/acme.corp", "https://https:/acme.corp", {Kind::schemeUnsupported}},
        {"http://HTTP:/acme.corp", "https://HTTP:/acme.corp", {Kind::schemeUnsupported}},
        {"acme:8443/ftp://x", "https://acme:8443/ftp://x", {Kind::schemeAdded, Kind::carriesPath}},
        {"localhost:/x", "https://localhost:/x", {Kind::schemeAdded, Kind::carriesPath}},
        {"\u201cacme\u201d", "https://\u201cacme\u201d", {Kind::quotationMarks, Kind::schemeAdded}},
        {"'acme'", "https://'acme'", {Kind::quotationMarks, Kind::schemeAdded}},
        {"'", "https://'", {Kind::schemeAdded}},
        {"o'acme\u2019", "https://o'acme\u2019", {Kind::schemeAdded}},
    };
    for (const auto& [value, expected, kinds] : cases) {
        std::vector<ValidationFinding> findings;
        EXPECT_EQ(validateManagedConfiguration({{"base_domain", value}}, &findings).baseDomain, expected);
        std::vector<Kind> found;
        for (const auto& finding : findings)
            found.push_back(finding.kind);
        EXPECT_EQ(found, kinds) << value.description();
    }
}

TEST(ValidationTest, KeysAreCaseSensitiveAndMissingOnesAreAbsent)
{
    EXPECT_EQ(validateManagedConfiguration({}), ValidatedConfig());
    EXPECT_EQ(validateManagedConfiguration({{"organizationId", "x"}, {"BASE_DOMAIN", "x"}}),
              ValidatedConfig());
}

TEST(TrimmingTest, StopsAtInvalidUTF8)
{
    EXPECT_EQ(trimmed("\x80 a \xe3\x80"), "\x80 a \xe3\x80");
    EXPECT_EQ(trimmed("\u3000"), "");
}

} // namespace
