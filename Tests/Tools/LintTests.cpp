#include "Core/ConfigurationSnapshot.h"
#include "Core/JSON.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Tests/Fakes/Bytes.h"
#include "Tests/Fakes/ForeignLocale.h"
#include "Tests/Fakes/TextTable.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintFindings.h"
#include "Tools/qvctl/Policy/ManagedKeyForms.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>

namespace json = boost::json;
using namespace Qvctl;
using namespace Qvctl::Policy;
using testing::IsEmpty;

namespace {

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
    const auto accepts = [&](const json::value& part) { return isValid(value, part.as_object()); };
    const auto hasType = [&](const json::value& type) {
        const std::string_view kind = json::to_string(value.kind());
        return type.as_string() == kind || (type == "integer" && kind == "int64") ||
               (type == "number" && value.is_number()) || (type == "boolean" && kind == "bool");
    };
    const auto matches = [&](const json::string& pattern) {
        // std::regex matches bytes, so other white space than ASCII is left out of the pattern.
        static const std::regex beyondASCII(R"((\\u[0-9a-f]{4}-?)+)");
        const std::regex expression(std::regex_replace(std::string(pattern), beyondASCII, ""));
        return std::regex_search(std::string(value.as_string()), expression);
    };
    return std::all_of(schema.begin(), schema.end(), [&](const json::key_value_pair& rule) {
        const std::string_view keyword = rule.key();
        const json::value& wanted = rule.value();
        const json::array list = wanted.is_array() ? wanted.as_array() : json::array{wanted};
        if (keyword == "not")
            return !accepts(wanted);
        if (keyword == "anyOf")
            return std::any_of(list.begin(), list.end(), accepts);
        if (keyword == "$ref")
            return accepts(jsonSchema().at("$defs").at(wanted.as_string().subview(8)));
        if (keyword == "enum" || keyword == "const")
            return std::count(list.begin(), list.end(), value) > 0;
        if (keyword == "type")
            return std::any_of(list.begin(), list.end(), hasType);
        if (keyword == "pattern")
            return value.is_string() && matches(wanted.as_string());
        if (keyword == "minimum")
            return value.is_int64() && value.as_int64() >= wanted.as_int64();
        if (keyword == "items")
            return value.is_array() &&
                   std::all_of(value.as_array().begin(), value.as_array().end(),
                               [&](const json::value& item) { return isValid(item, wanted.as_object()); });
        if (keyword == "required")
            return std::all_of(list.begin(), list.end(), [&](const json::value& name) {
                return value.as_object().contains(name.as_string());
            });
        return keyword != "properties" ||
               std::all_of(value.as_object().begin(), value.as_object().end(), [&](const auto& member) {
                   const auto* property = wanted.as_object().if_contains(member.key());
                   return property == nullptr || isValid(member.value(), property->as_object());
               });
    });
}

bool isDecoded(std::string_view snapshot)
{
    try {
        static_cast<void>(Core::ConfigurationSnapshot::decode(bytesOf(snapshot)));
        return true;
    } catch (const Core::DecodingError&) {
        return false;
    }
}

/// A key, and how the first finding begins; the schema rejects the key if it is an error.
constexpr const char* keyNames = R"(base_domain | 
Base-Domain | error: did you mean "base_domain"?
BASEDOMAIN | error: did you mean "base_domain"?
 api key  | error: did you mean "api_key"?
“api_key” | error: did you mean "api_key"?
organizationId | error: did you mean "OrganizationId"?
ALLOWEDAPPSBUNDLEIDSFORSSOEXTENSION | error: did you mean "AllowedAppsBundleIdsForSSOExtension"?
DEVICE IDS | warning: did you mean "device_id"?
organisationId | warning: did you mean "OrganizationId"?
api_kye | warning: did you mean "api_key"?
base_domain2 | warning: did you mean "base_domain"?
password | warning: remove it unless
___ | warning: remove it unless)";

TEST(ManagedKeyFormsTest, SchemaAcceptsKeysWithoutLintErrors)
{
    const ForeignLocale locale;
    const json::object schema = jsonSchema();
    for (const auto& row : rowsOf(keyNames)) {
        const json::object policy{{"device_id", "D"}, {row[0], "a.b"}};
        const bool isAccepted = !row[1].starts_with("error");
        EXPECT_EQ(isValid(json::string(row[0]), schema.at("propertyNames").as_object()), isAccepted)
            << row[0];
        const auto findings = findProblems(readPropertyList(json::serialize(policy)), false);
        EXPECT_EQ(std::none_of(findings.begin(), findings.end(), isError), isAccepted) << row[0];
        const LintFinding& first = findings.at(0);
        EXPECT_TRUE(row[1].empty() ||
                    (std::string(severityName(first.severity)) + ": " + first.fix).starts_with(row[1]))
            << row[0] << ": " << first.fix;
    }
}

/// A policy, and severity, key and part of the most severe finding.
constexpr const char* badPolicies =
    R"({"base_domain": "https://"} | error | base_domain | names no host
{"base_domain": "https://localhost:105751"} | error | base_domain | not a number from 1 to 65535
{"base_domain": "acme.corp:https"} | error | base_domain | check the port
{"base_domain": "mdm acme com"} | error | base_domain | a space
{"base_domain": "acme.corp/a\nb"} | error | base_domain | a line break
{"base_domain": "ftp://acme.corp"} | error | base_domain | a scheme other than https
{"base_domain": "https://https://acme.corp"} | error | base_domain | a scheme other than https
{"base_domain": "“https://acme.corp”"} | error | base_domain | a quotation mark: “
{"base_domain": "\"acme.corp\""} | error | base_domain | a quotation mark: "
{"base_domain": "münchen.example"} | error | base_domain | not ASCII: ü
{"base_domain": "acme.corp\\mdm"} | error | base_domain | not allowed in a URL: \
{"base_domain": "acme.corp/%zz"} | error | base_domain | each "%"
{"api_key": "canary\nX-Evil: 1"} | error | api_key | "Authorization" has a line break or NUL in it
{"api_key": "can\u0000ary"} | error | api_key | "Authorization" has a line break or NUL in it
{"device_id": "D\r1"} | error | device_id | a line break
{"device_id": "DEV 1"} | error | device_id | a space
{"api_key": "“canary”"} | warning | api_key | quotation marks
{"OrganizationId": "'4711'"} | warning | OrganizationId | quotation marks
{} | warning | the file | is empty
{"PayloadType": "Configuration", "PayloadContent": []} | error | the file | a complete configuration profile
{"PayloadContent": [{"a": 1}, {"Settings": {"api_key": "canary"}}]} | error | the file | is a complete configuration profile; the app finds no managed keys and configures nothing; deploy only the dictionary at PayloadContent[1].Settings.
{"com.quorvane.mdm": {"api_key": "canary"}} | error | the file | inside com.quorvane.mdm
{"base_domain": "https://[::1]:8443/mdm%2Fx", "api_key": "a b", "device_id": "a%2Fb"} | warning | base_domain | contains a path)";

TEST(LintTest, ReportsValuesUnusableInRequestsAndWrongDocuments)
{
    for (const auto& row : rowsOf(badPolicies)) {
        const auto findings = findProblems(readPropertyList(row[0]), false);
        ASSERT_FALSE(findings.empty()) << row[0];
        const auto worst = std::min_element(
            findings.begin(), findings.end(),
            [](const LintFinding& left, const LintFinding& right) { return left.severity < right.severity; });
        EXPECT_EQ(severityName(worst->severity), row[1]) << row[0];
        EXPECT_EQ(worst->key, row[2]) << row[0];
        const std::string text = worst->problem + "; " + worst->effect + "; " + worst->fix + ".";
        EXPECT_THAT(text,
                    testing::AllOf(testing::HasSubstr(row[3]), testing::Not(testing::HasSubstr("canary"))));
    }
}

TEST(ManagedKeyFormsTest, SchemaAcceptsValuesThatValidationAccepts)
{
    const json::object schema = jsonSchema();
    const json::value values = json::parse(
        R"(["a", " a ", "", " \t", 1, 1.5, true, null, [], {}, "a.b", "a.b, c.d", "a.b,,c.d", "a.b,c",
            "a_b.c", "a b.c", ".", "-.-", ["a.b"], ["a.b", ""], ["a.b,c.d"], [" a.b "], ["a.b", 1],
            [["a.b"]]])");
    for (const json::value& value : values.as_array()) {
        for (const Core::ManagedKey& key : Core::managedKeys()) {
            const json::object policy{{key.name, value}};
            EXPECT_EQ(isValid(value, schema.at("properties").at(key.name).as_object()),
                      !lintHasErrors(json::serialize(policy)))
                << policy;
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
        EXPECT_EQ(isDecoded(json::serialize(changed)), isValid(changed, schema)) << member.key();
    }
    const std::tuple<const char*, json::value, bool> cases[] = {
        {"schemaVersion", 2, false},
        {"configVersion", 0, false},
        {"configVersion", 1.5, false},
        {"baseDomain", "http://a", false},
        {"allowedAppBundleIds", json::array{"nodot"}, false},
        {"addedLater", json::object(), true}};
    for (const auto& [member, value, isAccepted] : cases) {
        json::object changed = full;
        changed[member] = value;
        EXPECT_EQ(isValid(changed, schema), isAccepted) << member << " " << value;
    }
}

TEST(ManagedKeyFormsTest, SampleHasNoFindings)
{
    const json::object sample = samplePolicy();
    EXPECT_EQ(sample.size(), Core::managedKeys().size());
    EXPECT_THAT(findProblems(readPropertyList(prettyJSON(sample)), false), IsEmpty());
}

} // namespace
