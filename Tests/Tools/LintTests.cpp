#include "Core/ConfigurationSnapshot.h"
#include "Core/JSON.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Tests/Fakes/ForeignLocale.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintFindings.h"
#include "Tools/qvctl/Policy/ManagedKeyForms.h"

#include <gmock/gmock.h>
#include <pugixml.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

namespace json = boost::json;
using namespace Qvctl;
using namespace Qvctl::Policy;
using testing::IsEmpty;

namespace {

TEST(LintTest, SuggestsKeysInEveryLocale)
{
    const ForeignLocale locale;
    EXPECT_EQ(suggestedKey("DEVICE IDS"), "device_id");
    EXPECT_EQ(suggestedKey("organizationid"), "OrganizationId");
    EXPECT_EQ(suggestedKey("password"), std::nullopt);
}

using Platform::PropertyLists::readPropertyList;

bool isError(const LintFinding& finding)
{
    return finding.severity == Severity::error;
}

/// Whether lint reports an error other than a valid value that cannot be used in a request.
bool lintHasErrors(const std::string& policy)
{
    const auto findings = findProblems(readPropertyList(policy), false);
    return std::any_of(findings.begin(), findings.end(), [](const LintFinding& finding) {
        return isError(finding) && !finding.problem.starts_with("cannot be used");
    });
}

/// Implements the part of JSON Schema that `jsonSchema()` and `snapshotSchema()` use.
bool isValid(const json::value& value, const json::object& schema)
{
    if (const auto* excluded = schema.if_contains("not"))
        return !isValid(value, excluded->as_object());
    if (const auto* values = schema.if_contains("enum"))
        return std::count(values->as_array().begin(), values->as_array().end(), value) > 0;
    if (const auto* reference = schema.if_contains("$ref")) {
        const json::object root = jsonSchema();
        return isValid(value, root.at("$defs").at(reference->as_string().subview(8)).as_object());
    }
    if (const auto* choices = schema.if_contains("anyOf"))
        return std::any_of(choices->as_array().begin(), choices->as_array().end(),
                           [&](const json::value& choice) { return isValid(value, choice.as_object()); });
    if (const auto* type = schema.if_contains("type")) {
        const auto isOfType = [&](std::string_view name) {
            return name == "string"    ? value.is_string()
                   : name == "array"   ? value.is_array()
                   : name == "object"  ? value.is_object()
                   : name == "integer" ? value.is_int64()
                   : name == "number"  ? value.is_number()
                                       : value.is_bool();
        };
        const bool isMatch = type->is_string()
                                 ? isOfType(type->as_string())
                                 : isOfType(type->at(0).as_string()) || isOfType(type->at(1).as_string());
        if (!isMatch)
            return false;
    }
    if (const auto* pattern = schema.if_contains("pattern")) {
        // std::regex matches bytes, so other white space than ASCII is left out of the pattern.
        static const std::regex beyondASCII(R"((\\u[0-9a-f]{4}-?)+)");
        const std::regex expression(std::regex_replace(std::string(pattern->as_string()), beyondASCII, ""));
        return std::regex_search(std::string(value.as_string()), expression);
    }
    if (const auto* constant = schema.if_contains("const"))
        return value == *constant;
    if (const auto* minimum = schema.if_contains("minimum"))
        return value.as_int64() >= minimum->as_int64();
    if (const auto* required = schema.if_contains("required")) {
        const json::object& object = value.as_object();
        return std::all_of(required->as_array().begin(), required->as_array().end(),
                           [&](const json::value& name) { return object.contains(name.as_string()); }) &&
               std::all_of(object.begin(), object.end(), [&](const auto& member) {
                   const auto* property = schema.at("properties").as_object().if_contains(member.key());
                   return property == nullptr || isValid(member.value(), property->as_object());
               });
    }
    const auto* items = schema.if_contains("items");
    return items == nullptr ||
           std::all_of(value.as_array().begin(), value.as_array().end(),
                       [&](const json::value& item) { return isValid(item, items->as_object()); });
}

TEST(ManagedKeyFormsTest, SchemaAcceptsKeysWithoutLintErrors)
{
    const json::object schema = jsonSchema();
    struct Case {
        const char* key;
        bool isAccepted;
        /// How the fix begins.
        const char* fix;
    };
    const Case cases[] = {
        {"base_domain", true, ""},
        {"Base-Domain", false, "did you mean \"base_domain\"?"},
        {"baseDomain", false, "did you mean \"base_domain\"?"},
        {"BASEDOMAIN", false, "did you mean \"base_domain\"?"},
        {" api key ", false, "did you mean \"api_key\"?"},
        {"\u201capi_key\u201d", false, "did you mean \"api_key\"?"},
        {"organizationId", false, "did you mean \"OrganizationId\"?"},
        {"ALLOWEDAPPSBUNDLEIDSFORSSOEXTENSION", false,
         "did you mean \"AllowedAppsBundleIdsForSSOExtension\"?"},
        {"organisationId", true, "did you mean \"OrganizationId\"?"},
        {"api_kye", true, "did you mean \"api_key\"?"},
        {"base_domain2", true, "did you mean \"base_domain\"?"},
        {"color", true, "remove it unless"},
        {"___", true, "remove it unless"},
    };
    for (const Case& row : cases) {
        const json::object policy{{"device_id", "D"}, {row.key, "a.b"}};
        EXPECT_EQ(isValid(row.key, schema.at("propertyNames").as_object()), row.isAccepted) << row.key;
        const auto findings = findProblems(readPropertyList(json::serialize(policy)), false);
        EXPECT_EQ(std::none_of(findings.begin(), findings.end(), isError), row.isAccepted) << row.key;
        const std::string fix =
            findings.empty() || row.key == std::string("base_domain") ? "" : findings.front().fix;
        EXPECT_TRUE(fix.starts_with(row.fix)) << row.key << ": " << fix;
    }
}

TEST(LintTest, ReportsValuesUnusableInRequestsAndWrongDocuments)
{
    struct Case {
        const char* policy;
        const char* severity;
        const char* key;
        const char* problem;
    };
    const Case cases[] = {
        {R"({"base_domain": "https://"})", "error", "base_domain", "names no host"},
        {R"({"base_domain": "https:///path"})", "error", "base_domain", "names no host"},
        {R"({"base_domain": "acme.corp:99999"})", "error", "base_domain", "not a number from 1 to 65535"},
        {R"({"base_domain": "https://localhost:105751"})", "error", "base_domain",
         "not a number from 1 to 65535"},
        {R"({"base_domain": "acme.corp:0"})", "error", "base_domain", "not a number from 1 to 65535"},
        {R"({"base_domain": "acme.corp:https"})", "error", "base_domain", "check the port"},
        {R"({"base_domain": "mdm acme com"})", "error", "base_domain", "a space"},
        {R"({"base_domain": "acme.corp/a\nb"})", "error", "base_domain", "a line break"},
        {R"({"base_domain": "ftp://acme.corp"})", "error", "base_domain", "a scheme other than https"},
        {R"({"base_domain": "https://https://acme.corp"})", "error", "base_domain",
         "a scheme other than https"},
        {R"({"base_domain": "https:/acme.corp"})", "error", "base_domain", "a scheme other than https"},
        {"{\"base_domain\": \"\u201chttps://acme.corp\u201d\"}", "error", "base_domain",
         "a quotation mark: \u201c"},
        {R"({"base_domain": "\"acme.corp\""})", "error", "base_domain", "a quotation mark: \""},
        {"{\"base_domain\": \"m\u00fcnchen.example\"}", "error", "base_domain", "not ASCII: \u00fc"},
        {R"({"base_domain": "acme.corp\\mdm"})", "error", "base_domain", "not allowed in a URL: \\"},
        {R"({"base_domain": "acme.corp/%zz"})", "error", "base_domain", "each \"%\""},
        {R"({"api_key": "canary\nX-Evil: 1"})", "error", "api_key",
         "\"Authorization\" has a line break or NUL in it"},
        {R"({"api_key": "can\u0000ary"})", "error", "api_key",
         "\"Authorization\" has a line break or NUL in it"},
        {R"({"device_id": "D\r1"})", "error", "device_id", "a line break"},
        {R"({"device_id": "DEV 1"})", "error", "device_id", "a space"},
        {"{\"api_key\": \"\u201ccanary\u201d\"}", "warning", "api_key", "quotation marks"},
        {R"({"OrganizationId": "'4711'"})", "warning", "OrganizationId", "quotation marks"},
        {"{}", "warning", "the file", "is empty"},
        {"<plist><dict/></plist>", "warning", "the file", "is empty"},
        {R"({"PayloadType": "Configuration", "PayloadContent": []})", "error", "the file",
         "a complete configuration profile"},
        {R"({"PayloadContent": [{"a": 1}, {"Settings": {"api_key": "canary"}}], "PayloadUUID": "1"})",
         "error", "the file", "a complete configuration profile"},
        {R"({"com.quorvane.mdm": {"api_key": "canary"}})", "error", "the file", "inside com.quorvane.mdm"},
        // No error.
        {R"({"base_domain": "https://[::1]:8443/mdm%2Fx", "api_key": "a b", "device_id": "a%2Fb"})",
         "warning", "base_domain", "contains a path"},
    };
    for (const Case& row : cases) {
        const auto findings = findProblems(readPropertyList(row.policy), false);
        ASSERT_FALSE(findings.empty()) << row.policy;
        const auto worst = std::min_element(
            findings.begin(), findings.end(),
            [](const LintFinding& left, const LintFinding& right) { return left.severity < right.severity; });
        EXPECT_EQ(severityName(worst->severity), row.severity) << row.policy;
        EXPECT_EQ(worst->key, row.key) << row.policy;
        EXPECT_THAT(worst->problem, testing::HasSubstr(row.problem)) << row.policy;
        EXPECT_THAT(worst->problem + worst->effect + worst->fix, testing::Not(testing::HasSubstr("canary")));
    }
    EXPECT_EQ(
        findProblems(readPropertyList(R"({"PayloadContent": [{"a": 1}, {"Settings": {"api_key": "k"}}]})"),
                     false)
            .front()
            .fix,
        "deploy only the dictionary at PayloadContent[1].Settings");
}

TEST(ManagedKeyFormsTest, SchemaAcceptsValuesThatValidationAccepts)
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

TEST(ManagedKeyFormsTest, SnapshotSchemaAcceptsExactlyStoredSnapshots)
{
    const json::object schema = snapshotSchema();
    const auto stored = [](const char* policy) {
        const auto config = Core::validateManagedConfiguration(*readPropertyList(policy).root.dictionary());
        const auto bytes = Core::ConfigurationSnapshot::make(config, 1, {816968255.018}).encode();
        return Core::JSONDecoder().decode(bytes).get_object();
    };
    for (const char* policy :
         {"{}", R"({"base_domain": "HTTP://a", "OrganizationId": 4711, "api_key": 1.5, "device_id": true})",
          R"({"base_domain": "HTTPS://a", "api_key": " \u00e9\n ", "device_id": " "})",
          R"({"AllowedAppsBundleIdsForSSOExtension": " -., a.b,c, .d.", "base_domain": "a b"})",
          R"({"AllowedAppsBundleIdsForSSOExtension": ["a.b", "", "c"], "base_domain": []})"})
        EXPECT_TRUE(isValid(stored(policy), schema)) << policy;

    const json::object full = stored(prettyJSON(samplePolicy()).c_str());
    EXPECT_EQ(full.size(), schema.at("properties").as_object().size());
    std::ifstream file(QV_SOURCES "/Docs/Snapshot.md");
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    for (const auto& member : full) {
        json::object changed = full;
        EXPECT_TRUE(schema.at("properties").as_object().contains(member.key())) << member.key();
        EXPECT_THAT(document, testing::HasSubstr("`" + std::string(member.key()) + "`"));
        changed[member.key()] = nullptr;
        EXPECT_FALSE(isValid(changed, schema)) << member.key();
        // Decoding fails if, and only if, a required member is missing.
        changed.erase(member.key());
        const std::string text = json::serialize(changed);
        const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
        const auto decode = [&] {
            static_cast<void>(Core::ConfigurationSnapshot::decode({bytes, bytes + text.size()}));
        };
        if (isValid(changed, schema)) {
            EXPECT_NO_THROW(decode()) << member.key();
        } else {
            EXPECT_THROW(decode(), Core::DecodingError) << member.key();
        }
    }
    struct Case {
        const char* member;
        const char* value;
        bool isAccepted;
    };
    for (const Case& row : std::initializer_list<Case>{{"schemaVersion", "2", false},
                                                       {"configVersion", "0", false},
                                                       {"configVersion", "1.5", false},
                                                       {"lastUpdated", "-0.5", true},
                                                       {"baseDomain", R"("http://a")", false},
                                                       {"deviceId", R"("")", false},
                                                       {"allowedAppBundleIds", R"(["nodot"])", false},
                                                       {"addedLater", "{}", true}}) {
        json::object changed = full;
        changed[row.member] = json::parse(row.value);
        EXPECT_EQ(isValid(changed, schema), row.isAccepted) << row.member << " " << row.value;
    }
}

TEST(ManagedKeyFormsTest, SampleHasEveryKeyAndNoProblems)
{
    const json::object sample = samplePolicy();
    EXPECT_EQ(sample.size(), Core::managedKeys().size());
    EXPECT_THAT(findProblems(readPropertyList(prettyJSON(sample)), false), IsEmpty());
}

TEST(ManagedKeyFormsTest, FormHasOneFieldForEachManagedKey)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(appConfigForm().c_str()));
    const auto root = document.child("managedAppConfiguration");
    EXPECT_STREQ(root.child("bundleId").text().get(), "com.quorvane.mdm");
    std::multiset<std::string> declared;
    std::multiset<std::string> presented;
    for (const auto& value : root.child("dict"))
        declared.insert(value.attribute("keyName").value());
    for (const auto& field : root.child("presentation")) {
        presented.insert(field.attribute("keyName").value());
        const std::string_view label = field.child("label").child("language").text().get();
        const auto* key = Core::findManagedKey(field.attribute("keyName").value());
        ASSERT_NE(key, nullptr);
        EXPECT_EQ(label.find("secret") != std::string_view::npos, key->isSecret) << label;
    }
    EXPECT_EQ(declared, presented);
    EXPECT_EQ(declared.size(), Core::managedKeys().size());
}

} // namespace
