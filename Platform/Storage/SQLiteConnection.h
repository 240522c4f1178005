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
/// A backup may be copied over an open database, and its write-ahead log and index may be removed. SQLite
/// does not notice this: it continues to use its open files, which no other process sees. This class
/// therefore compares them with the files at their paths.
///
/// Since root inspects other users' databases, the content is untrusted: views, triggers and unsafe schema
/// functions are disabled, and the sizes of values and statements are limited.
///
/// Threads: one at a time. Errors: `SQLite::Exception`.
class SQLiteConnection {
public:
    enum class Mode {
        writing,
        reading,
        /// The caller expects no changes, and SQLite ignores a write-ahead log.
        unchanging,
        /// Reads a log without an index, as found in a backup, and creates no index. The caller expects no
        /// changes, and nothing is locked.
        readingLeftLog,
    };

    SQLiteConnection(const std::filesystem::path& file, Mode mode);
    /// Runs a checkpoint, unless it could damage a file that has replaced ours.
    ~SQLiteConnection();
    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;

    [[nodiscard]] Mode mode() const { return m_mode; }
    SQLite::Database& database() { return m_database; }

    /// Returns whether the table `defaults` exists. Throws `SQLITE_CORRUPT` if it is a view or a virtual
    /// table, which could produce unlimited data.
    bool hasTable();
    /// Prepares the statements and records which files are open. Call it once, when the table exists.
    void prepare();
    SQLite::Statement& select() { return *m_select; }
    /// The statement's parameters are key, type name and value. Throws unless the mode is `writing`.
    SQLite::Statement& upsert();

    /// Returns whether other processes that open the database see the same content as this connection. Call
    /// it before each use.
    bool isCurrent();
    /// Returns whether other processes see the last commit. Call it right after each commit; false means that
    /// the commit may be lost and must be repeated on a new connection. Unlike `isCurrent()`, it also notices
    /// that a parent folder was moved.
    bool isCommitVisible();
    /// Runs a checkpoint if the log has grown. Call it after `isCommitVisible()` has confirmed a commit;
    /// SQLite's own automatic checkpoints would not wait for that.
    void checkpointIfDue();
    /// Frees the cached pages if there are many. Call it after a commit.
    void releaseLargeCache();

private:
    /// A file that SQLite has open, or the folder of such files.
    class OpenedFile {
    public:
        OpenedFile() = default;
        explicit OpenedFile(std::string path);

        /// Returns whether the file's status (ctime) has changed since the last call.
        bool hasChanged();
        /// Like `hasChanged()`, but also true while a further change could have the same time stamp as the
        /// last.
        bool mayHaveChanged();
        [[nodiscard]] bool exists() const { return static_cast<bool>(m_descriptor); }
        /// Returns whether the path still refers to this file. True for a file that never existed.
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
