#pragma once

#include "Platform/Storage/FileDescriptor.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

namespace Platform::Storage {

/// An open database with its prepared statements.
///
/// While a database is open, a backup may be copied over it, and its write-ahead log and index may be
/// removed. SQLite does not notice: it goes on with the files it has open, which no other process sees. This
/// class compares them with the files at their paths.
///
/// The content is untrusted, since root inspects databases of other users: views, triggers and unsafe
/// functions of the schema are off, and values and statements are limited in size.
///
/// Threads: one at a time. Errors: `SQLite::Exception`.
class SQLiteConnection {
public:
    enum class Mode {
        writing,
        reading,
        /// The caller expects no changes, and SQLite ignores a write-ahead log.
        unchanging,
        /// Reads a log that was left without an index, as in a backup, and creates no index. The caller
        /// expects no changes: nothing is locked.
        readingLeftLog,
    };

    SQLiteConnection(const std::filesystem::path& file, Mode mode);
    /// Saves what only the log holds into the database, unless that could damage a file that replaced ours.
    ~SQLiteConnection();
    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;

    [[nodiscard]] Mode mode() const { return m_mode; }
    SQLite::Database& database() { return m_database; }

    /// Returns whether there is a table `defaults`. Throws `SQLITE_CORRUPT` when that is a view or a virtual
    /// table, which can compute any amount of data.
    bool hasTable();
    /// Prepares the statements and remembers which files are open. Call it once, when the table exists.
    void prepare();
    SQLite::Statement& select() { return *m_select; }
    /// Takes key, type name and value as its parameters. Throws unless the mode is `writing`.
    SQLite::Statement& upsert();

    /// Returns false once another process that opens the database would not see what this connection sees.
    /// Call it before each use.
    bool isCurrent();
    /// Call it right after each commit. False means that the commit may be lost and must be repeated on a new
    /// connection. Notices more than `isCurrent`: that a folder above was moved.
    bool isCommitVisible();
    /// Runs a checkpoint when the log has grown. Call it after a commit that turned out to be visible:
    /// SQLite's own checkpoints do not wait for that.
    void checkpointIfDue();
    /// Gives up the pages in memory where they are many. Call it after a commit.
    void releaseLargeCache();

private:
    /// A file that SQLite has open, or the folder of such files.
    class OpenedFile {
    public:
        OpenedFile() = default;
        explicit OpenedFile(std::string path);

        /// Returns whether the status of the file changed since the last call.
        bool hasChanged();
        /// The same, but true as well while another change would carry the time of the last one.
        bool mayHaveChanged();
        [[nodiscard]] bool exists() const { return static_cast<bool>(m_descriptor); }
        /// Returns whether the path still names this file. A file that never existed is in place.
        [[nodiscard]] bool isInPlace() const;
        [[nodiscard]] bool isPathFree() const;

    private:
        std::string m_path;
        FileDescriptor m_descriptor;
        timespec m_change{};
        bool m_isTickUnfinished = true;
    };

    [[nodiscard]] bool isShared() const { return m_mode == Mode::writing || m_mode == Mode::reading; }
    bool isDatabaseInPlace();
    bool areFilesInPlace();
    void noticeForeignWrites();
    bool isSafeToCheckpoint();
    void emptyLog() noexcept;

    const std::string m_path;
    const Mode m_mode;
    SQLite::Database m_database;
    std::optional<SQLite::Statement> m_select;
    std::optional<SQLite::Statement> m_upsert;
    OpenedFile m_folder;
    OpenedFile m_databaseFile;
    OpenedFile m_log;
    OpenedFile m_index;
    int m_logPageCount = 0;
    bool m_isInPlace = true;
    bool m_isWrittenByOthers = false;
};

} // namespace Platform::Storage
