#include "Platform/Storage/SQLiteStore.h"

#include "Platform/Clock.h"
#include "Platform/Storage/FileDescriptor.h"
#include "Platform/Storage/PrivateFiles.h"
#include "Platform/Storage/SQLiteConnection.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Platform::Storage {

namespace {

/// Increase it when older versions cannot read the file any longer. The oldest files have version 0.
constexpr int formatVersion = 1;
constexpr const char* initialisation =
    "BEGIN IMMEDIATE;"
    "CREATE TABLE IF NOT EXISTS defaults(key TEXT NOT NULL PRIMARY KEY, type TEXT "
    "NOT NULL, value NOT NULL);"
    "PRAGMA user_version = 1;"
    "COMMIT";

bool isCorruption(const SQLite::Exception& error)
{
    return error.getErrorCode() == SQLITE_CORRUPT || error.getErrorCode() == SQLITE_NOTADB;
}

/// Returns whether the table is missing or has other columns.
bool isTableLost(const SQLite::Exception& error)
{
    return error.getErrorCode() == SQLITE_ERROR;
}

/// The suffix of a damaged copy, followed by the time.
constexpr const char* corruptMark = ".corrupt-";

/// Prevents our processes from opening or replacing the same database at the same time.
class OpeningLock {
public:
    explicit OpeningLock(const std::filesystem::path& bellFile)
        : m_file(openPrivateFile(bellFile, O_RDWR | O_CREAT))
    {
        if (::flock(m_file.get(), LOCK_EX) != 0)
            throw std::system_error(errno, std::generic_category(), bellFile.string());
    }

private:
    FileDescriptor m_file;
};

bool isThere(const std::filesystem::path& file, const char* ending)
{
    return ::access((file.string() + ending).c_str(), F_OK) == 0;
}

/// A database with a log and an index may be in use by a writer. SQLite would create both to read a database
/// without them, which an inspector must not do and a read-only medium does not permit.
SQLiteConnection::Mode readingMode(const std::filesystem::path& file, SQLiteStore::Access access)
{
    if (isThere(file, "-wal"))
        return isThere(file, "-shm") ? SQLiteConnection::Mode::reading
                                     : SQLiteConnection::Mode::readingLeftLog;
    const bool isToBeLeftAlone =
        access == SQLiteStore::Access::inspect || ::access(file.parent_path().c_str(), W_OK) != 0;
    return isToBeLeftAlone ? SQLiteConnection::Mode::unchanging : SQLiteConnection::Mode::reading;
}

} // namespace

SQLiteStore::SQLiteStore(std::filesystem::path file, Access access, const Clock& clock, const AdapterLog& log)
    : m_file(std::move(file)),
      m_bell(std::filesystem::path(m_file).replace_extension(".bell")),
      m_access(access),
      m_clock(clock),
      m_log(log),
      m_errorLine(log),
      m_readOnlyLine(log)
{}

SQLiteStore::~SQLiteStore() = default;

bool SQLiteStore::perform(Purpose purpose, const std::function<void(SQLiteConnection&)>& operation)
{
    std::optional<OwnersRights> rights;
    if (m_access == Access::inspect)
        rights.emplace(m_file);
    std::string reason = "its files keep being replaced";
    constexpr int maximumAttempts = 3;
    for (int attempt = 1; attempt <= maximumAttempts; ++attempt) {
        try {
            ensureOpen(purpose);
            if (!m_connection)
                return false;
            operation(*m_connection);
            if (purpose == Purpose::write) {
                if (!m_connection->isCommitVisible())
                    continue;
                m_connection->checkpointIfDue();
                m_connection->releaseLargeCache();
            }
            m_errorLine.reset();
            return true;
        } catch (const SQLite::Exception& error) {
            reason = error.what();
            const bool isDiskError = error.getErrorCode() == SQLITE_IOERR;
            const bool isUnfit = isCorruption(error) || isTableLost(error);
            if (isUnfit || isDiskError)
                m_connection.reset();
            if (!isUnfit && !(isDiskError && purpose == Purpose::read))
                break;
        } catch (const std::runtime_error& error) {
            reason = error.what();
            break;
        }
    }
    const char* what = purpose == Purpose::write ? "write" : "read";
    m_errorLine.report(fmt::format("Cannot {} {}: {}", what, m_file.string(), reason));
    return false;
}

void SQLiteStore::ensureOpen(Purpose purpose)
{
    const bool isToBeWritten = m_access == Access::readWrite;
    if (m_connection) {
        const bool isWorthReopening = m_connection->mode() != SQLiteConnection::Mode::writing &&
                                      isToBeWritten && purpose == Purpose::write;
        const bool isOutdated = m_connection->mode() != SQLiteConnection::Mode::writing &&
                                m_connection->mode() != readingMode(m_file, m_access);
        if (m_connection->isCurrent() && !isWorthReopening && !isOutdated)
            return;
        m_connection.reset();
    }
    requireTrustedFiles();
    if (isToBeWritten) {
        try {
            openForWriting();
            m_readOnlyLine.reset();
            return;
        } catch (const std::exception& error) {
            openAsIs();
            if (!m_connection)
                throw;
            m_readOnlyLine.report(fmt::format("{} can only be read: {}", m_file.string(), error.what()));
        }
    } else {
        openAsIs();
    }
}

void SQLiteStore::requireTrustedFiles() const
{
    const bool isOwn = m_access == Access::readWrite;
    if (isOwn)
        preparePrivateFolder(m_file.parent_path(), "XDG_DATA_HOME");
    for (const char* ending : {"", "-wal", "-shm", "-journal"})
        isOwn ? preparePrivateFile(m_file.string() + ending) : requireReadableFile(m_file.string() + ending);
}

void SQLiteStore::openForWriting()
{
    const OpeningLock lock(m_bell);
    try {
        openOrReplace();
    } catch (const SQLite::Exception& error) {
        if (!isCorruption(error))
            throw;
        moveAside();
        openOrReplace();
    }
}

void SQLiteStore::openAsIs()
{
    if (!isThere(m_file, ""))
        return;
    auto connection = std::make_unique<SQLiteConnection>(m_file, readingMode(m_file, m_access));
    // A writer that was killed while creating the database leaves it without a table.
    if (!connection->hasTable())
        return;
    connection->prepare();
    m_connection = std::move(connection);
}

/// Removes an index whose log was removed. SQLite shares the index with processes that still have the
/// database open, and would look up pages of the removed log in the new one. A process that closes the
/// database removes both files under a lock that opening waits for.
void SQLiteStore::removeIndexWithoutLog() const
{
    if (!isThere(m_file, "-wal"))
        ::unlink((m_file.string() + "-shm").c_str());
}

void SQLiteStore::openOrReplace()
{
    // Create the file first, so that the database, its log and its index are private from the start. Close it
    // before SQLite opens it, since closing any descriptor of a file releases this process's locks on it.
    static_cast<void>(
        FileDescriptor(::open(m_file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR)));
    removeIndexWithoutLog();
    auto connection = std::make_unique<SQLiteConnection>(m_file, SQLiteConnection::Mode::writing);
    SQLite::Database& database = connection->database();
    const int version = database.execAndGet("PRAGMA user_version").getInt();
    const bool isEmpty = database.execAndGet("SELECT count(*) FROM sqlite_schema").getInt() == 0;
    if (version > formatVersion && !isEmpty)
        throw SQLite::Exception(fmt::format("it has format {}, but this version of the app only supports {}; "
                                            "install the version that wrote it, or a later one",
                                            version, formatVersion),
                                SQLITE_READONLY);
    database.exec("PRAGMA journal_mode = WAL");
    database.exec("PRAGMA synchronous = FULL");
    SQLite::Statement check(database, "PRAGMA quick_check(1)");
    if (!check.executeStep() || std::strcmp(check.getColumn(0).getText(), "ok") != 0)
        throw SQLite::Exception("the database is damaged", SQLITE_CORRUPT);
    check.reset();
    if (version != formatVersion || !connection->hasTable())
        database.exec(initialisation);
    try {
        connection->prepare();
    } catch (const SQLite::Exception& error) {
        if (!isTableLost(error))
            throw;
        throw SQLite::Exception(fmt::format("it is not a store of this app: {}", error.what()),
                                SQLITE_CORRUPT);
    }
    m_connection = std::move(connection);
}

void SQLiteStore::moveAside() const
{
    std::string time = m_clock.now().utcText();
    std::replace(time.begin(), time.end(), ':', '-');
    const std::string aside = m_file.string() + corruptMark + time;
    for (const char* companion : {"", "-wal", "-shm"}) {
        const std::filesystem::path damaged = m_file.string() + companion;
        std::error_code error;
        std::filesystem::rename(damaged, aside + companion, error);
        if (*companion == '\0' && error)
            throw std::system_error(error, damaged.string());
    }
    // After a power cut, the disk might otherwise hold the new database but not the new name of this one.
    synchronizeFolder(m_file.parent_path());
    removeDamagedCopies(aside);
    m_log.error(fmt::format("{} is damaged: moved aside to {}; delete this copy when you no longer need it, "
                            "because it may contain keys",
                            m_file.string(), aside));
}

void SQLiteStore::ringBell() const
{
    // Opening the database has created the file. If it was removed since then, the next opening recreates it.
    ::utimensat(AT_FDCWD, m_bell.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
}

void SQLiteStore::removeDamagedCopies(std::string_view kept) const
{
    std::error_code error;
    std::filesystem::directory_iterator entry(m_file.parent_path(), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string& path = entry->path().native();
        if (path.starts_with(m_file.string() + corruptMark) && (kept.empty() || !path.starts_with(kept)))
            ::unlink(path.c_str());
    }
}

} // namespace Platform::Storage
