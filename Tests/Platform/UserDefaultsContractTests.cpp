#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/OutcomeRecorder.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

class DeviceDefaultsTest : public testing::Test {
protected:
    ManualScheduler scheduler;
    TemporaryFolder folder;
    NotificationCenter center;
    RecordingUnifiedLog log;
    Linux::DeviceDefaults device{{folder.path("state"), {.files = {folder.path("managed.json")}}},
                                 Storage::SQLiteUserDefaults::Access::readWrite,
                                 scheduler,
                                 log.adapterLog};
};

/// Runs each test with the fake and with the device's own domains.
class UserDefaultsContractTest : public DeviceDefaultsTest, public testing::WithParamInterface<bool> {
protected:
    UserDefaultsContractTest() { device.announceChanges(watcher, center, scheduler.mainQueue); }
    /// Delivers change notifications until `isDone` returns true, for a limited time.
    void settle(const std::function<bool()>& isDone)
    {
        while (!isDone() && scheduler.mainQueue.waitForItem())
            scheduler.mainQueue.runNext();
    }

    FakeUserDefaultsDomains fake{center, scheduler.mainQueue};
    Linux::Files::FileSystemWatcher watcher;
    UserDefaultsDomains& domains = GetParam() ? static_cast<UserDefaultsDomains&>(fake) : device;
};

INSTANTIATE_TEST_SUITE_P(, UserDefaultsContractTest, testing::Bool(),
                         [](const auto& isFake) { return isFake.param ? "Fake" : "SQLite"; });

const Platform::Data sampleBytes{std::byte{0}, std::byte{0x7f}, std::byte{0xff}};

TEST_P(UserDefaultsContractTest, ReadsEveryTypeAsWritten)
{
    const PropertyList values[] = {
        "text with \u00e4, \U0001F600 and a \"quote\"",
        "",
        std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::uint64_t>::max(),
        2.5,
        1.0,
        std::numeric_limits<double>::infinity(),
        true,
        false,
        Date{785'000'000.123},
        sampleBytes,
        Platform::Data{},
        PropertyList::Array{1, "a", PropertyList::Array{}},
        PropertyList::Dictionary{{"k", Date{1}}, {"n", PropertyList::Dictionary{{"d", sampleBytes}}}}};
    UserDefaults& suite = *domains.suite("group.example");
    for (const PropertyList& value : values) {
        EXPECT_TRUE(suite.set("key", value)) << value.description();
        EXPECT_EQ(suite.object("key"), value) << value.description();
    }
    EXPECT_EQ(suite.object("Key"), std::nullopt) << "keys are case-sensitive";
    EXPECT_TRUE(suite.removeObject("key"));
    EXPECT_TRUE(suite.removeObject("key")) << "already missing";
    EXPECT_EQ(suite.object("key"), std::nullopt);
}

TEST_P(UserDefaultsContractTest, TypedGettersReturnAnEmptyValueForOtherTypes)
{
    const std::tuple<PropertyList, std::int64_t, bool> cases[] = {{42, 42, true},
                                                                  {0, 0, false},
                                                                  {-3.9, -3, true},
                                                                  {9'223'372'036'854'775'808.0, 0, true},
                                                                  {true, 1, true},
                                                                  {"42", 0, false},
                                                                  {Platform::Data{}, 0, false}};
    UserDefaults& standard = domains.standard();
    EXPECT_EQ(standard.integer("missing"), 0);
    EXPECT_FALSE(standard.boolean("missing"));
    for (const auto& [value, integer, boolean] : cases) {
        standard.set("key", value);
        EXPECT_EQ(standard.integer("key"), integer) << value.description();
        EXPECT_EQ(standard.boolean("key"), boolean) << value.description();
        EXPECT_EQ(standard.text("key").has_value(), value.text() != nullptr);
        EXPECT_EQ(standard.data("key").has_value(), value.data() != nullptr);
    }
}

TEST_P(UserDefaultsContractTest, DomainsAreSeparateAndSuitesMayBeAbsent)
{
    using namespace std::string_literals;
    domains.suite("group.one")->set("key", 1);
    domains.standard().set("key", 0);
    EXPECT_EQ(domains.suite("group.two")->object("key"), std::nullopt);
    EXPECT_EQ(domains.suite("group.one"), domains.suite("group.one"));
    EXPECT_EQ(domains.suite("group.one")->integer("key"), 1);
    for (const std::string& name : {""s, ".hidden"s, "a/b"s, "a\0b"s})
        EXPECT_EQ(domains.suite(name), nullptr) << name;
    fake.areSuitesAvailable = false;
    std::filesystem::remove_all(folder.path("state/groups"));
    folder.write("state/groups", "a file where a folder should be");
    EXPECT_EQ(domains.suite("group.three"), nullptr);
}

TEST_P(UserDefaultsContractTest, StandardDomainPostsItsChanges)
{
    int count = 0;
    const auto token = center.addObserver(UserDefaults::didChangeNotification, &domains.standard(), nullptr,
                                          [&, thread = std::this_thread::get_id()](const Notification&) {
                                              ++count;
                                              EXPECT_EQ(std::this_thread::get_id(), thread);
                                          });
    const std::array<UserDefaults::Entry, 2> entries{{{"a", 1}, {"b", 2}}};
    domains.standard().write(entries);
    EXPECT_EQ(count, 0) << "no notification inside the write";
    settle([&] { return count > 0; });
    EXPECT_EQ(count, 1) << "two values, one commit, one notification";
    domains.standard().removeObject("a");
    settle([&] { return count > 1; });
    EXPECT_EQ(count, 2);
    EXPECT_EQ(domains.standard().integer("b"), 2);
}

TEST_P(UserDefaultsContractTest, ManagedConfigurationIsReadOnly)
{
    const std::string_view key = UserDefaults::managedConfigurationKey;
    EXPECT_FALSE(domains.standard().set(key, PropertyList::Dictionary{{"a", 1}}));
    EXPECT_EQ(domains.standard().object(key), std::nullopt);
    EXPECT_FALSE(domains.standard().removeObject(key));
}

TEST_F(DeviceDefaultsTest, ReadsThePolicyAndRecordsItsErrors)
{
    FakeUserDefaults store;
    OutcomeRecorder outcomes({store, scheduler, scheduler.mainQueue, scheduler});
    device.recordErrors(outcomes);
    const auto managed = [&] {
        device.reloadPolicy(center, scheduler.mainQueue);
        auto found = device.standard().object(UserDefaults::managedConfigurationKey);
        scheduler.advance(2s);
        return found;
    };
    const std::tuple<const char*, mode_t, Outcome::Kind> cases[] = {
        {"{", 0600, Outcome::Kind::malformed},
        {"{}", 0602, Outcome::Kind::untrusted},
        {"{", 0600, Outcome::Kind::malformed},
    };
    for (const auto& [content, mode, kind] : cases) {
        folder.write("managed.json", content);
        ::chmod(folder.path("managed.json").c_str(), mode);
        EXPECT_EQ(managed(), std::nullopt);
        EXPECT_EQ(storedOutcomes(store).at(Outcome::Subject::configurationError).kind, kind);
    }
    folder.write("managed.json", R"({"a": 1})");
    EXPECT_EQ(managed(), PropertyList(PropertyList::Dictionary{{"a", 1}}));
}

} // namespace
