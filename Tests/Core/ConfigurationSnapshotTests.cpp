#include "Core/ConfigurationSnapshot.h"

#include "Core/JSON.h"
#include "Tests/Fakes/Bytes.h"

#include <gtest/gtest.h>

#include <limits>
#include <regex>

using namespace Core;

namespace {

TEST(ConfigurationSnapshotTest, EncodesOnlyPresentFields)
{
    ConfigurationSnapshot snapshot = ConfigurationSnapshot::defaultSnapshot({60});
    EXPECT_EQ(textOf(snapshot.encode()),
              R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":0,"lastUpdated":60})");

    snapshot.config = {.allowedAppBundleIds = {"com.a.b", "", "a\"b", "\n", "com.a.b"},
                       .organizationId = "\"\\\n\u00e4\U0001F600",
                       .baseDomain = {},
                       .apiKey = "\x1f",
                       .deviceId = "DEV-1"};
    snapshot.schemaVersion = 2;
    snapshot.configVersion = 3;
    snapshot.lastUpdated = {986'802'277.2158307};
    EXPECT_EQ(
        textOf(snapshot.encode()),
        R"({"allowedAppBundleIds":["com.a.b","","a\"b","\n","com.a.b"],"organizationId":)"
        "\"\\\"\\\\\\n\u00e4\U0001F600\",\"apiKey\":\"\\u001f\","
        "\"deviceId\":\"DEV-1\",\"schemaVersion\":2,\"configVersion\":3,\"lastUpdated\":986802277.2158307}");
    EXPECT_EQ(ConfigurationSnapshot::decode(snapshot.encode()), snapshot);

    snapshot.lastUpdated = {std::numeric_limits<double>::infinity()};
    EXPECT_THROW(static_cast<void>(snapshot.encode()), EncodingError);
}

TEST(ConfigurationSnapshotTest, RejectsMissingAndMistypedFields)
{
    using Kind = DecodingError::Kind;
    // "$" is replaced by two valid members.
    const std::pair<std::string, std::optional<Kind>> cases[] = {
        {R"({$,"configVersion":2,"lastUpdated":6E1})", {}},
        {R"({$,"configVersion":2,"lastUpdated":60,"organizationId":null,"new":{}})", {}},
        {R"({$,"configVersion":2.0,"lastUpdated":60})", {}},
        {R"({$,"lastUpdated":60})", Kind::keyNotFound},
        {R"({$,"configVersion":null,"lastUpdated":60})", Kind::valueNotFound},
        {R"({$,"configVersion":2.5,"lastUpdated":60})", Kind::typeMismatch},
        {R"({$,"configVersion":true,"lastUpdated":60})", Kind::typeMismatch},
        {R"({$,"configVersion":2,"lastUpdated":"2026"})", Kind::typeMismatch},
        {R"({$,"configVersion":2,"lastUpdated":1e400})", Kind::typeMismatch},
        {R"({$,"configVersion":2,"lastUpdated":60,"apiKey":7})", Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[1],"schemaVersion":1,"configVersion":2,"lastUpdated":60})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":"a.b","schemaVersion":1,"configVersion":2,"lastUpdated":60})",
         Kind::typeMismatch},
        {R"([1])", Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[)", Kind::dataCorrupted},
        {R"({$,"configVersion":2,"lastUpdated":60}})", Kind::dataCorrupted},
        {"", Kind::dataCorrupted},
    };
    for (const auto& [row, error] : cases) {
        const std::string json =
            std::regex_replace(row, std::regex("[$]"), R"("allowedAppBundleIds":[],"schemaVersion":1)");
        try {
            const auto snapshot = ConfigurationSnapshot::decode(bytesOf(json));
            EXPECT_FALSE(error.has_value()) << json;
            EXPECT_EQ(snapshot, ConfigurationSnapshot::make({}, 2, {60})) << json;
        } catch (const DecodingError& thrown) {
            ASSERT_TRUE(error.has_value()) << json << ": " << thrown.what();
            EXPECT_EQ(thrown.errorCode(), static_cast<std::int64_t>(*error)) << json;
        }
    }
}

} // namespace
