#include "Core/ConfigurationSnapshot.h"

#include "Core/JSON.h"
#include "Tests/Fakes/Bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using namespace Core;

namespace {

TEST(ConfigurationSnapshotTest, EncodesOnlyPresentFields)
{
    ConfigurationSnapshot snapshot = ConfigurationSnapshot::defaultSnapshot({60});
    EXPECT_EQ(textOf(snapshot.encode()),
              R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":0,"lastUpdated":60})");

    snapshot.config.allowedAppBundleIds = {"com.a.b", "", "com.a.b"};
    snapshot.config.organizationId = "\"\\\n\u00e4\U0001F600";
    snapshot.config.apiKey = "\x1f";
    snapshot.config.deviceId = "DEV-1";
    snapshot.schemaVersion = 2;
    snapshot.configVersion = 3;
    snapshot.lastUpdated = {986'802'277.2158307};
    EXPECT_EQ(
        textOf(snapshot.encode()),
        "{\"allowedAppBundleIds\":[\"com.a.b\",\"\",\"com.a.b\"],\"organizationId\":"
        "\"\\\"\\\\\\n\u00e4\U0001F600\",\"apiKey\":\"\\u001f\","
        "\"deviceId\":\"DEV-1\",\"schemaVersion\":2,\"configVersion\":3,\"lastUpdated\":986802277.2158307}");
    EXPECT_EQ(ConfigurationSnapshot::decode(snapshot.encode()), snapshot);

    snapshot.config.allowedAppBundleIds = {"a\"b", "", "\n"};
    EXPECT_THAT(textOf(snapshot.encode()),
                testing::StartsWith(R"({"allowedAppBundleIds":["a\"b","","\n"],"organizationId")"));
    EXPECT_EQ(ConfigurationSnapshot::decode(snapshot.encode()), snapshot);

    snapshot.lastUpdated = {std::numeric_limits<double>::infinity()};
    EXPECT_THROW(static_cast<void>(snapshot.encode()), EncodingError);
}

TEST(ConfigurationSnapshotTest, RejectsMissingAndMistypedFields)
{
    using Kind = DecodingError::Kind;
    struct Case {
        const char* json;
        std::optional<Kind> error;
    };
    const Case cases[] = {
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2,"lastUpdated":6E1})", {}},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2,"lastUpdated":60,"organizationId":null,"new":{}})",
         {}},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2.0,"lastUpdated":60})", {}},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"lastUpdated":60})", Kind::keyNotFound},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":null,"lastUpdated":60})",
         Kind::valueNotFound},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2.5,"lastUpdated":60})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":true,"lastUpdated":60})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2,"lastUpdated":"2026"})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2,"lastUpdated":1e400})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[1],"schemaVersion":1,"configVersion":2,"lastUpdated":60})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":"a.b","schemaVersion":1,"configVersion":2,"lastUpdated":60})",
         Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2,"lastUpdated":60,"apiKey":7})",
         Kind::typeMismatch},
        {R"([1])", Kind::typeMismatch},
        {R"({"allowedAppBundleIds":[)", Kind::dataCorrupted},
        {R"({"allowedAppBundleIds":[],"schemaVersion":1,"configVersion":2,"lastUpdated":60}})",
         Kind::dataCorrupted},
        {"", Kind::dataCorrupted},
    };
    for (const auto& [json, error] : cases) {
        try {
            const auto snapshot = ConfigurationSnapshot::decode(bytesOf(json));
            EXPECT_FALSE(error.has_value()) << json;
            EXPECT_EQ(snapshot.configVersion, 2) << json;
            EXPECT_EQ(snapshot.lastUpdated, Platform::Date{60}) << json;
            EXPECT_EQ(snapshot.config.organizationId, std::nullopt) << json;
        } catch (const DecodingError& thrown) {
            ASSERT_TRUE(error.has_value()) << json << ": " << thrown.what();
            EXPECT_EQ(thrown.errorCode(), static_cast<std::int64_t>(*error)) << json;
        }
    }
}

} // namespace
