// Protects a store from other users, and its reader from a hostile store.

#include "Tests/Platform/Storage/SQLiteUserDefaultsTest.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <grp.h>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

using namespace Platform;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uid_t user = 12345;

/// Runs `work`, including its expectations, in a process of another user. Requires root.
void runAs(uid_t uid, const std::function<void()>& work)
{
    std::fflush(stdout);
    const pid_t process = ::fork();
    if (process == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(uid) != 0 || ::setuid(uid) != 0)
            ::_exit(2);
        work();
        std::fflush(stdout);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}

/// Commands use $F for the store, $S for its folder deep/state, and $THEIRS for a folder of user 65534 with
/// another store. Both stores contain the value 1. Other users can enter the parent folder.
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
    /// Returns all properties and contents of the files, except their access times.
    [[nodiscard]] std::string everything() const
    {
        return run("cd $S/..; find . -printf '%p %U %m %s %T@ %l\\n' | sort; "
                   "find . -type f -exec md5sum {} + | sort");
    }
};

TEST_F(SQLiteProtectionTest, AppUsesOnlyAPrivateStore)
{
    struct Case {
        const char* name;
        const char* command;
        /// Empty if the store is used, and private afterwards.
        const char* reason;
        bool needsRoot = false;
    };
    const Case cases[] = {
        {"open folder", "chmod 777 $S", ""},
        {"open files", "chmod 666 $F $S/domain.bell; : > $F-wal; chmod 666 $F-wal", ""},
        {"in a sticky folder", "chmod 1777 $S/..", ""},
        {"our link to our folder", "mv $S $S.real; ln -s state.real $S", ""},
        {"below an open folder in a private one", "chmod 700 $S/../..; chmod 777 $S/..", ""},
        {"below forty links",
         "mv $S $S.0; for i in $(seq 39); do ln -s state.$((i-1)) $S.$i; done; ln -s state.39 $S", ""},
        {"missing below an open folder", "chmod 777 $S/..; rm -r $S", "/deep can be written by others"},
        {"below an open folder", "chmod 777 $S/..",
         "/deep can be written by others (mode 0777); set XDG_DATA_HOME"},
        {"created by another user in a sticky folder",
         "chmod 1777 $S/..; rm -r $S; as_stranger cp -r $THEIRS $S; chmod 777 $S; chmod 666 $S/*",
         "/state belongs to user 65534; set XDG_DATA_HOME to a folder that belongs to this user alone", true},
        {"created empty by another user", "chmod 1777 $S/..; rm -r $S; as_stranger mkdir -m 777 $S",
         "/state belongs to user 65534", true},
        {"below a folder of another user", "chown 65534 $S/..", "/deep belongs to user 65534", true},
        {"our link to another user's folder", "rm -r $S; ln -s theirs $S", "/theirs belongs to user 65534",
         true},
        {"another user's link", "chmod 1777 $S/..; mv $S $S.real; as_stranger ln -s state.real $S",
         "/state belongs to user 65534", true},
        {"store of another user", "chown 65534 $F; chmod 666 $F", "domain.sqlite belongs to user 65534",
         true},
        {"log of another user", "cp $F $F-wal; chown 65534 $F-wal", "-wal belongs to user 65534", true},
        {"journal of another user", "cp $F $F-journal; chown 65534 $F-journal",
         "-journal belongs to user 65534", true},
        {"link", "mv $F $F.real; ln -s domain.sqlite.real $F", "domain.sqlite is a link; remove it"},
        {"dangling link", "mv $F $F.real; ln -s $S/new $F", "domain.sqlite is a link; remove it"},
        {"index is a link", "mkdir $S/x; ln -s x/y $F-shm", "-shm is a link"},
        {"hard link", "ln $F $F.other", "has several hard links"},
        {"pipe", "rm $F; mkfifo $F", "domain.sqlite is not a regular file"},
        {"log is a pipe", "mkfifo $F-wal", "-wal is not a regular file"},
        {"journal is a folder", "mkdir $F-journal", "-journal is not a regular file"},
    };
    for (const Case& row : cases) {
        if (row.needsRoot && ::geteuid() != 0)
            continue;
        SCOPED_TRACE(row.name);
        begin();
        ASSERT_EQ(run(row.command), "");
        const std::string before = everything();
        const auto defaults = open();
        const bool isRefused = *row.reason != '\0';
        EXPECT_EQ(defaults->isAvailable(), !isRefused);
        EXPECT_EQ(defaults->integer("k"), isRefused ? 0 : 1);
        EXPECT_EQ(defaults->set("new", "canary"), !isRefused);
        const auto lines = log.takeLines();
        if (isRefused) {
            EXPECT_EQ(lines.size(), 2U) << "expected one for reading and one for writing";
            EXPECT_THAT(lines, testing::Each(HasSubstr(row.reason)));
            EXPECT_EQ(everything(), before);
        } else {
            EXPECT_THAT(lines, IsEmpty());
            EXPECT_EQ(run("find -H $S -perm /077"), "");
        }
    }
}

TEST_F(SQLiteProtectionTest, IgnoresABellThatIsALink)
{
    for (const bool isOpenBefore : {false, true}) {
        begin();
        auto defaults = open();
        if (isOpenBefore) {
            EXPECT_TRUE(defaults->set("k", 1));
        }
        ASSERT_EQ(run("cd $S; echo precious > file; touch -d @1 file; chmod 644 file; ln -sf file "
                      "domain.bell"),
                  "");
        EXPECT_EQ(defaults->integer("k"), 1);
        EXPECT_EQ(defaults->set("k", 2), isOpenBefore);
        EXPECT_EQ(run("cd $S; stat -c '%Y %a' file; cat file"), "1 644\nprecious\n");
        if (!isOpenBefore) {
            EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("domain.bell is a link; remove it"),
                                                     HasSubstr("the database is read-only")));
        }
    }
}

TEST_F(SQLiteProtectionTest, ReadsAStoreInAReadOnlyHome)
{
    const auto check = [&] {
        EXPECT_EQ(open()->integer("k"), 1);
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("can only be read: ")));
        const SQLiteUserDefaults missing(folder.path("deep/state/new/domain.sqlite"), Access::readWrite,
                                         clock, adapterLog);
        EXPECT_EQ(missing.object("k"), std::nullopt);
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("/new: Permission denied")));
    };
    begin();
    ASSERT_EQ(run("rm $S/domain.bell; chmod 500 $S"), "");
    if (::geteuid() == 0) {
        ASSERT_EQ(run("chown -R 12345 $S"), "");
        runAs(user, check);
    } else {
        check();
    }
    EXPECT_EQ(run("chmod 700 $S"), "");
}

TEST_F(SQLiteProtectionTest, InspectingReadsOnlyWhatRootOrTheUserOwns)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "requires root";
    struct Case {
        const char* name;
        const char* command;
        /// Empty if the store can be read.
        const char* reasonForUser;
        const char* reasonForRoot = "";
    };
    const Case cases[] = {
        {"the user's own", "chown -R 12345 $S", ""},
        {"the user's own, open to others", "chown -R 12345 $S; chmod 777 $S; chmod 666 $S/*", ""},
        {"root's", "chmod 755 $S; chmod 644 $F", ""},
        {"another user's", "chown -R 65534 $S; chmod 777 $S; chmod 666 $S/*", "belongs to user 65534"},
        {"another user's log", "chmod 755 $S; chmod 644 $F; cp $F $F-wal; chown 65534 $F-wal",
         "-wal belongs to user 65534", "-wal belongs to user 65534"},
        {"another user's store with a file of root's as its log", "chown -R 65534 $S; echo precious > $F-wal",
         "Permission denied"},
        {"link to root's store",
         "chmod 777 $S; chmod 644 $F; mv $F $F.real; as_stranger ln -s domain.sqlite.real $F", "is a link",
         "is a link"},
        {"hard link", "chmod 777 $S; chmod 644 $F; ln $F $S/second", "has several hard links",
         "has several hard links"},
        {"index is a link to a file of root's",
         "chmod 755 $S; chmod 644 $F; : > $F-wal; echo precious > $S/file; ln -s file $F-shm",
         "-shm is a link", "-shm is a link"},
        {"pipe", "chmod 755 $S; rm $F; mkfifo $F", "is not a regular file", "is not a regular file"},
        {"log is a pipe", "chmod 755 $S; mkfifo $F-wal", "-wal is not a regular file",
         "-wal is not a regular file"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        begin();
        ASSERT_EQ(run(row.command), "");
        const std::string before = everything();
        const auto check = [&](const char* reason) {
            EXPECT_EQ(open(Access::inspect)->integer("k"), *reason == '\0' ? 1 : 0);
            const auto lines = log.takeLines();
            if (*reason == '\0')
                EXPECT_THAT(lines, IsEmpty());
            else
                EXPECT_THAT(lines, ElementsAre(HasSubstr(reason)));
        };
        runAs(user, [&] { check(row.reasonForUser); });
        check(row.reasonForRoot);
        EXPECT_EQ(everything(), before);
    }
}

TEST_F(SQLiteProtectionTest, InspectingAStoreWithALogButNoIndexCreatesNothing)
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
        // The reader notices the next writer.
        if (row.expected == "third") {
            SQLiteUserDefaults next(folder.path("deep/copy/domain.sqlite"), Access::readWrite, clock,
                                    adapterLog);
            EXPECT_TRUE(next.set("k", "fourth"));
            EXPECT_EQ(looking.text("k"), "fourth");
        }
        std::filesystem::remove_all(folder.path("deep/copy"));
    }
}

/// Returns the growth of the process's peak memory while `work` runs.
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

TEST_F(SQLiteProtectionTest, HostileStoreCannotExhaustTheInspector)
{
    struct Case {
        const char* command;
        const char* reason;
    };
    const Case cases[] = {
        {"sqlite3 $F \"CREATE VIEW defaults AS SELECT 'k' AS key, 'data' AS type, zeroblob(900000000) AS "
         "value\"",
         "it is not a store of this app: 'defaults' is not an ordinary table"},
        {"sqlite3 $F \"CREATE VIEW DEFAULTS AS SELECT 'k' AS key, 'data' AS type, zeroblob(900000000) AS "
         "value\"",
         "it is not a store of this app: 'defaults' is not an ordinary table"},
        {"sqlite3 $F \"CREATE TABLE defaults(key TEXT PRIMARY KEY, type TEXT, value AS "
         "(zeroblob(900000000))); INSERT INTO defaults VALUES('k', 'data')\"",
         "too big"},
        {"sqlite3 $F 'CREATE VIRTUAL TABLE defaults USING fts5(key, type, value)'",
         "it is not a store of this app: 'defaults' is not an ordinary table"},
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
    // The app's own data is far below the limits.
    PropertyList::Array identifiers;
    for (int number = 0; number < 100'000; ++number)
        identifiers.emplace_back("com.example.application.number" + std::to_string(number));
    begin();
    EXPECT_TRUE(open()->set("list", identifiers));
    EXPECT_EQ(open(Access::inspect)->object("list"), PropertyList(identifiers));
}

} // namespace
