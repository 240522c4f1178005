// Protects a store from other users, and its reader from a hostile store.

#include "Platform/Storage/PathWalk.h"
#include "Tests/Platform/Storage/SQLiteUserDefaultsTest.h"

#include <functional>
#include <unistd.h>

using namespace Platform;
using namespace testing;

namespace {

constexpr uid_t user = 12345;

/// Calls `work` with the rights of another user. Requires root.
void runAs(uid_t uid, const std::function<void()>& work)
{
    ASSERT_EQ(::setresuid(uid, uid, 0), 0);
    work();
    ASSERT_EQ(::setresuid(0, 0, 0), 0);
}

/// Commands use $F for the store, $S for its folder deep/state, and $THEIRS for a folder of user 65534 with
/// another store. Both stores contain the value 1. Other users can enter the parent folder.
class SQLiteProtectionTest : public SQLiteUserDefaultsTest {
protected:
    void begin() const
    {
        std::filesystem::remove_all(folder.path("deep"));
        for (const char* state : {"deep/theirs", "deep/state"})
            SQLiteUserDefaults(folder.path(state) / "domain.sqlite", Access::readWrite, clock, log.adapterLog)
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
    /// Expects one log line with `part`, or none if `part` is empty.
    void expectLogged(std::string_view part)
    {
        const auto lines = log.takeLines();
        EXPECT_EQ(lines.size(), part.empty() ? 0U : 1U);
        EXPECT_THAT(lines, Each(HasSubstr(std::string(part))));
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
    // The reason is empty if the store is used, and private afterwards.
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"open folder", "chmod 777 $S", ""},
        {"open files", "chmod 666 $F $S/domain.bell; : > $F-wal; chmod 666 $F-wal", ""},
        {"in a sticky folder", "chmod 1777 $S/..", ""},
        {"our link to our folder", "mv $S $S.real; ln -s state.real $S", ""},
        {"below an open folder in a private one", "chmod 700 $S/../..; chmod 777 $S/..", ""},
        {"missing below an open folder", "chmod 770 $S/..; rm -r $S", "/deep can be written by others"},
        {"below an open folder", "chmod 777 $S/..",
         "/deep can be written by others (mode 0777); set XDG_DATA_HOME"},
        {"created by another user in a sticky folder",
         "chmod 1777 $S/..; rm -r $S; as_stranger cp -r $THEIRS $S; chmod 777 $S; chmod 666 $S/*",
         "/state belongs to user 65534; set XDG_DATA_HOME to a folder that belongs to this user alone"},
        {"below a folder of another user", "chown 65534 $S/..", "/deep belongs to user 65534"},
        {"our link to another user's folder", "rm -r $S; ln -s theirs $S", "/theirs belongs to user 65534"},
        {"our link out of a private folder",
         "chmod 700 $S/..; O=${S%/*}-open; mkdir $O; chmod 703 $O; mv $S $O; ln -s $O/state $S",
         "/deep-open can be written by others"},
        {"another user's link", "chmod 1777 $S/..; mv $S $S.real; as_stranger ln -s state.real $S",
         "/state belongs to user 65534"},
        {"store of another user", "chown 65534 $F; chmod 666 $F", "domain.sqlite belongs to user 65534"},
        {"log of another user", "cp $F $F-wal; chown 65534 $F-wal", "-wal belongs to user 65534"},
        {"journal of another user", "cp $F $F-journal; chown 65534 $F-journal",
         "-journal belongs to user 65534"},
        {"link", "mv $F $F.real; ln -s domain.sqlite.real $F", "domain.sqlite is a link; remove it"},
        {"index is a link", "mkdir $S/x; ln -s x/y $F-shm", "-shm is a link"},
        {"hard link", "ln $F $F.other", "has several hard links"},
        {"pipe", "rm $F; mkfifo $F", "domain.sqlite is not a regular file"},
        {"journal is a folder", "mkdir $F-journal", "-journal is not a regular file"},
    };
    for (const auto& [name, command, reason] : cases) {
        if (reason.find("user 65534") != std::string::npos && ::geteuid() != 0)
            continue; // Only root can create files of another user.
        SCOPED_TRACE(name);
        begin();
        ASSERT_EQ(run(command), "");
        const std::string before = everything();
        const auto defaults = open();
        const bool isRefused = !reason.empty();
        EXPECT_EQ(defaults->isAvailable(), !isRefused);
        EXPECT_EQ(defaults->integer("k"), isRefused ? 0 : 1);
        EXPECT_EQ(defaults->set("new", "canary"), !isRefused);
        const auto lines = log.takeLines();
        if (isRefused) {
            EXPECT_EQ(lines.size(), 2U) << "expected one for reading and one for writing";
            EXPECT_THAT(lines, Each(HasSubstr(reason)));
            EXPECT_EQ(everything(), before);
        } else {
            EXPECT_THAT(lines, IsEmpty());
            EXPECT_EQ(run("find -H $S -perm /077"), "");
        }
    }
}

TEST_F(SQLiteProtectionTest, StickyBitProtectsOnlyFolders)
{
    begin();
    ASSERT_EQ(run("chmod 1777 $S; chmod 1666 $F"), "");
    EXPECT_THAT(Storage::distrustReason(Storage::walkPath(file)).value_or("trusted"),
                HasSubstr("domain.sqlite can be written by others (mode 1666)"));
}

TEST_F(SQLiteProtectionTest, IgnoresABellThatIsALinkOrBelongsToOthers)
{
    begin();
    auto defaults = open();
    EXPECT_TRUE(defaults->set("k", 1));
    ASSERT_EQ(run("cd $S; echo precious > file; touch -d @1 file; chmod 644 file; ln -sf file domain.bell"),
              "");
    EXPECT_TRUE(defaults->set("k", 2)) << "the store is open";
    EXPECT_THAT(log.takeLines(), IsEmpty());
    defaults = open();
    EXPECT_EQ(defaults->integer("k"), 2);
    EXPECT_FALSE(defaults->set("k", 3));
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("domain.bell is a link; remove it"),
                                             HasSubstr("the database is read-only")));
    EXPECT_EQ(run("cd $S; stat -c '%Y %a' file; cat file"), "1 644\nprecious\n");
    EXPECT_EQ(defaults->integer("k"), 2);
    ASSERT_EQ(run("rm $S/domain.bell"), "");
    EXPECT_TRUE(defaults->set("k", 3));
    EXPECT_THAT(log.takeLines(), IsEmpty());
    ASSERT_EQ(run("sqlite3 $F \".backup $F.new\"; mv $F.new $F; ln -sf file $S/domain.bell"), "");
    EXPECT_EQ(defaults->integer("k"), 3);
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("domain.bell is a link"))) << "once more";
    if (::geteuid() != 0)
        return;
    ASSERT_EQ(run("cd $S; rm domain.bell; : > domain.bell; chown 65534 domain.bell"), "");
    EXPECT_FALSE(open()->set("k", 4));
    EXPECT_THAT(log.takeLines(), Contains(HasSubstr("domain.bell belongs to user 65534")));
}

TEST_F(SQLiteProtectionTest, ReadsAStoreInAReadOnlyHome)
{
    const auto check = [&] {
        EXPECT_EQ(open()->integer("k"), 1);
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("can only be read: ")));
        const SQLiteUserDefaults missing(folder.path("deep/state/new/domain.sqlite"), Access::readWrite,
                                         clock, log.adapterLog);
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
    // The reason is empty if the user can read the store. Finally, whether root can read it.
    const std::tuple<const char*, const char*, const char*, bool> cases[] = {
        {"the user's own", "chown -R 12345 $S", "", true},
        {"root's", "chmod 755 $S; chmod 644 $F", "", true},
        {"another user's", "chown -R 65534 $S; chmod 777 $S; chmod 666 $S/*", "belongs to user 65534", true},
        {"another user's log", "chmod 755 $S; chmod 644 $F; cp $F $F-wal; chown 65534 $F-wal",
         "-wal belongs to user 65534", false},
        {"another user's store with a file of root's as its log", "chown -R 65534 $S; echo precious > $F-wal",
         "Permission denied", true},
        {"link to root's store",
         "chmod 777 $S; chmod 644 $F; mv $F $F.real; as_stranger ln -s domain.sqlite.real $F", "is a link",
         false},
        {"index is a link to a file of root's",
         "chmod 755 $S; chmod 644 $F; : > $F-wal; echo precious > $S/file; ln -s file $F-shm",
         "-shm is a link", false},
    };
    for (const auto& [name, command, reason, isReadableForRoot] : cases) {
        SCOPED_TRACE(name);
        begin();
        ASSERT_EQ(run(command), "");
        const std::string before = everything();
        const auto check = [&](const std::string& expected) {
            EXPECT_EQ(open(Access::inspect)->integer("k"), expected.empty() ? 1 : 0);
            expectLogged(expected);
        };
        runAs(user, [&, given = std::string(reason)] { check(given); });
        check(isReadableForRoot ? "" : reason);
        EXPECT_EQ(everything(), before);
    }
}

TEST_F(SQLiteProtectionTest, InspectingChangesNothingAndNoticesTheNextWriter)
{
    // $O is a store that is in use, $F its copy.
    const std::tuple<const char*, std::string, std::optional<std::string>> cases[] = {
        {"no folder", "rmdir $S", {}},
        {"a writer was killed in its first step", ": > $F", {}},
        {"closed", "sqlite3 $O \".backup $F\"", "third"},
        {"with its log", "cp $O $O-wal $S", "third"},
        {"with its log and index, as after a kill", "cp $O $O-wal $O-shm $S", "third"},
        {"an incomplete commit", "cp $O $O-wal $S; truncate -s -1 $F-wal", "second"},
        {"damaged in the log", "cp $O $O-wal $S; printf x | dd of=$F-wal bs=1 seek=32 conv=notrunc", {}},
        {"an empty log", "cp $O $S; : > $F-wal", {}},
        {"no log but other bytes", "cp $O $S; head -c 99999 /dev/zero > $F-wal", {}},
    };
    const auto writing = open();
    for (const char* value : {"first", "second", "third"})
        writing->set("k", value);
    file = folder.path("deep/5%41#?/domain.sqlite"); // Characters with a meaning in the URI for SQLite.
    const std::string list = "cd $S && ls && md5sum *e *l";
    for (const auto& [name, command, expected] : cases) {
        SCOPED_TRACE(name);
        ASSERT_EQ(run("O=$S/../state/domain.sqlite; mkdir $S; exec 2> /dev/null; " + command), "");
        const std::string before = run(list);
        const auto looking = open(Access::inspect);
        EXPECT_EQ(looking->text("k"), expected);
        EXPECT_EQ(looking->isAvailable(), expected.has_value());
        EXPECT_EQ(run(list), before);
        EXPECT_THAT(log.takeLines(), IsEmpty());
        if (expected == "third") {
            EXPECT_TRUE(open()->set("k", "fourth"));
            EXPECT_EQ(looking->text("k"), "fourth");
            const auto next = open();
            EXPECT_TRUE(next->set("k", "fifth"));
            EXPECT_EQ(looking->text("k"), "fifth");
        }
        std::filesystem::remove_all(file.parent_path());
    }
}

TEST_F(SQLiteProtectionTest, InspectingRejectsAHostileStore)
{
    const std::string content = " AS SELECT 'k' AS key, 'data' AS type, zeroblob(900000000) AS value\"";
    const char* notATable = "it is not a store of this app: 'defaults' is not an ordinary table";
    const std::pair<std::string, const char*> cases[] = {
        {"sqlite3 $F \"CREATE VIEW defaults" + content, notATable},
        {"sqlite3 $F \"CREATE VIEW DEFAULTS" + content, notATable},
        {"sqlite3 $F \"CREATE TABLE defaults(key TEXT PRIMARY KEY, type TEXT, value AS "
         "(zeroblob(900000000))); INSERT INTO defaults VALUES('k', 'data')\"",
         "too big"},
        {"sqlite3 $F 'CREATE VIRTUAL TABLE defaults USING fts5(key, type, value)'", notATable},
        {"head -c 9999 /dev/zero > $F", "not a database"},
        {"sqlite3 $F \"CREATE TABLE defaults(key, type, value /* $(printf %99999d 0) */)\"",
         "malformed database schema"},
    };
    for (const auto& [command, reason] : cases) {
        SCOPED_TRACE(command);
        begin();
        ASSERT_EQ(run("rm $S/*; " + command), "");
        EXPECT_EQ(open(Access::inspect)->object("k"), std::nullopt);
        EXPECT_THAT(filesNamedCorrupt(), IsEmpty());
        expectLogged(reason);
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
