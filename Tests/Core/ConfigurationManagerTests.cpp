#include "Core/ConfigurationManager.h"

#include "Core/Constants.h"
#include "Core/Logger.h"
#include "Core/ManagedKeys.h"
#include "Platform/Encoding.h"
#include "Platform/OutcomeRecorder.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <limits>

using namespace Core;
using namespace std::chrono_literals;
using Platform::PropertyList;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;
using Lines = std::vector<std::string>;

namespace {

/// A configuration manager on fakes, before startup.
class ConfigurationManagerTest : public testing::Test {
protected:
    void startUp()
    {
        // All registrations share one timer.
        for (int count = 0; count < 3; ++count)
            manager->registerForConfigurationChanges();
        manager->updateConfigurationFromMDM();
    }
    /// Delivers a managed configuration and lets the debounce interval pass.
    void deliverAndSettle(std::optional<PropertyList> dictionary)
    {
        defaults.deliver(std::move(dictionary));
        scheduler.advance(600ms);
    }
    /// Returns the number of recorded configuration errors, 0 or 1, and checks the kind.
    std::size_t recordedErrors()
    {
        scheduler.runUntilIdle();
        const auto recorded = Platform::storedOutcomes(systemStore);
        for (const auto& [subject, outcome] : recorded) {
            EXPECT_EQ(subject, Platform::Outcome::Subject::configurationError);
            EXPECT_EQ(outcome.result, Platform::Outcome::Result::failed);
            EXPECT_EQ(outcome.kind, Platform::Outcome::Kind::notStored);
        }
        return recorded.size();
    }
    FakeUserDefaults& suite() { return defaults.fakeSuite(Constants::appGroupSuiteName); }

    ManualScheduler scheduler;
    RecordingUnifiedLog log;
    Logger logger{std::make_unique<OSLogSink>(log), "com.example"};
    Platform::NotificationCenter center;
    FakeUserDefaultsDomains defaults{center, scheduler.mainQueue};
    FakeUserDefaults systemStore;
    Platform::OutcomeRecorder outcomes{{systemStore, scheduler, scheduler.mainQueue, scheduler}};
    std::shared_ptr<ConfigurationManager> manager = std::make_shared<ConfigurationManager>(
        ConfigurationManager::Ports{logger, defaults, center, scheduler.mainQueue, scheduler.utilityQueue,
                                    scheduler, scheduler, outcomes});

    std::vector<Platform::UserInfo> announced;
    Platform::NotificationCenter::Token observation =
        center.addObserver(ConfigurationManager::didUpdateNotification, nullptr, nullptr,
                           [this](const Platform::Notification& note) {
                               EXPECT_TRUE(scheduler.mainQueue.isRunning());
                               announced.push_back(note.userInfo);
                           });

    const PropertyList managed{PropertyList::Dictionary{
        {"AllowedAppsBundleIdsForSSOExtension", "com.acme.one,com.acme.two"},
        {"base_domain", "acme.corp"},
        {"device_id", "DEV-1"},
        {"api_key", "secret"},
    }};
};

TEST_F(ConfigurationManagerTest, StartUpAppliesConfigurationAndIncrementsVersion)
{
    suite().set(Constants::SnapshotKeys::configVersion, 4);
    scheduler.advance(7s);
    defaults.deliver(managed);
    startUp();
    EXPECT_EQ(log.takeLines(), Lines{"Configuration updated - v5, apps: 2"});
    EXPECT_EQ(manager->loadConfigurationSnapshot()->configVersion, 5);
    EXPECT_EQ(manager->getBaseDomain(), "https://acme.corp");
    EXPECT_EQ(manager->getOrganizationId(), std::nullopt);
    EXPECT_EQ(manager->deviceId(), "DEV-1");
    EXPECT_EQ(manager->apiKey(), "secret");
    EXPECT_TRUE(manager->isAppAllowedForSSO("com.acme.one"));
    for (const char* other : {"COM.ACME.ONE", "com.acme.one.more", "com.acme", ""})
        EXPECT_FALSE(manager->isAppAllowedForSSO(other)) << other;
    EXPECT_EQ(recordedErrors(), 0U);
    EXPECT_EQ(suite().commitCount, 2) << "the four keys must be written in one commit";
    EXPECT_EQ(suite().unsynchronizedCount, 0);
    const Platform::Date applied{7};
    EXPECT_THAT(suite().values, ElementsAre(Pair("ConfigSnapshot", testing::_), Pair("ConfigVersion", 5),
                                            Pair("LastUpdated", applied), Pair("SchemaVersion", 1)));

    scheduler.advance(10s);
    EXPECT_TRUE(announced.empty());
    EXPECT_TRUE(log.takeLines().empty());
    EXPECT_EQ(manager->getConfigurationStatus().at("last_updated"), applied);
    EXPECT_EQ(manager->getConfigurationStatus().at("schema_version"), 1);

    suite().isWritable = false;
    deliverAndSettle(PropertyList::Dictionary{{"device_id", "DEV-2"}});
    EXPECT_EQ(recordedErrors(), 1U);
}

TEST_F(ConfigurationManagerTest, StartUpWithoutConfigurationStoresNothing)
{
    startUp();
    EXPECT_EQ(log.takeLines(), Lines{"No managed configuration available"});
    EXPECT_TRUE(suite().values.empty());
    const auto snapshot = manager->loadConfigurationSnapshot();
    EXPECT_EQ(snapshot->configVersion, 0);
    EXPECT_EQ(snapshot->schemaVersion, 1);
    EXPECT_EQ(snapshot->lastUpdated, scheduler.now());
    EXPECT_EQ(manager->apiKey(), std::nullopt);
    EXPECT_TRUE(log.takeLines().empty());

    defaults.deliver("not a dictionary");
    manager->updateConfigurationFromMDM();
    EXPECT_EQ(log.takeLines(), Lines{"No managed configuration available"});
}

TEST_F(ConfigurationManagerTest, AppliesBurstOnceHalfASecondAfterLastChange)
{
    startUp();
    log.takeLines();
    suite().onChange = [this] { EXPECT_TRUE(scheduler.utilityQueue.isRunning()); };
    for (int i = 0; i < 3; ++i) {
        defaults.deliver(PropertyList::Dictionary{{"OrganizationId", i}});
        scheduler.advance(200ms);
    }
    scheduler.advance(299ms);
    EXPECT_TRUE(log.takeLines().empty());
    scheduler.advance(1ms);
    EXPECT_EQ(log.takeLines(), Lines{"Configuration updated - v1, apps: 0"});
    ASSERT_EQ(announced.size(), 1U);
    const auto value = [&](const char* key) { return std::any_cast<PropertyList>(announced.at(0).at(key)); };
    const auto keys = managedKeys();
    const auto storedCount = std::count_if(keys.begin(), keys.end(), std::mem_fn(&ManagedKey::isStored));
    EXPECT_EQ(announced.at(0).size(), 4U + static_cast<std::size_t>(storedCount));
    EXPECT_EQ(value("status"), PropertyList("active"));
    EXPECT_EQ(value("config_version"), PropertyList(1));
    EXPECT_EQ(value("last_updated"), PropertyList(Platform::Date{0.9}));
    EXPECT_EQ(value("has_organization_id"), PropertyList(true));
    EXPECT_EQ(value("has_api_key"), PropertyList(false));
}

TEST_F(ConfigurationManagerTest, ValidatesStoresAndReportsEachKeySeparately)
{
    startUp();
    for (const ManagedKey& key : managedKeys()) {
        SCOPED_TRACE(key.name);
        log.takeLines();
        deliverAndSettle(PropertyList::Dictionary{{std::string(key.name), std::string(key.example)}});
        EXPECT_THAT(log.takeLines(), ElementsAre(StartsWith("Configuration updated")));

        const auto snapshot = manager->loadConfigurationSnapshot();
        for (const ManagedKey& other : managedKeys()) {
            const auto values = valuesOf(other, snapshot->config);
            EXPECT_EQ(values.empty(), other.name != key.name || !key.isStored()) << other.name;
            std::string joined;
            for (const std::string_view value : values)
                joined.append(joined.empty() ? "" : ",").append(value);
            EXPECT_EQ(joined, values.empty() ? "" : key.example);
        }
        const auto status = manager->getConfigurationStatus();
        const auto present = [](const auto& entry) {
            return entry.first.starts_with("has_") ? *entry.second.boolean()
                                                   : entry.first.ends_with("_count") && entry.second != 0;
        };
        EXPECT_EQ(std::count_if(status.begin(), status.end(), present), key.isStored() ? 1 : 0);
        deliverAndSettle(PropertyList::Dictionary{});
    }
}

TEST(ManagedKeysTest, EveryConfigMemberHasOneRow)
{
    for (const ManagedKey& key : managedKeys()) {
        EXPECT_EQ(findManagedKey(key.name), &key);
        EXPECT_EQ(findManagedKey(std::string(key.name) + "s"), nullptr);
        EXPECT_EQ(key.isSecret, key.name == "api_key");
    }
    EXPECT_EQ(acceptedForms(ManagedKey::Kind::revision), "any value");
    std::size_t size = 0;
    ValidatedConfig config;
    forEachValue(config, [&](const ManagedKey&, auto& member) { size += sizeof member; });
    EXPECT_EQ(size, sizeof config) << "a member has no row, or more than one";
}

TEST_F(ConfigurationManagerTest, OnlyChangedManagedKeysTriggerAnUpdate)
{
    defaults.deliver(managed);
    startUp();
    log.takeLines();
    const auto with = [&](const char* key, PropertyList value) {
        auto dictionary = *managed.dictionary();
        dictionary[key] = std::move(value);
        return PropertyList(dictionary);
    };
    struct Case {
        const char* name;
        std::optional<PropertyList> delivered;
        Lines expected;
    };
    const Case cases[] = {
        {"unchanged", managed, {}},
        {"unknown key added", with("other", 1), {}},
        {"only schema version changed", with("SchemaVersion", 2), {"Configuration updated - v2, apps: 2"}},
        {"string replaced by equal array",
         with("AllowedAppsBundleIdsForSSOExtension", PropertyList::Array{"com.acme.one", "com.acme.two"}),
         {"Configuration updated - v3, apps: 2"}},
        {"two elements joined into one",
         with("AllowedAppsBundleIdsForSSOExtension", PropertyList::Array{"com.acme.one\", \"com.acme.two"}),
         {"Configuration updated - v4, apps: 0"}},
        {"removed", std::nullopt, {}},
        {"not a dictionary", 5, {}},
        {"empty dictionary", PropertyList::Dictionary{}, {"Configuration updated - v5, apps: 0"}},
        {"first configuration again", managed, {"Configuration updated - v6, apps: 2"}},
    };
    std::size_t updates = 0;
    for (const Case& row : cases) {
        deliverAndSettle(row.delivered);
        updates += row.expected.size();
        EXPECT_EQ(log.takeLines(), row.expected) << row.name;
        EXPECT_EQ(announced.size(), updates) << row.name;
    }
    defaults.standard().set("hasLaunchedBefore", true);
    scheduler.advance(1s);
    EXPECT_TRUE(log.takeLines().empty());
    manager->updateConfigurationFromMDM();
    EXPECT_EQ(log.takeLines(), Lines{"Managed configuration unchanged, skipping update"});
}

TEST_F(ConfigurationManagerTest, RegisteringAgainCancelsPendingUpdate)
{
    startUp();
    log.takeLines();
    defaults.deliver(managed);
    scheduler.advance(100ms);
    manager->registerForConfigurationChanges();
    const auto postFrom = [&](const void* sender) {
        scheduler.utilityQueue.async([=, this] {
            center.post({std::string(Platform::UserDefaults::didChangeNotification), sender, {}});
        });
        scheduler.advance(1s);
    };
    postFrom(&suite());
    EXPECT_TRUE(log.takeLines().empty());
    postFrom(&defaults.standard()); // The manager starts its timer on the main queue in any case.
    EXPECT_EQ(log.takeLines(), Lines{"Configuration updated - v1, apps: 2"});
}

TEST_F(ConfigurationManagerTest, UpdateDuringAnUpdateIsSkippedButAnnounced)
{
    manager->registerForConfigurationChanges();
    defaults.deliver(managed);
    // The suite calls onChange while an update is in progress.
    suite().onChange = [this] {
        suite().onChange = [] {};
        deliverAndSettle(PropertyList::Dictionary{{"device_id", "DEV-2"}});
    };
    manager->updateConfigurationFromMDM();
    EXPECT_EQ(log.takeLines(), (Lines{"Configuration update already in progress, skipping",
                                      "Configuration updated - v1, apps: 2"}));
    EXPECT_EQ(announced.size(), 1U);
}

TEST_F(ConfigurationManagerTest, UnavailableSuiteIsLoggedAndConfigurationIsNotReapplied)
{
    defaults.areSuitesAvailable = false;
    defaults.deliver(managed);
    startUp();
    EXPECT_EQ(log.takeLines(),
              (Lines{"Cannot access App Group defaults", "Configuration updated - v1, apps: 2"}));
    EXPECT_EQ(recordedErrors(), 1U);
    EXPECT_EQ(manager->loadConfigurationSnapshot(), std::nullopt);
    EXPECT_EQ(manager->getAllowedAppBundleIds(), Lines());
    EXPECT_FALSE(manager->isAppAllowedForSSO("com.acme.one"));
    EXPECT_EQ(manager->getConfigurationStatus(),
              (PropertyList::Dictionary{
                  {"status", "no_configuration"}, {"config_version", 0}, {"last_updated", "never"}}));
    manager->clearConfiguration();
    log.takeLines();
    manager->updateConfigurationFromMDM();
    EXPECT_EQ(log.takeLines(), Lines{"Managed configuration unchanged, skipping update"});
}

TEST_F(ConfigurationManagerTest, DamagedSnapshotLoadsAsDefaultAndIsNotOverwritten)
{
    suite().set(Constants::SnapshotKeys::configSnapshot, Platform::Data{std::byte{'{'}});
    EXPECT_EQ(manager->loadConfigurationSnapshot()->configVersion, 0);
    const auto lines = log.takeLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0],
              "Error loading configuration: The data is not valid JSON: incomplete JSON. | "
              "error={type=Core.DecodingError, domain=Core.DecodingError, code=3, description=The data is "
              "not valid JSON: incomplete JSON.}");
    EXPECT_EQ(suite().data(Constants::SnapshotKeys::configSnapshot)->size(), 1U);

    suite().set(Constants::SnapshotKeys::configSnapshot, "text, not data");
    EXPECT_EQ(manager->loadConfigurationSnapshot()->configVersion, 0);
    EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(ConfigurationManagerTest, ClearingResetsVersionButDoesNotReapplyUnchangedConfiguration)
{
    defaults.deliver(managed);
    startUp();
    manager->clearConfiguration();
    EXPECT_TRUE(suite().values.empty());
    EXPECT_EQ(suite().unsynchronizedCount, 0);
    EXPECT_EQ(manager->loadConfigurationSnapshot()->configVersion, 0);
    log.takeLines();
    deliverAndSettle(managed);
    EXPECT_TRUE(log.takeLines().empty());
    deliverAndSettle(PropertyList::Dictionary{{"device_id", 7}});
    EXPECT_EQ(log.takeLines(), Lines{"Configuration updated - v1, apps: 0"});
}

TEST_F(ConfigurationManagerTest, PendingUpdateDoesNotKeepManagerAlive)
{
    startUp();
    deliverAndSettle(managed);
    defaults.deliver(PropertyList::Dictionary{});
    scheduler.advance(100ms);
    const std::weak_ptr<ConfigurationManager> observed = manager;
    log.takeLines();
    manager.reset();
    EXPECT_TRUE(observed.expired());
    scheduler.advance(1s);
    EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(ConfigurationManagerTest, VersionOverflowIsFatal)
{
    suite().set(Constants::SnapshotKeys::configVersion, std::numeric_limits<std::int64_t>::max());
    defaults.deliver(managed);
    EXPECT_DEATH(manager->updateConfigurationFromMDM(), "version has reached its maximum");
}

TEST(FingerprintTest, IsBase64OfTheSixKeysInTableOrder)
{
    const PropertyList::Dictionary managed{
        {"device_id", "d"},
        {"SchemaVersion", 2},
        {"OrganizationId", true},
        {"api_key", "k"},
        {"other", "x"},
        {"base_domain", 3.5},
        {"AllowedAppsBundleIdsForSSOExtension", PropertyList::Array{"a.b", 1}}};
    EXPECT_EQ(
        managedConfigFingerprint(managed),
        Platform::base64Text("AllowedAppsBundleIdsForSSOExtension:\xFF[\"a.b\", 1];OrganizationId:\xFFtrue;"
                             "SchemaVersion:2;base_domain:3.5;api_key:k;device_id:d;"));
    EXPECT_EQ(managedConfigFingerprint({}), "");
    // RFC 4648, section 10
    for (const auto& [plain, encoded] : std::map<std::string, std::string>{{"f", "Zg=="},
                                                                           {"fo", "Zm8="},
                                                                           {"foo", "Zm9v"},
                                                                           {"foob", "Zm9vYg=="},
                                                                           {"fooba", "Zm9vYmE="},
                                                                           {"foobar", "Zm9vYmFy"},
                                                                           {"\xff\xfe", "//4="}}) {
        EXPECT_EQ(Platform::base64Text(plain), encoded);
        Platform::Base64Writer writer;
        for (const char& byte : plain)
            writer.append({&byte, 1});
        EXPECT_EQ(std::move(writer).finish(), encoded);
    }
}

TEST(FingerprintTest, DiffersForValuesThatLookAlike)
{
    using Array = PropertyList::Array;
    using Dictionary = PropertyList::Dictionary;
    const PropertyList values[] = {
        R"(["a.b", "c.d"])",
        Array{"a.b", "c.d"},
        Array{R"(a.b", "c.d)"},
        Array{R"(a.b\", \"c.d)"},
        Array{"a.b, c.d"},
        Array{Array{"a.b"}, "c.d"},
        Array{Array{"a.b", "c.d"}},
        R"(["1"])",
        Array{"1"},
        "[1]",
        Array{1},
        Array{true},
        Array{"true"},
        Array{Array{}},
        Array{""},
        Array{PropertyList()},
        Array{"<null>"},
        Array{Platform::Date{1}},
        Array{"<date 1>"},
        "[]",
        Array{},
        "{}",
        Dictionary{},
        R"({"a": 1})",
        Dictionary{{"a", 1}},
        Dictionary{{"a", "1"}},
        Dictionary{{"a", true}},
        Dictionary{{R"(a": 1, "b)", 2}},
        Dictionary{{"a", 1}, {"b", 2}},
        "1",
        "true",
        true,
        false,
        "<null>",
        PropertyList(),
        "<date 1>",
        Platform::Date{1},
        "<data 31>",
        Platform::Data{std::byte{0x31}},
        "\\xFF[]",
        "\u00ff[]",
        "",
    };
    for (const ManagedKey& key : managedKeys()) {
        std::map<std::string, std::string> seen;
        for (const PropertyList& value : values) {
            const Dictionary managed{{std::string(key.name), value}};
            EXPECT_EQ(managedConfigFingerprint(managed), managedConfigFingerprint(Dictionary(managed)));
            const auto [other, isNew] = seen.emplace(managedConfigFingerprint(managed), value.description());
            EXPECT_TRUE(isNew) << key.name << ": " << value.typeName() << " " << value.description()
                               << " and " << other->second;
        }
    }
}

} // namespace
