// What a store may do to its reader.

#include "Tests/Platform/Storage/SQLiteUserDefaultsTest.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <fstream>
#include <functional>
#include <optional>
#include <unistd.h>

using namespace Platform;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// The store is in deep/state, in a folder that other users may enter. $S is its folder, $F the store, and
/// $THEIRS a folder of the user 65534 with a copy of it, both with the value 1.
class SQLiteProtectionTest : public SQLiteUserDefaultsTest {
protected:
    void begin() const
    {
        std::filesystem::remove_all(folder.path("deep"));
        for (const char* state : {"deep/theirs", "deep/state"})
            SQLiteUserDefaults(folder.path(state) / "domain.sqlite", Access::readWrite, clock, adapterLog)
                .set("k", 1);
        const bool isRoot = ::geteuid() == 0;
        ASSERT_EQ(run(std::string("chmod 755 $S/../.. $S/.. ; chmod -R a+rwX $THEIRS") +
                      (isRoot ? "; chown -R 65534 $THEIRS" : "")),
                  "");
    }
    [[nodiscard]] std::string run(const std::string& command) const
    {
        return shell("umask 022; S=${F%/*}; THEIRS=${S%/*}/theirs; as_stranger() { setpriv --reuid 65534 "
                     "--clear-groups -- \"$@\"; }; " +
                     command);
    }
};

TEST_F(SQLiteProtectionTest, InspectingAStoreThatWasLeftWithItsLogCreatesNothing)
{
    struct Case {
        const char* name;
        const char* command;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"with its log", "cp $F $F-wal $C", "third"},
        {"with its log and index, as after a kill", "cp $F $F-wal $F-shm $C", "third"},
        {"an incomplete commit", "cp $F $F-wal $C; truncate -s -1 $C/domain.sqlite-wal", "second"},
        {"damaged in the log",
         "cp $F $F-wal $C; printf x | dd of=$C/domain.sqlite-wal bs=1 seek=32 conv=notrunc", std::nullopt},
        {"an empty log", "cp $F $C; : > $C/domain.sqlite-wal", std::nullopt},
        {"no log but other bytes", "cp $F $C; head -c 99999 /dev/zero > $C/domain.sqlite-wal", std::nullopt},
    };
    begin();
    std::filesystem::remove_all(folder.path("deep/state"));
    const auto writing = open();
    for (const char* value : {"first", "second", "third"})
        writing->set("k", value);
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const std::string copy = "C=$S/../copy; ";
        ASSERT_EQ(run(copy + "mkdir $C; exec 2> /dev/null; " + row.command), "");
        const std::string before = run(copy + "cd $C; ls; md5sum *e *l");
        const SQLiteUserDefaults looking(folder.path("deep/copy/domain.sqlite"), Access::inspect, clock,
                                         adapterLog);
        EXPECT_EQ(looking.text("k"), row.expected);
        EXPECT_EQ(run(copy + "cd $C; ls; md5sum *e *l"), before);
        EXPECT_THAT(log.takeLines(), IsEmpty());
        // The next process to write is noticed.
        if (row.expected == "third") {
            SQLiteUserDefaults next(folder.path("deep/copy/domain.sqlite"), Access::readWrite, clock,
                                    adapterLog);
            EXPECT_TRUE(next.set("k", "fourth"));
            EXPECT_EQ(looking.text("k"), "fourth");
        }
        std::filesystem::remove_all(folder.path("deep/copy"));
    }
}

/// What the process takes at most while `work` runs, beyond what it has.
std::size_t peakKibibytes(const std::function<void()>& work)
{
    const auto figure = [](const char* name) {
        std::ifstream status("/proc/self/status");
        std::size_t value = 0;
        for (std::string word; status >> word;) {
            if (word == name)
                status >> value;
        }
        return value;
    };
    std::ofstream("/proc/self/clear_refs") << 5; // Resets the peak; see proc(5).
    const std::size_t before = figure("VmRSS:");
    work();
    const std::size_t peak = figure("VmHWM:");
    return peak > before ? peak - before : 0;
}

TEST_F(SQLiteProtectionTest, HostileStoreCostsTheInspectorLittle)
{
    struct Case {
        const char* command;
        const char* reason;
    };
    const Case cases[] = {
        {"sqlite3 $F \"CREATE VIEW defaults AS SELECT 'k' AS key, 'data' AS type, zeroblob(900000000) AS "
         "value\"",
         "it is not a store of this app: defaults is not an ordinary table"},
        {"sqlite3 $F \"CREATE VIEW DEFAULTS AS SELECT 'k' AS key, 'data' AS type, zeroblob(900000000) AS "
         "value\"",
         "it is not a store of this app: defaults is not an ordinary table"},
        {"sqlite3 $F \"CREATE TABLE defaults(key TEXT PRIMARY KEY, type TEXT, value AS "
         "(zeroblob(900000000))); INSERT INTO defaults VALUES('k', 'data')\"",
         "too big"},
        {"sqlite3 $F 'CREATE VIRTUAL TABLE defaults USING fts5(key, type, value)'",
         "it is not a store of this app: defaults is not an ordinary table"},
        {"sqlite3 $F \"CREATE TABLE defaults(key, type, value /* $(head -c 100000 /dev/zero | tr '\\0' x) "
         "*/)\"",
         "malformed database schema"},
        {"sqlite3 $F 'CREATE TABLE defaults(key, type, value)'; truncate -s 3G $F-wal", ""},
        {"truncate -s 3G $F", "not a database"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.command);
        begin();
        ASSERT_EQ(run("rm $S/*; " + std::string(row.command)), "");
        const auto looking = open(Access::inspect);
        EXPECT_LT(peakKibibytes([&] { EXPECT_EQ(looking->object("k"), std::nullopt); }), 50'000U);
        const auto lines = log.takeLines();
        if (*row.reason == '\0')
            EXPECT_THAT(lines, IsEmpty());
        else
            EXPECT_THAT(lines, ElementsAre(HasSubstr(row.reason)));
    }
    // What the app itself may have to store is far from the limits.
    PropertyList::Array identifiers;
    for (int number = 0; number < 100'000; ++number)
        identifiers.emplace_back("com.example.application.number" + std::to_string(number));
    begin();
    EXPECT_TRUE(open()->set("list", identifiers));
    EXPECT_EQ(open(Access::inspect)->object("list"), PropertyList(identifiers));
}

} // namespace
