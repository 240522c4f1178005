#include "Tools/qvctl/Policy/ManagedKeyForms.h"

#include "Core/ConfigurationSnapshot.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Platform/ASCII.h"
#include "Platform/Linux/DevicePaths.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <sstream>
#include <vector>

namespace Qvctl::Policy {

namespace {

namespace json = boost::json;
using Core::ManagedKey;
using KeyKind = ManagedKey::Kind;

constexpr const char* formLanguage = "en-US";
constexpr const char* schemaDialect = "https://json-schema.org/draft/2020-12/schema";

/// The white space that validation trims, as the content of a regular expression's brackets.
constexpr std::string_view whiteSpace =
    R"(\t-\r \u0085\u00a0\u1680\u2000-\u200a\u2028\u2029\u202f\u205f\u3000)";

std::string notBlankPattern()
{
    return fmt::format("[^{}]", whiteSpace);
}

/// Matches one bundle identifier or nothing, surrounded by white space.
std::string bundleIdPattern()
{
    return fmt::format(R"([{0}]*([A-Za-z0-9-]*\.[A-Za-z0-9.-]*)?[{0}]*)", whiteSpace);
}

/// The key's example as the value to write in a policy file.
json::value exampleValue(const ManagedKey& key)
{
    switch (key.kind) {
    case KeyKind::bundleIds:
        return json::value_from(Core::splitAtCommas(key.example));
    case KeyKind::revision:
        return json::parse(key.example);
    case KeyKind::text:
    case KeyKind::address:
        break;
    }
    return json::string(key.example);
}

/// Matches every spelling of `key` that differs only in case or punctuation.
std::string similarNamePattern(std::string_view key)
{
    std::string pattern = "[^A-Za-z0-9]*";
    for (const char character : key) {
        if (Platform::isASCIILetter(character))
            pattern += fmt::format("[{}{}][^A-Za-z0-9]*", Platform::upperCaseASCII(character),
                                   Platform::lowerCaseASCII(character));
        else if (Platform::isASCIIDigit(character))
            pattern += fmt::format("{}[^A-Za-z0-9]*", character);
    }
    return pattern;
}

/// Accepts any key name except those that differ from a managed key only in case or punctuation.
json::object keyNames()
{
    json::array names;
    std::vector<std::string> patterns;
    for (const ManagedKey& key : Core::managedKeys()) {
        names.emplace_back(key.name);
        patterns.push_back(similarNamePattern(key.name));
    }
    return {{"$comment", "Unknown keys are ignored. A key that differs from a managed key only in case or "
                         "punctuation is an error."},
            {"anyOf",
             {{{"enum", std::move(names)}},
              {{"not", {{"pattern", fmt::format("^({})$", fmt::join(patterns, "|"))}}}}}}};
}

/// The schemas of the values, by the name that the keys refer to.
json::object definitions()
{
    const std::string one = bundleIdPattern();
    return {
        {"textOrNumber",
         {{"anyOf",
           {{{"type", "string"}, {"pattern", notBlankPattern()}},
            {{"type", {"number", "boolean"}}, {"$comment", "Converted to a string."}}}}}},
        {"bundleIds",
         {{"anyOf",
           {{{"type", "array"}, {"items", {{"type", "string"}, {"pattern", "^" + one + "$"}}}},
            {{"type", "string"},
             {"pattern", fmt::format("^{0}(,{0})*$", one)},
             {"$comment", "Bundle identifiers separated by commas."}}}}}},
    };
}

/// The name of the value's schema in `definitions`; null if any value is accepted.
const char* definitionOf(KeyKind kind)
{
    switch (kind) {
    case KeyKind::text:
    case KeyKind::address:
        return "textOrNumber";
    case KeyKind::bundleIds:
        return "bundleIds";
    case KeyKind::revision:
        break;
    }
    return nullptr;
}

/// Accepts the values of this kind that validation produces.
json::object storedValue(KeyKind kind)
{
    switch (kind) {
    case KeyKind::bundleIds:
        return {
            {"type", "array"},
            {"items", {{"type", "string"}, {"pattern", R"(^[A-Za-z0-9-]*\.[A-Za-z0-9.-]*$)"}}},
        };
    case KeyKind::address:
        return {{"type", "string"}, {"pattern", "^[Hh][Tt][Tt][Pp][Ss]://"}};
    case KeyKind::text:
    case KeyKind::revision:
        break;
    }
    return {{"type", "string"}, {"pattern", notBlankPattern()}};
}

/// The XML element that declares a value of this kind.
const char* formType(KeyKind kind)
{
    switch (kind) {
    case KeyKind::bundleIds:
        return "stringArray";
    case KeyKind::revision:
        return "integer";
    case KeyKind::text:
    case KeyKind::address:
        break;
    }
    return "string";
}

void appendText(pugi::xml_node& parent, const char* element, std::string_view text)
{
    auto language = parent.append_child(element).append_child("language");
    language.append_attribute("value") = formLanguage;
    language.text() = std::string(text).c_str();
}

} // namespace

json::object jsonSchema()
{
    json::object properties;
    for (const ManagedKey& key : Core::managedKeys()) {
        json::object schema{
            {"title", key.label},
            {"description", fmt::format("{} Accepted: {}.", key.description, Core::acceptedForms(key.kind))}};
        if (const char* definition = definitionOf(key.kind))
            schema["$ref"] = fmt::format("#/$defs/{}", definition);
        if (key.isSecret)
            schema["writeOnly"] = true;
        schema["examples"] = json::array{exampleValue(key)};
        properties[key.name] = std::move(schema);
    }
    return {{"$schema", schemaDialect},
            {"title", "Managed configuration of Quorvane MDM"},
            {"description", "All keys are optional and case-sensitive. Unknown keys are ignored."},
            {"type", "object"},
            {"properties", std::move(properties)},
            {"propertyNames", keyNames()},
            {"$defs", definitions()}};
}

std::string appConfigForm()
{
    pugi::xml_document document;
    auto declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    auto root = document.append_child("managedAppConfiguration");
    root.append_child("version").text() = Core::managedKeysVersion;
    root.append_child("bundleId").text() = std::string(Platform::Linux::applicationIdentifier).c_str();
    auto dictionary = root.append_child("dict");
    auto presentation = root.append_child("presentation");
    presentation.append_attribute("defaultLocale") = formLanguage;
    for (const ManagedKey& key : Core::managedKeys()) {
        const std::string name(key.name);
        auto value = dictionary.append_child(formType(key.kind));
        value.append_attribute("keyName") = name.c_str();
        value.append_child("constraint").append_attribute("nullable") = true;

        auto field = presentation.append_child("field");
        field.append_attribute("keyName") = name.c_str();
        field.append_attribute("type") = key.kind == KeyKind::bundleIds ? "list" : "input";
        appendText(field, "label", key.label);
        appendText(field, "description", key.description);
    }
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
}

json::object snapshotSchema()
{
    json::object properties;
    json::array required;
    for (const ManagedKey& key : Core::managedKeys()) {
        if (!key.isStored())
            continue;
        json::object schema = storedValue(key.kind);
        schema["title"] = key.label;
        schema["description"] = key.description;
        properties[key.codingKey] = std::move(schema);
        if (key.isList())
            required.emplace_back(key.codingKey);
    }
    properties["schemaVersion"] = {{"const", Core::ConfigurationSnapshot::currentSchemaVersion},
                                   {"description", "Version of this layout."}};
    properties["configVersion"] = {{"type", "integer"},
                                   {"minimum", 1},
                                   {"description", "Number of updates applied so far. It starts again from 1 "
                                                   "after the snapshot was deleted."}};
    properties["lastUpdated"] = {
        {"type", "number"},
        {"description", "When this version was applied, in seconds since 2001-01-01T00:00:00Z."}};
    for (const char* name : {"schemaVersion", "configVersion", "lastUpdated"})
        required.emplace_back(name);
    return {{"$schema", schemaDialect},
            {"title", "Snapshot of the managed configuration of Quorvane MDM"},
            {"description", "A member that has no value is absent, never null. Ignore unknown members."},
            {"type", "object"},
            {"properties", std::move(properties)},
            {"required", std::move(required)}};
}

json::object samplePolicy()
{
    json::object policy;
    for (const ManagedKey& key : Core::managedKeys())
        policy[key.name] = exampleValue(key);
    return policy;
}

} // namespace Qvctl::Policy
