#include "Platform/Desktop/QtRunLoop.h"
#include "Platform/Linux/DeviceDefaults.h"
#include "Platform/Linux/Files/FileSystemWatcher.h"
#include "Platform/NotificationCenter.h"
#include "Platform/OutcomeRecorder.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/CaseName.h"
#include "Tests/Fakes/FakeUserDefaults.h"
#include "Tests/Fakes/ManualScheduler.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <tuple>

using namespace Platform;
using namespace std::chrono_literals;

namespace {

/// An implementation of the defaults under test.
class DefaultsHarness {
public:
    virtual ~DefaultsHarness() = default;
    virtual UserDefaultsDomains& domains() = 0;
    virtual NotificationCenter& center() = 0;
    /// Delivers pending change notifications until `isDone` returns true, for a limited time.
    virtual void settle(const std::function<bool()>& isDone) = 0;
    virtual void makeSuitesUnavailable() = 0;
};

class FakeHarness final : public DefaultsHarness {
public:
    UserDefaultsDomains& domains() override { return m_domains; }
    NotificationCenter& center() override { return m_center; }
    void settle(const std::function<bool()>&) override { m_scheduler.runUntilIdle(); }
    void makeSuitesUnavailable() override { m_domains.areSuitesAvailable = false; }

private:
    ManualScheduler m_scheduler;
    NotificationCenter m_center;
    FakeUserDefaultsDomains m_domains{m_center, m_scheduler.mainQueue};
};

class SQLiteHarness final : public DefaultsHarness {
public:
    SQLiteHarness() { m_domains.announceChanges(m_watcher, m_center, m_loop); }
    UserDefaultsDomains& domains() override { return m_domains; }
    NotificationCenter& center() override { return m_center; }
    void settle(const std::function<bool()>& isDone) override
    {
        const auto giveUp = m_loop.scheduledTimer(10s, [this] { m_loop.quit(); });
        const auto token = m_center.addObserver(UserDefaults::didChangeNotification, nullptr, &m_loop,
                                                [&](const Notification&) {
                                                    if (isDone())
                                                        m_loop.quit();
                                                });
        if (!isDone())
            m_loop.run();
    }
    void makeSuitesUnavailable() override
    {
        m_folder.write("state/groups", "a file where a folder should be");
    }

private:
    int m_argc = 0;
    Desktop::QtRunLoop m_loop{std::make_unique<QCoreApplication>(m_argc, nullptr)};
    TemporaryFolder m_folder;
    NotificationCenter m_center;
    RecordingUnifiedLog m_log;
    SystemClock m_clock;
    AdapterLog m_adapterLog{m_log, "test"};
    Linux::DeviceDefaults m_domains{{m_folder.path("state"), {.files = {m_folder.path("managed.json")}}},
                                    Storage::SQLiteUserDefaults::Access::readWrite,
                                    m_clock,
                                    m_adapterLog};
    Linux::Files::FileSystemWatcher m_watcher;
};

struct Implementation {
    const char* name;
    std::unique_ptr<DefaultsHarness> (*make)();
};

class UserDefaultsContractTest : public testing::TestWithParam<Implementation> {
protected:
    std::unique_ptr<DefaultsHarness> harness = GetParam().make();
    UserDefaultsDomains& domains = harness->domains();
};

const Platform::Data allBytes = [] {
    Platform::Data data;
    for (int i = 0; i < 256; ++i)
        data.push_back(static_cast<std::byte>(i));
    return data;
}();

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
        allBytes,
        Platform::Data{},
        PropertyList::Array{1, "a", PropertyList::Array{}},
        PropertyList::Dictionary{{"k", Date{1}}, {"n", PropertyList::Dictionary{{"d", allBytes}}}}};
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
                                                                  {1e300, 0, true},
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
    domains.suite("group.one")->set("key", 1);
    domains.standard().set("key", 0);
    EXPECT_EQ(domains.suite("group.two")->object("key"), std::nullopt);
    EXPECT_EQ(domains.suite("group.one"), domains.suite("group.one"));
    EXPECT_EQ(domains.suite("group.one")->integer("key"), 1);
}

TEST_P(UserDefaultsContractTest, SuiteThatCannotBeOpenedOrNamedIsAbsent)
{
    using namespace std::string_literals;
    for (const std::string& name : {""s, ".hidden"s, "a/b"s, "a\0b"s})
        EXPECT_EQ(domains.suite(name), nullptr) << name;
    harness->makeSuitesUnavailable();
    EXPECT_EQ(domains.suite("group.example"), nullptr);
}

TEST_P(UserDefaultsContractTest, StandardDomainPostsItsChanges)
{
    int count = 0;
    const auto token =
        harness->center().addObserver(UserDefaults::didChangeNotification, &domains.standard(), nullptr,
                                      [&, thread = std::this_thread::get_id()](const Notification&) {
                                          ++count;
                                          EXPECT_EQ(std::this_thread::get_id(), thread);
                                      });
    const std::array<UserDefaults::Entry, 2> entries{{{"a", 1}, {"b", 2}}};
    domains.standard().write(entries);
    EXPECT_EQ(count, 0) << "no notification inside the write";
    harness->settle([&] { return count > 0; });
    EXPECT_EQ(count, 1) << "two values, one commit, one notification";
    domains.standard().removeObject("a");
    harness->settle([&] { return count > 1; });
    EXPECT_EQ(count, 2);
    EXPECT_EQ(domains.standard().integer("b"), 2);
}

TEST_P(UserDefaultsContractTest, ManagedConfigurationIsReadOnly)
{
    UserDefaults& standard = domains.standard();
    EXPECT_FALSE(standard.set(UserDefaults::managedConfigurationKey, PropertyList::Dictionary{{"a", 1}}));
    EXPECT_EQ(standard.object(UserDefaults::managedConfigurationKey), std::nullopt);
    EXPECT_FALSE(standard.removeObject(UserDefaults::managedConfigurationKey));
}

TEST(DeviceDefaultsTest, ReadsThePolicyAndRecordsItsErrors)
{
    const TemporaryFolder folder;
    RecordingUnifiedLog log;
    const AdapterLog adapterLog{log, "test"};
    ManualScheduler scheduler;
    NotificationCenter center;
    FakeUserDefaults store;
    OutcomeRecorder outcomes({store, scheduler, scheduler.mainQueue, scheduler});
    Linux::DeviceDefaults defaults({folder.path("state"), {.files = {folder.path("managed.json")}}},
                                   Storage::SQLiteUserDefaults::Access::readWrite, scheduler, adapterLog);
    defaults.recordErrors(outcomes);
    const auto managed = [&] {
        defaults.reloadPolicy(center, scheduler.mainQueue);
        auto found = defaults.standard().object(UserDefaults::managedConfigurationKey);
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

template <typename Harness>
std::unique_ptr<DefaultsHarness> makeHarness()
{
    return std::make_unique<Harness>();
}
INSTANTIATE_TEST_SUITE_P(Implementations, UserDefaultsContractTest,
                         testing::Values(Implementation{"Fake", makeHarness<FakeHarness>},
                                         Implementation{"SQLite", makeHarness<SQLiteHarness>}),
                         caseName<Implementation>);

} // namespace
