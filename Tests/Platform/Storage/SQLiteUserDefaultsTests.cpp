#include "Tests/Platform/Storage/SQLiteUserDefaultsTest.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <cmath>
#include <mutex>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Platform;
using namespace testing;

namespace {
std::mutex syncMutex;
/// The files and folders that this program has synchronized.
std::vector<std::string> synced;

int synchronize(long call, int descriptor)
{
    const std::lock_guard lock(syncMutex);
    synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)));
    return static_cast<int>(::syscall(call, descriptor));
}
} // namespace

extern "C" int fdatasync(int descriptor)
{
    return synchronize(SYS_fdatasync, descriptor);
}

extern "C" int fsync(int descriptor)
{
    return synchronize(SYS_fsync, descriptor);
}

namespace {

TEST_F(SQLiteUserDefaultsTest, FilesArePrivateAndReadableWithSQL)
{
    const mode_t umaskBefore = ::umask(0);
    const auto defaults = open();
    defaults->set("k", "text");
    EXPECT_THAT(synced,
                IsSupersetOf({folder.path("deep").string(), folder.path("deep").parent_path().string()}))
        << "new folders must be durable";
    defaults->set("b", true);
    synced.clear();
    defaults->set("c", Date{1.5});
    EXPECT_THAT(synced, ElementsAre(file.string() + "-wal")) << "a commit must be durable";
    ::umask(umaskBefore);
    EXPECT_EQ(
        shell("cd ${F%/*}; stat -c '%a %n' .. . *"),
        "700 ..\n700 .\n600 domain.bell\n600 domain.sqlite\n600 domain.sqlite-shm\n600 domain.sqlite-wal\n");

    EXPECT_EQ(shell("sqlite3 $F 'SELECT * FROM defaults ORDER BY key'"),
              "b|boolean|1\nc|date|1.5\nk|text|text\n");
}

TEST_F(SQLiteUserDefaultsTest, InvalidRowsCountAsMissingAndTriggersDoNotRun)
{
    const auto defaults = open();
    defaults->set("k", 1);
    SQLite::Database second(file.string(), SQLite::OPEN_READWRITE);
    const std::pair<const char*, std::optional<PropertyList>> rows[] = {
        {"'text', 5", {}},    {"'integer', 'five'", {}}, {"'data', 'text'", {}}, {"'plist', x'00'", {}},
        {"'unknown', 5", {}}, {"'date', 5", Date{5}},    {"'real', 5", 5.0},     {"'boolean', 2", true}};
    for (const auto& [row, value] : rows) {
        second.exec(std::string("REPLACE INTO defaults VALUES('k', ") + row + ")");
        EXPECT_EQ(defaults->object("k"), value) << row;
    }
    second.exec("CREATE TRIGGER t AFTER UPDATE ON defaults BEGIN DELETE FROM defaults; END");
    EXPECT_TRUE(defaults->set("k", std::nan("")));
    EXPECT_TRUE(std::isnan(*defaults->object("k").value().real()));
    EXPECT_TRUE(defaults->set("k", Date{std::nan("")}));
    EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(SQLiteUserDefaultsTest, ErasingLeavesNoTraceUnlessAnotherProcessReads)
{
    const auto defaults = open();
    for (const char* key : {"a", "b", "c"})
        defaults->set(key, std::string("canary-") + key);
    folder.write("deep/state/domain.sqlite.corrupt-1", "canary-a");
    const std::array<std::string_view, 2> keys{"a", "b"};
    // A program that does not overwrite what it deletes.
    ASSERT_EQ(shell("sqlite3 $F 'PRAGMA secure_delete = OFF' \"INSERT INTO defaults VALUES('d', 'text', "
                    "'canary-d'); DELETE FROM defaults WHERE key = 'd'\""),
              "0\n");
    {
        SQLite::Database reader(file.string(), SQLite::OPEN_READWRITE);
        const SQLite::Transaction reading(reader);
        reader.execAndGet("SELECT count(*) FROM defaults");
        EXPECT_FALSE(defaults->erase(keys));
        EXPECT_EQ(log.takeLines().size(), 1U);
    }
    EXPECT_TRUE(defaults->erase(keys));
    EXPECT_EQ(shell("cat ${F%/*}/* | grep -ao 'canary-.'"), "canary-c\n");
    EXPECT_EQ(defaults->text("c"), "canary-c");
}

TEST_F(SQLiteUserDefaultsTest, DamagedFilesAreMovedAsideAndLogged)
{
    open()->set("k", std::string(20'000, 'x'));
    const std::string good = folder.read("deep/state/domain.sqlite");
    ASSERT_GT(good.size(), 12'000U);
    const std::string contents[] = {
        std::string(good).replace(39, 1, 1, '\5'), // The number of free pages; its log fits.
        "not a database, but long enough to be looked at " + std::string(1000, '.'), good.substr(0, 8192),
        good.substr(0, 100)};
    for (const std::string& content : contents) {
        // Keeps its log, which does not fit another database.
        SQLite::Database other(file.string(), SQLite::OPEN_READWRITE);
        other.exec("REPLACE INTO defaults VALUES('other', 'integer', 1)");
        folder.write("deep/state/domain.sqlite", content);
        for (const char* name : {"", "-wal"})
            ::chmod((file.string() + name).c_str(), 0644);
        synced.clear();
        const auto defaults = open();
        EXPECT_EQ(defaults->object("k"), std::nullopt);
        EXPECT_EQ(synced.at(0), file.parent_path()) << "the new name must be durable before the new database";
        defaults->set("k", 1);
        EXPECT_EQ(defaults->integer("k"), 1);
        // Only the newest copy remains, with its log and index, and is private.
        const auto copies = filesNamedCorrupt();
        ASSERT_THAT(copies, SizeIs(3));
        EXPECT_TRUE(folder.read(copies[0]) == content) << copies[0];
        for (const std::string& copy : copies) {
            EXPECT_THAT(copy, StartsWith(copies[0]));
            EXPECT_EQ(std::filesystem::status(copy).permissions(), std::filesystem::perms(0600)) << copy;
        }
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr(file.string() + " is damaged: moved aside to ")));
    }
}

TEST_F(SQLiteUserDefaultsTest, EarlierFormatsAreUpgradedAndLaterOnesAreReadOnly)
{
    open()->set("k", 1);
    ASSERT_EQ(shell("sqlite3 $F 'PRAGMA user_version = 0'"), "");
    EXPECT_TRUE(open()->set("k", 2));
    EXPECT_TRUE(log.takeLines().empty());

    ASSERT_EQ(shell("sqlite3 $F \"PRAGMA user_version; PRAGMA user_version = 2; ALTER TABLE defaults ADD "
                    "COLUMN origin; INSERT INTO defaults VALUES('new', 'colour', 3, 4)\""),
              "1\n");
    const std::string before = folder.read("deep/state/domain.sqlite");
    const auto defaults = open();
    EXPECT_EQ(defaults->integer("k"), 2);
    EXPECT_EQ(defaults->object("new"), std::nullopt);
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("can only be read: it has format 2")));
    defaults->set("k", 3);
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("Cannot write " + file.string())));
    EXPECT_EQ(folder.read("deep/state/domain.sqlite"), before);
}

TEST_F(SQLiteUserDefaultsTest, MissingTableIsCreatedAndAnUnsuitableOneIsMovedAside)
{
    const std::pair<std::string, bool> cases[] = {
        {"", false},
        {"PRAGMA user_version = 0", false},
        {"PRAGMA user_version = 7", false},
        {"CREATE TABLE other(x)", false},
        // The table of earlier versions.
        {"CREATE TABLE defaults(key TEXT PRIMARY KEY, type TEXT NOT NULL, value NOT NULL) WITHOUT ROWID",
         false},
        {"CREATE TABLE defaults(key, value)", true},
        {"CREATE TABLE defaults(key, type, value)", true},
        {"CREATE VIEW defaults AS SELECT 'k' AS key, 'integer' AS type, 5 AS value", true},
    };
    for (const auto& [sql, isMovedAside] : cases) {
        SCOPED_TRACE(sql);
        std::filesystem::remove_all(folder.path("deep"));
        open()->set("k", 1);
        ASSERT_EQ(shell("sqlite3 $F \"DROP TABLE defaults; " + sql + '"'), "");
        const auto defaults = open();
        EXPECT_EQ(defaults->object("k"), std::nullopt);
        defaults->set("k", 2);
        EXPECT_EQ(shell("sqlite3 $F 'SELECT value FROM defaults' 'PRAGMA user_version'"), "2\n1\n");
        EXPECT_EQ(log.takeLines().size(), isMovedAside ? 1U : 0U);
        EXPECT_EQ(filesNamedCorrupt().size(), isMovedAside ? 1U : 0U);
    }
}

void writeLargeValues(UserDefaults& defaults, int count)
{
    for (int i = 0; i < count; ++i)
        defaults.set("k", std::string(100'000, static_cast<char>('a' + i % 26)));
}

TEST_F(SQLiteUserDefaultsTest, CheckpointsLimitTheSizeOfTheLog)
{
    const auto defaults = open();
    writeLargeValues(*defaults, 200);
    EXPECT_LT(std::filesystem::file_size(file.string() + "-wal"), 6'000'000U);
    ASSERT_EQ(shell("rm $F-wal"), "");
    EXPECT_EQ(defaults->text("k"), std::string(100'000, 'r')) << "our checkpoints are no foreign writes";
}

TEST_F(SQLiteUserDefaultsTest, ReadIsRepeatedAfterADiskError)
{
    const auto defaults = open();
    writeLargeValues(*defaults, 50);    // More than the pages of one checkpoint.
    ASSERT_EQ(shell(": > $F-wal"), ""); // SQLite cannot read a page that its index names.
    EXPECT_EQ(defaults->text("k").value_or("").size(), 100'000U);
    EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(SQLiteUserDefaultsTest, OpeningWaitsForAnotherProcessThatOpens)
{
    open()->set("k", 1);
    auto other = start("flock -s ${F%.sqlite}.bell sh -c \"echo > '$B.ready'; sleep 0.3; "
                       "sqlite3 '$F' 'UPDATE defaults SET value = 2'\"");
    EXPECT_EQ(open()->integer("k"), 2);
    EXPECT_EQ(other.get(), "");
}

const std::string readAll =
    "sqlite3 $F \"select key || '=' || value from defaults order by key\" 'PRAGMA integrity_check'";

TEST_F(SQLiteUserDefaultsTest, StoreReplacedByAnotherProcessIsReopened)
{
    // A command, and then the value of the key "version", which is 1 in the backup $B and 3 in the open store
    // $F.
    const std::pair<std::string, int> cases[] = {
        {"cp $B $F; rm $F-wal $F-shm", 1},
        {"mv $B $F", 1},
        {"ln $F $F.old; mv $B $F", 1},
        {"sqlite3 $F \".restore '$B'\"", 1},
        {"rm $F-wal", 3},
        {"rm $F-shm; exec sqlite3 $F 'UPDATE defaults SET value = 7' '.shell kill -9 $PPID'", 7},
        {"rm $F-wal $F-shm", 3},
        {"mv $F-wal $F-old-wal", 3},
        {"rm $F", 0},
        {"rm -r ${F%/*}", 0},
        {": > $F; rm $F-wal $F-shm", 0},
        {"sqlite3 $F 'DROP TABLE defaults'", 0},
    };
    for (const auto& [command, version] : cases) {
        for (const bool isReadFirst : {true, false}) {
            SCOPED_TRACE(command + (isReadFirst ? ", then a read" : ", then a write"));
            std::filesystem::remove_all(folder.path("deep"));
            const auto defaults = open();
            defaults->set("version", 1);
            ASSERT_EQ(shell("sqlite3 $F \".backup '$B'\""), "");
            defaults->set("version", 3);
            ASSERT_EQ(shell(command), "");
            if (isReadFirst) {
                EXPECT_EQ(defaults->integer("version"), version);
            }
            defaults->set("next", 4);
            EXPECT_EQ(shell(readAll),
                      "next=4\n" + (version > 0 ? "version=" + std::to_string(version) + "\n" : "") + "ok\n");
            EXPECT_EQ(defaults->integer("version"), version);
            expectNeitherLogNorCopies();
        }
    }
    // When the whole folder moves, only a write notices.
    const auto defaults = open();
    defaults->set("version", 5);
    std::filesystem::rename(folder.path("deep"), folder.path("moved"));
    defaults->set("next", 6);
    EXPECT_EQ(shell(readAll), "next=6\nok\n");
}

TEST_F(SQLiteUserDefaultsTest, RemovedLogIsNotDamageWhileAnotherProcessReads)
{
    const auto defaults = open();
    defaults->set("version", 1);
    // Another process runs a checkpoint, so the store cannot know whether the removed log belonged to it.
    ASSERT_EQ(shell("mkfifo $B.end; sqlite3 $F 'PRAGMA wal_checkpoint(TRUNCATE)'"), "0|0|0\n");
    auto reading = start("sqlite3 $F 'SELECT count(*) FROM defaults' '.shell echo > \"'$B.ready'\"' "
                         "'.shell cat \"'$B.end'\"'");
    defaults->set("version", 3);
    ASSERT_EQ(shell("rm $F-wal"), "");
    defaults->set("next", 4);
    EXPECT_EQ(shell(readAll), "next=4\nversion=1\nok\n");
    expectNeitherLogNorCopies();
    EXPECT_EQ(shell("echo > $B.end"), "");
    EXPECT_EQ(reading.get(), "\n1\n");
}

TEST_F(SQLiteUserDefaultsTest, CommitToReplacedFilesIsRepeated)
{
    const auto defaults = open();
    defaults->set("version", 1);
    ASSERT_EQ(shell("sqlite3 $F \".backup '$B'\""), "");
    defaults->set("version", 3);
    // Replaces the files while the write below waits for the other process's transaction.
    auto replacing = start("sqlite3 $F 'BEGIN IMMEDIATE' '.shell echo > \"'$B.ready'\"' '.shell sleep 0.3; "
                           "cp '$B' '$F'; rm '$F'-wal '$F'-shm' COMMIT");
    defaults->set("next", 4);
    EXPECT_EQ(replacing.get(), "");
    EXPECT_EQ(shell(readAll), "next=4\nversion=1\nok\n");
}

TEST_F(SQLiteUserDefaultsTest, FailedWriteIsLoggedAndLeavesTheStoreUnchanged)
{
    const auto defaults = open();
    defaults->set("k", 1);
    // The second of two rows fails.
    ASSERT_EQ(shell("sqlite3 $F 'CREATE UNIQUE INDEX everyValueOnce ON defaults(value)'"), "");
    const std::array<UserDefaults::Entry, 2> entries{{{"k", 2}, {"second", 2}}};
    for (const char* attempt : {"first", "second"}) {
        EXPECT_FALSE(defaults->write(entries));
        EXPECT_EQ(defaults->integer("k"), 1) << "all or none";
        EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("Cannot write " + file.string() + ": ")));
        EXPECT_TRUE(defaults->set(attempt, attempt));
    }
}

TEST_F(SQLiteUserDefaultsTest, UnreadValueIsNotOverwritten)
{
    const auto defaults = open();
    std::filesystem::create_directories(file.parent_path());
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    for (const char* key : {"a", "b"})
        EXPECT_EQ(defaults->object(key), std::nullopt);
    std::filesystem::remove(file);
    open()->set("a", "precious");
    log.takeLines();

    EXPECT_FALSE(defaults->set("a", "made without knowing"));
    EXPECT_THAT(log.takeLines(), ElementsAre(HasSubstr("a could not be read before")));
    EXPECT_EQ(open()->text("a"), "precious");
    EXPECT_TRUE(defaults->set("a", "made on purpose"));
    EXPECT_EQ(defaults->text("a"), "made on purpose");
    EXPECT_EQ(defaults->object("b"), std::nullopt);
    EXPECT_TRUE(defaults->set("b", 1)) << "it could be read by now";
}

} // namespace
