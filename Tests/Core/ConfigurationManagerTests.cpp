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
#include <limits>

using namespace Core;
using namespace std::chrono_literals;
using namespace testing;
using Platform::Outcome;
using Platform::PropertyList;
using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;
using Lines = std::vector<std::string>;
namespace SnapshotKeys = Constants::SnapshotKeys;

namespace {

/// A configuration manager on fakes, before startup.
class ConfigurationManagerTest : public Test {
protected:
    /// Returns the lines logged since the last call of this or the next function.
    Lines startUp()
    {
        // All registrations share one timer.
        for (int count = 0; count < 3; ++count)
            manager->registerForConfigurationChanges();
        manager->updateConfigurationFromMDM();
        return log.takeLines();
    }
    /// Delivers a managed configuration and lets the debounce interval pass.
    Lines deliverAndSettle(std::optional<PropertyList> dictionary)
    {
        defaults.deliver(std::move(dictionary));
        scheduler.advance(600ms);
        return log.takeLines();
    }
    Platform::Outcomes recordedOutcomes()
    {
        scheduler.runUntilIdle();
        return Platform::storedOutcomes(systemStore);
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

    const PropertyList managed{
        Dictionary{{"AllowedAppsBundleIdsForSSOExtension", "com.acme.one,com.acme.two"},
                   {"base_domain", "acme.corp"},
                   {"device_id", "DEV-1"},
                   {"api_key", "secret"}}};
    const Matcher<Platform::Outcomes> isStoreError =
        ElementsAre(Pair(Outcome::Subject::configurationError,
                         FieldsAre(Outcome::Result::failed, Outcome::Kind::notStored, 0, _)));
};

TEST_F(ConfigurationManagerTest, StartUpAppliesConfigurationAndIncrementsVersion)
{
    suite().set(SnapshotKeys::configVersion, 4);
    scheduler.advance(7s);
    defaults.deliver(managed);
    EXPECT_EQ(startUp(), Lines{"Configuration updated - v5, apps: 2"});
    EXPECT_EQ(manager->loadConfigurationSnapshot()->configVersion, 5);
    EXPECT_EQ(manager->getBaseDomain(), "https://acme.corp");
    EXPECT_EQ(manager->getOrganizationId(), std::nullopt);
    EXPECT_EQ(manager->deviceId(), "DEV-1");
    EXPECT_EQ(manager->apiKey(), "secret");
    EXPECT_TRUE(manager->isAppAllowedForSSO("com.acme.one"));
    for (const char* other : {"COM.ACME.ONE", "com.acme.one.more", "com.acme", ""})
        EXPECT_FALSE(manager->isAppAllowedForSSO(other)) << other;
    EXPECT_THAT(recordedOutcomes(), IsEmpty());
    EXPECT_EQ(suite().commitCount, 2) << "the four keys must be written in one commit";
    EXPECT_EQ(suite().unsynchronizedCount, 0);
    const Platform::Date applied{7};
    EXPECT_THAT(suite().values, ElementsAre(Pair("ConfigSnapshot", _), Pair("ConfigVersion", 5),
                                            Pair("LastUpdated", applied), Pair("SchemaVersion", 1)));

    scheduler.advance(10s);
    EXPECT_THAT(announced, IsEmpty());
    EXPECT_THAT(log.takeLines(), IsEmpty());
    EXPECT_THAT(manager->getConfigurationStatus(),
                AllOf(Contains(Pair("status", "active")), Contains(Pair("config_version", 5)),
                      Contains(Pair("last_updated", applied)), Contains(Pair("schema_version", 1))));

    suite().isWritable = false;
    deliverAndSettle(Dictionary{{"device_id", "DEV-2"}});
    EXPECT_THAT(recordedOutcomes(), isStoreError);
}

TEST_F(ConfigurationManagerTest, StartUpWithoutConfigurationStoresNothing)
{
    const Lines unavailable{"No managed configuration available"};
    EXPECT_EQ(startUp(), unavailable);
    EXPECT_THAT(suite().values, IsEmpty());
    EXPECT_EQ(manager->loadConfigurationSnapshot(), ConfigurationSnapshot::defaultSnapshot(scheduler.now()));
    EXPECT_EQ(manager->apiKey(), std::nullopt);
    defaults.deliver("not a dictionary");
    EXPECT_EQ(startUp(), unavailable);
}

TEST_F(ConfigurationManagerTest, AppliesBurstOnceHalfASecondAfterLastChange)
{
    startUp();
    suite().onChange = [this] { EXPECT_TRUE(scheduler.utilityQueue.isRunning()); };
    for (int i = 0; i < 3; ++i) {
        defaults.deliver(Dictionary{{"OrganizationId", i}});
        scheduler.advance(200ms);
    }
    scheduler.advance(299ms);
    EXPECT_THAT(log.takeLines(), IsEmpty());
    scheduler.advance(1ms);
    EXPECT_EQ(log.takeLines(), Lines{"Configuration updated - v1, apps: 0"});
    ASSERT_EQ(announced.size(), 1U);
    for (const auto& [key, value] : manager->getConfigurationStatus())
        EXPECT_EQ(std::any_cast<PropertyList>(announced[0].at(key)), value) << key;
}

TEST_F(ConfigurationManagerTest, ValidatesStoresAndReportsEachKeySeparately)
{
    startUp();
    for (const ManagedKey& key : managedKeys()) {
        SCOPED_TRACE(key.name);
        EXPECT_THAT(deliverAndSettle(Dictionary{{std::string(key.name), std::string(key.example)}}),
                    ElementsAre(StartsWith("Configuration updated")));
        const auto snapshot = manager->loadConfigurationSnapshot();
        for (const ManagedKey& other : managedKeys()) {
            std::string joined;
            for (const std::string_view value : valuesOf(other, snapshot->config))
                joined.append(joined.empty() ? "" : ",").append(value);
            EXPECT_EQ(joined, other.name == key.name && key.isStored() ? key.example : "") << other.name;
        }
        const auto status = manager->getConfigurationStatus();
        const auto present = [](const auto& entry) {
            return entry.first.starts_with("has_") ? *entry.second.boolean()
                                                   : entry.first.ends_with("_count") && entry.second != 0;
        };
        EXPECT_EQ(std::count_if(status.begin(), status.end(), present), key.isStored() ? 1 : 0);
        deliverAndSettle(Dictionary{});
    }
}

TEST_F(ConfigurationManagerTest, OnlyChangedManagedKeysTriggerAnUpdate)
{
    defaults.deliver(managed);
    startUp();
    const auto with = [&](const char* key, PropertyList value) {
        auto dictionary = *managed.dictionary();
        dictionary[key] = std::move(value);
        return PropertyList(dictionary);
    };
    const char* const list = "AllowedAppsBundleIdsForSSOExtension";
    // What is delivered, and the version and number of apps that are applied.
    const std::tuple<const char*, std::optional<PropertyList>, const char*> cases[] = {
        {"unchanged", managed, ""},
        {"unknown key added", with("other", 1), ""},
        {"only schema version changed", with("SchemaVersion", 2), "v2, apps: 2"},
        {"string replaced by equal array", with(list, Array{"com.acme.one", "com.acme.two"}), "v3, apps: 2"},
        {"two elements joined into one", with(list, Array{"com.acme.one\", \"com.acme.two"}), "v4, apps: 0"},
        {"removed", std::nullopt, ""},
        {"not a dictionary", 5, ""},
        {"empty dictionary", Dictionary{}, "v5, apps: 0"},
        {"first configuration again", managed, "v6, apps: 2"},
    };
    for (const auto& [name, delivered, applied] : cases) {
        announced.clear();
        const Lines expected =
            *applied == '\0' ? Lines() : Lines{std::string("Configuration updated - ") + applied};
        EXPECT_EQ(deliverAndSettle(delivered), expected) << name;
        EXPECT_EQ(announced.size(), expected.size()) << name;
    }
    defaults.standard().set("hasLaunchedBefore", true);
    scheduler.advance(1s);
    EXPECT_EQ(startUp(), Lines{"Managed configuration unchanged, skipping update"});
}

TEST_F(ConfigurationManagerTest, RegisteringAgainCancelsPendingUpdate)
{
    startUp();
    defaults.deliver(managed);
    scheduler.advance(100ms);
    manager->registerForConfigurationChanges();
    const auto linesAfterPostFrom = [&](const void* sender) {
        scheduler.utilityQueue.async([=, this] {
            center.post({std::string(Platform::UserDefaults::didChangeNotification), sender, {}});
        });
        scheduler.advance(1s);
        return log.takeLines();
    };
    EXPECT_EQ(linesAfterPostFrom(&suite()), Lines());
    // The manager starts its timer on the main queue in any case.
    EXPECT_EQ(linesAfterPostFrom(&defaults.standard()), Lines{"Configuration updated - v1, apps: 2"});
}

TEST_F(ConfigurationManagerTest, UpdateDuringAnUpdateIsSkippedButAnnounced)
{
    Lines linesDuringUpdate;
    defaults.deliver(managed);
    // The suite calls onChange while an update is in progress.
    suite().onChange = [&] {
        suite().onChange = [] {};
        linesDuringUpdate = deliverAndSettle(Dictionary{{"device_id", "DEV-2"}});
    };
    EXPECT_EQ(startUp(), Lines{"Configuration updated - v1, apps: 2"});
    EXPECT_EQ(linesDuringUpdate, Lines{"Configuration update already in progress, skipping"});
    EXPECT_EQ(announced.size(), 1U);
}

TEST_F(ConfigurationManagerTest, UnavailableSuiteIsLoggedAndConfigurationIsNotReapplied)
{
    defaults.areSuitesAvailable = false;
    defaults.deliver(managed);
    EXPECT_EQ(startUp(), (Lines{"Cannot access App Group defaults", "Configuration updated - v1, apps: 2"}));
    EXPECT_THAT(recordedOutcomes(), isStoreError);
    EXPECT_EQ(manager->loadConfigurationSnapshot(), std::nullopt);
    EXPECT_EQ(manager->getAllowedAppBundleIds(), Lines());
    EXPECT_FALSE(manager->isAppAllowedForSSO("com.acme.one"));
    EXPECT_EQ(manager->getConfigurationStatus(),
              (Dictionary{{"status", "no_configuration"}, {"config_version", 0}, {"last_updated", "never"}}));
    manager->clearConfiguration();
    log.takeLines();
    EXPECT_EQ(startUp(), Lines{"Managed configuration unchanged, skipping update"});
}

TEST_F(ConfigurationManagerTest, DamagedSnapshotLoadsAsDefaultAndIsNotOverwritten)
{
    for (const auto& damaged : {PropertyList(Platform::Data{std::byte{'{'}}), PropertyList("not data")}) {
        suite().set(SnapshotKeys::configSnapshot, damaged);
        EXPECT_EQ(manager->loadConfigurationSnapshot(),
                  ConfigurationSnapshot::defaultSnapshot(scheduler.now()));
        EXPECT_EQ(suite().object(SnapshotKeys::configSnapshot), damaged);
    }
    EXPECT_THAT(log.takeLines(),
                ElementsAre(StartsWith("Error loading configuration: The data is not valid JSON: incomplete "
                                       "JSON. | error={type=Core.DecodingError, ")));
}

TEST_F(ConfigurationManagerTest, ClearingResetsVersionButDoesNotReapplyUnchangedConfiguration)
{
    defaults.deliver(managed);
    startUp();
    manager->clearConfiguration();
    EXPECT_THAT(suite().values, IsEmpty());
    EXPECT_EQ(suite().unsynchronizedCount, 0);
    EXPECT_EQ(deliverAndSettle(managed), Lines());
    EXPECT_EQ(deliverAndSettle(Dictionary{{"device_id", 7}}), Lines{"Configuration updated - v1, apps: 0"});
}

TEST_F(ConfigurationManagerTest, PendingUpdateDoesNotKeepManagerAlive)
{
    startUp();
    deliverAndSettle(managed);
    defaults.deliver(Dictionary{});
    scheduler.advance(100ms);
    const std::weak_ptr<ConfigurationManager> observed = manager;
    manager.reset();
    EXPECT_TRUE(observed.expired());
    scheduler.advance(1s);
    EXPECT_THAT(log.takeLines(), IsEmpty());
}

TEST_F(ConfigurationManagerTest, VersionOverflowIsFatal)
{
    suite().set(SnapshotKeys::configVersion, std::numeric_limits<std::int64_t>::max());
    defaults.deliver(managed);
    EXPECT_DEATH(manager->updateConfigurationFromMDM(), "version has reached its maximum");
}

TEST(FingerprintTest, IsBase64OfTheSixKeysInTableOrder)
{
    const Dictionary managed{{"device_id", "d"},
                             {"SchemaVersion", 2},
                             {"OrganizationId", true},
                             {"api_key", PropertyList()},
                             {"other", "x"},
                             {"base_domain", 3.5},
                             {"AllowedAppsBundleIdsForSSOExtension", Array{"a.b", 1}}};
    EXPECT_EQ(
        managedConfigFingerprint(managed),
        Platform::base64Text("AllowedAppsBundleIdsForSSOExtension:\xFF[\"a.b\", 1];OrganizationId:\xFFtrue;"
                             "SchemaVersion:2;base_domain:3.5;api_key:\xFF<null>;device_id:d;"));
    EXPECT_EQ(managedConfigFingerprint({}), "");
    // RFC 4648, section 10.
    for (const auto& [plain, encoded] :
         {std::pair("f", "Zg=="), {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe", "//4="}})
        EXPECT_EQ(Platform::base64Text(plain), encoded);
}

} // namespace
