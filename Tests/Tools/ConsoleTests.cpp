#include "Core/ConfigurationSnapshot.h"
#include "Core/JSON.h"
#include "Core/ManagedConfigurationValidation.h"
#include "Core/ManagedKeys.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Tests/Fakes/ForeignLocale.h"
#include "Tests/Fakes/TemporaryFolder.h"
#include "Tools/qvctl/Bundle/Redaction.h"
#include "Tools/qvctl/Output.h"
#include "Tools/qvctl/Policy/LintFindings.h"
#include "Tools/qvctl/Policy/ManagedKeyForms.h"
#include "Tools/qvctl/TimeText.h"
#include "Tools/qvctl/UserAccounts.h"
#include "Tools/qvctl/UserProcesses.h"

#include <gmock/gmock.h>
#include <pugixml.hpp>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <unistd.h>

namespace json = boost::json;
using namespace Qvctl;
using namespace Qvctl::Policy;
using testing::IsEmpty;

namespace {

TEST(TimeTextTest, ParsesAgesAndTimes)
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

TEST(TimeTextTest, NamesTheAgeInOneUnit)
{
    const Platform::Date now{1'000'000'000};
    struct Case {
        double age;
        const char* expected;
    };
    for (const Case& row :
         {Case{0, "just now"}, Case{-0.9, "just now"}, Case{1, "1 s ago"}, Case{59.9, "59 s ago"},
          Case{60, "1 min ago"}, Case{3599, "59 min ago"}, Case{3600, "1 h ago"}, Case{86'399, "23 h ago"},
          Case{86'400, "1 d ago"}, Case{4e8, "4629 d ago"}, Case{-200, "in 3 min"}})
        EXPECT_EQ(relativeTime({now.secondsSinceReferenceDate - row.age}, now), row.expected);
}

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

/// What a process of a user can reach, and what it cannot.
ExitCode printSurroundings(const UserAccount& account)
{
    const auto isOpen = [](const char* file, int flags) {
        return static_cast<bool>(Platform::Storage::FileDescriptor(::open(file, flags, 0600)));
    };
    std::signal(SIGXFSZ, SIG_IGN);
    const std::string file = account.home / "written";
    const bool isCreated = isOpen(file.c_str(), O_WRONLY | O_CREAT);
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    print("{} {} {} {}", std::getenv("HOME"), std::filesystem::current_path(), isCreated,
          ::write(descriptor, "x", 1));
    ::close(descriptor);
    print(" {} {} {}", isOpen("/dev/tty", O_RDWR), std::getenv("CANARY") != nullptr,
          ::getsid(0) == ::getpid());
    print(" {} {}", ::fcntl(100, F_GETFD), ::lseek(STDIN_FILENO, 0, SEEK_CUR));
    printError("done");
    return success;
}

TEST(UserProcessesTest, ReportsOutcomesInOrderAndIsolatesProcesses)
{
    const TemporaryFolder folder;
    struct Case {
        const char* user;
        ExitCode (*command)(const UserAccount&);
        std::optional<int> exitCode;
        const char* failure = "";
        const char* diagnostics = "";
    };
    const Case cases[] = {
        {"slow",
         [](const UserAccount&) {
             ::usleep(200'000);
             return success;
         },
         0},
        {"hanging",
         [](const UserAccount&) {
             ::pause();
             return success;
         },
         {},
         "did not finish in time"},
        // A second process must not keep the pipes open for longer.
        {"forking",
         [](const UserAccount&) {
             if (::fork() == 0)
                 ::pause();
             return success;
         },
         {},
         "did not finish in time"},
        {"stopped",
         [](const UserAccount&) {
             ::raise(SIGSTOP);
             return success;
         },
         {},
         "did not finish in time"},
        {"killed",
         [](const UserAccount&) {
             ::raise(SIGKILL);
             return success;
         },
         {},
         "was killed"},
        {"endless",
         [](const UserAccount&) {
             while (true)
                 writeOutput(std::string(100'000, 'x'));
             return success;
         },
         {},
         "printed too much"},
        {"throwing", [](const UserAccount&) -> ExitCode { throw std::runtime_error("reason"); }, 69, "",
         "qvctl: reason\n"},
        {"failing", [](const UserAccount&) { return configuration; }, 78},
        {"isolated", printSurroundings, 0, "", "qvctl: done\n"},
        {"last", [](const UserAccount&) { return success; }, 0},
    };
    std::vector<UserAccount> accounts;
    for (const Case& row : cases)
        accounts.push_back({row.user, ::geteuid(), ::getegid(), folder.path()});
    ::setenv("CANARY", "1", 1);
    ASSERT_EQ(::dup2(STDERR_FILENO, 100), 100);
    std::size_t count = 0;
    runForUsers(
        accounts, std::chrono::seconds(4),
        [&](const UserAccount& account) {
            return std::find_if(std::begin(cases), std::end(cases),
                                [&](const Case& row) { return account.name == row.user; })
                ->command(account);
        },
        [&](const UserAccount& account, const UserOutcome& outcome) {
            const Case& row = cases[count++];
            EXPECT_EQ(account.name, row.user);
            EXPECT_EQ(outcome.exitCode, row.exitCode) << row.user;
            EXPECT_THAT(outcome.failure, testing::StartsWith(row.failure)) << row.user;
            EXPECT_EQ(outcome.failure.empty(), std::string_view(row.failure).empty()) << row.user;
            EXPECT_EQ(outcome.diagnostics, row.diagnostics) << row.user;
            if (row.command == printSurroundings) {
                EXPECT_EQ(outcome.output, folder.path().string() + " / true -1 false false true -1 0");
            }
        });
    ::close(100);
    EXPECT_EQ(count, std::size(cases));
}

TEST(RedactionTest, HashesLikeTheReference)
{
    // Appendix A of the paper, and the authors' vectors for no and for eight bytes.
    Bundle::HashKey key;
    std::string text;
    for (unsigned char byte = 0; byte < key.size(); ++byte)
        key.at(byte) = std::byte{byte};
    EXPECT_EQ(Bundle::sipHash(key, text), 0x726fdb47dd0e0e31U);
    for (char byte = 0; byte < 15; ++byte) {
        text += byte;
        if (byte == 7) {
            EXPECT_EQ(Bundle::sipHash(key, text), 0x93f5f5799a932462U);
        }
    }
    EXPECT_EQ(Bundle::sipHash(key, text), 0xa129ca6149be45e5U);
}

TEST(RedactionTest, ReplacesValuesByLengthAndHash)
{
    Bundle::Redaction redaction;
    redaction.hideHome("/home/somebody");
    redaction.hideText("somebody");
    redaction.hide(
        readPropertyList(
            R"({"base_domain": "https://MDM.acme.corp:8443/mdm", "device_id": 4711, "shoe size": [43.5]})")
            .root);
    struct Case {
        const char* text;
        const char* redacted;
    };
    const Case cases[] = {
        {"The backend mdm.acme.corp:8443.", "The backend [13 bytes, hash H]:[4 bytes, hash H]."},
        {"~/a of Somebody", "~/a of [8 bytes, hash H]"},
        {"/home/somebody/a, /home/somebody2", "~/a, ~2"},
        {"inside [0].shoe, a.size.b", "inside [0].[4 bytes, hash H], a.[4 bytes, hash H].b"},
        {"key shoe has no value", "key [4 bytes, hash H] has no value"},
        {"device_id 4711, 43.5 and 12", "device_id [4 bytes, hash H], [4 bytes, hash H] and 12"},
        {R"("x y" has no "."; did you mean "api_key"?)",
         R"([3 bytes, hash H] has no "."; did you mean "api_key"?)"},
        {R"(one " quotation mark)", R"(one " quotation mark)"},
    };
    static const std::regex hash("[0-9a-f]{16}");
    for (const Case& row : cases)
        EXPECT_EQ(std::regex_replace(redaction.redact(row.text), hash, "H"), row.redacted);
    EXPECT_EQ(redaction.token("a"), redaction.token("a"));
    EXPECT_NE(redaction.token("a"), Bundle::Redaction().token("a")) << "bundles must not be comparable";
    const auto checked = redaction.redactJSON(
        json::parse(R"({"verdict": "somebody", "found": ["somebody"], "effective": "b"})"));
    EXPECT_EQ(std::regex_replace(json::serialize(checked), hash, "H"),
              R"({"verdict":"somebody","found":["[8 bytes, hash H]"],"effective":"[1 bytes, hash H]"})");
}

TEST(UserAccountsTest, SelectsAccountsWithAStateFolder)
{
    const TemporaryFolder folder;
    const auto makeHome = [&](const char* name) {
        std::filesystem::create_directories(folder.path(name) / ".local/share/quorvane-mdm");
        return folder.path(name);
    };
    std::filesystem::create_directory(folder.path("empty"));
    std::filesystem::create_symlink("loop", folder.path("loop"));
    const std::vector<UserAccount> accounts{{"second", 70001, 0, makeHome("second")},
                                            {"first", 70000, 0, makeHome("first")},
                                            {"alias", 70001, 0, makeHome("alias")},
                                            {"new", 70002, 0, folder.path("empty")},
                                            {"homeless", 70003, 0, "/nonexistent"},
                                            {"relative", 70004, 0, ""},
                                            // Cannot be looked into; its own process will see.
                                            {"odd", 70005, 0, folder.path("loop")}};
    std::vector<std::string> names;
    for (const UserAccount& account : accountsWithState(accounts))
        names.push_back(account.name);
    EXPECT_THAT(names, testing::ElementsAre("first", "second", "odd"));
    EXPECT_EQ(accountNamed("first", accounts).user, 70000U);
    const auto errorFor = [&](const char* name) {
        try {
            return accountNamed(name, accounts).name;
        } catch (const CommandError& error) {
            return std::string(error.what());
        }
    };
    EXPECT_EQ(errorFor("secnod"), "there is no user 'secnod'. Did you mean 'second'?");
    EXPECT_EQ(errorFor("xyz"), "there is no user 'xyz'");
}

} // namespace
