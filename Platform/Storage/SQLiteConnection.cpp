#include "Platform/Storage/SQLiteConnection.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace Platform::Storage {

namespace {

using Mode = SQLiteConnection::Mode;

/// How long to wait for a writer in another process.
constexpr int busyTimeoutMilliseconds = 5000;

/// SQLite's default.
constexpr int pagesPerCheckpoint = 1000;

/// Far more than the app stores: the largest policy file has 16 MiB.
constexpr int maximumValueBytes = 64 << 20;

/// The app's own statements have fewer than 200 bytes.
constexpr int maximumSQLBytes = 10'000;

/// How much of a database may stay in memory. Typical stores have fewer than ten pages of 4 KiB.
constexpr int keptCacheBytes = 128 << 10;

/// Returns the file name or URI for SQLite; see https://sqlite.org/uri.html.
std::string databaseName(const std::string& file, Mode mode)
{
    if (mode == Mode::writing || mode == Mode::reading)
        return file;
    std::string uri = "file:";
    for (const char character : file) {
        if (character == '%' || character == '?' || character == '#')
            uri += fmt::format("%{:02x}", static_cast<unsigned char>(character));
        else
            uri += character;
    }
    return uri + (mode == Mode::unchanging ? "?immutable=1" : "?vfs=unix-none");
}

int openFlags(Mode mode)
{
    switch (mode) {
    case Mode::writing:
        return SQLite::OPEN_READWRITE;
    case Mode::reading:
        return SQLite::OPEN_READONLY;
    case Mode::unchanging:
    case Mode::readingLeftLog:
        break;
    }
    return SQLite::OPEN_READONLY | SQLite::OPEN_URI;
}

SQLite::Database openDatabase(const std::string& file, Mode mode)
{
    // Otherwise SQLite preallocates 20 pages for each database and its temporary database, half a MiB in the
    // app. This only has an effect before SQLite is first used.
    static const int result = ::sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
    static_cast<void>(result);
    return {databaseName(file, mode), openFlags(mode), busyTimeoutMilliseconds};
}

} // namespace

// O_PATH, because closing an ordinary descriptor would release SQLite's locks on the file.
SQLiteConnection::OpenedFile::OpenedFile(std::string path)
    : m_path(std::move(path)), m_descriptor(::open(m_path.c_str(), O_PATH | O_CLOEXEC))
{
    static_cast<void>(hasChanged());
}

bool SQLiteConnection::OpenedFile::hasChanged()
{
    struct stat status {};
    if (!m_descriptor || ::fstat(m_descriptor.get(), &status) != 0)
        return false;
    const timespec before = std::exchange(m_change, status.st_ctim);
    return before.tv_sec != m_change.tv_sec || before.tv_nsec != m_change.tv_nsec;
}

bool SQLiteConnection::OpenedFile::mayHaveChanged()
{
    const bool isSuspect = hasChanged() || m_isTickUnfinished;
    if (isSuspect) {
        // The clock of file time stamps.
        timespec tick{};
        ::clock_gettime(CLOCK_REALTIME_COARSE, &tick);
        m_isTickUnfinished =
            std::tie(m_change.tv_sec, m_change.tv_nsec) >= std::tie(tick.tv_sec, tick.tv_nsec);
    }
    return isSuspect;
}

bool SQLiteConnection::OpenedFile::isInPlace() const
{
    struct stat opened {};
    struct stat named {};
    return !m_descriptor ||
           (::fstat(m_descriptor.get(), &opened) == 0 && ::stat(m_path.c_str(), &named) == 0 &&
            opened.st_dev == named.st_dev && opened.st_ino == named.st_ino);
}

bool SQLiteConnection::OpenedFile::isPathFree() const
{
    return ::access(m_path.c_str(), F_OK) != 0 && errno == ENOENT;
}

SQLiteConnection::SQLiteConnection(const std::filesystem::path& file, Mode mode)
    : m_path(file.string()), m_mode(mode), m_database(openDatabase(m_path, mode))
{
    sqlite3* handle = m_database.getHandle();
    // Recommended for untrusted files; see https://sqlite.org/security.html.
    ::sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    for (const int feature :
         {SQLITE_DBCONFIG_TRUSTED_SCHEMA, SQLITE_DBCONFIG_ENABLE_VIEW, SQLITE_DBCONFIG_ENABLE_TRIGGER})
        ::sqlite3_db_config(handle, feature, 0, nullptr);
    ::sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, maximumValueBytes);
    ::sqlite3_limit(handle, SQLITE_LIMIT_SQL_LENGTH, maximumSQLBytes);
    m_database.exec("PRAGMA cell_size_check = ON");
    if (mode == Mode::readingLeftLog)
        m_database.exec("PRAGMA locking_mode = EXCLUSIVE"); // Keeps the index in memory.
}

SQLiteConnection::~SQLiteConnection()
{
    if (m_mode == Mode::writing && !isDatabaseInPlace() && m_log.exists() && m_log.isInPlace())
        emptyLog();
    // SQLite runs a checkpoint when the last connection closes.
    if (!isSafeToCheckpoint())
        ::sqlite3_db_config(m_database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

bool SQLiteConnection::hasTable()
{
    SQLite::Statement kind(m_database,
                           "SELECT type = 'table' AND sql LIKE 'CREATE TABLE %' FROM sqlite_schema "
                           "WHERE name = 'defaults' COLLATE NOCASE AND type IN ('table', 'view')");
    if (!kind.executeStep())
        return false;
    if (kind.getColumn(0).getInt() == 0)
        throw SQLite::Exception("it is not a store of this app: 'defaults' is not an ordinary table",
                                SQLITE_CORRUPT);
    return true;
}

void SQLiteConnection::prepare()
{
    m_select.emplace(m_database, "SELECT type, value FROM defaults WHERE key = ?1");
    if (m_mode == Mode::writing)
        m_upsert.emplace(m_database,
                         "INSERT INTO defaults(key, type, value) VALUES(?1, ?2, ?3) "
                         "ON CONFLICT(key) DO UPDATE SET type = excluded.type, value = excluded.value");
    ::sqlite3_wal_hook(
        m_database.getHandle(),
        [](void* pageCount, sqlite3*, const char*, int count) {
            *static_cast<int*>(pageCount) = count;
            return SQLITE_OK;
        },
        &m_logPageCount);
    m_folder = OpenedFile(std::filesystem::path(m_path).parent_path().string());
    m_databaseFile = OpenedFile(m_path);
    m_log = OpenedFile(m_path + "-wal");
    m_index = OpenedFile(m_path + "-shm");
}

SQLite::Statement& SQLiteConnection::upsert()
{
    if (!m_upsert)
        throw SQLite::Exception("the database is read-only", SQLITE_READONLY);
    return *m_upsert;
}

bool SQLiteConnection::isCurrent()
{
    // Renaming, removing or replacing a file changes the status of its folder, which is cheaper to check than
    // the paths.
    if (m_folder.mayHaveChanged())
        m_isInPlace = areFilesInPlace();
    if (isShared())
        return m_isInPlace;
    noticeForeignWrites();
    return m_isInPlace && !m_isWrittenByOthers;
}

bool SQLiteConnection::isCommitVisible()
{
    noticeForeignWrites();
    m_isInPlace = areFilesInPlace();
    return m_isInPlace;
}

void SQLiteConnection::checkpointIfDue()
{
    if (m_logPageCount < pagesPerCheckpoint)
        return;
    m_logPageCount = 0;
    ::sqlite3_wal_checkpoint_v2(m_database.getHandle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    m_databaseFile.hasChanged();
}

void SQLiteConnection::releaseLargeCache()
{
    int usedBytes = 0;
    int unused = 0;
    ::sqlite3_db_status(m_database.getHandle(), SQLITE_DBSTATUS_CACHE_USED, &usedBytes, &unused, 0);
    if (usedBytes > keptCacheBytes)
        ::sqlite3_db_release_memory(m_database.getHandle());
}

bool SQLiteConnection::isDatabaseInPlace()
{
    int hasMoved = 0;
    ::sqlite3_file_control(m_database.getHandle(), nullptr, SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    return hasMoved == 0;
}

bool SQLiteConnection::areFilesInPlace()
{
    return isDatabaseInPlace() && m_log.isInPlace() && m_index.isInPlace();
}

void SQLiteConnection::noticeForeignWrites()
{
    // Only checkpoints write to a shared database, and `checkpointIfDue()` accounts for ours.
    const bool isDatabaseChanged = m_databaseFile.hasChanged();
    const bool isLogChanged = m_log.hasChanged();
    m_isWrittenByOthers = m_isWrittenByOthers || isDatabaseChanged || (isLogChanged && !isShared());
}

bool SQLiteConnection::isSafeToCheckpoint()
{
    if (m_mode != Mode::writing)
        return false;
    if (isCommitVisible())
        return true;
    // If only the log was removed, a checkpoint rescues its content, since SQLite still has it open. But a
    // database that someone else has written may be a backup, which the checkpoint would damage; and a new
    // log belongs to a newer state than ours.
    return isDatabaseInPlace() && !m_isWrittenByOthers && m_log.isPathFree();
}

/// For a database that was replaced: SQLite would apply our log to the new one.
void SQLiteConnection::emptyLog() noexcept
{
    ::sqlite3_busy_timeout(m_database.getHandle(), 0);
    ::sqlite3_wal_checkpoint_v2(m_database.getHandle(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                                nullptr);
}

} // namespace Platform::Storage
