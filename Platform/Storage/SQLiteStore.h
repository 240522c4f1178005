#pragma once

#include "Platform/AdapterLog.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

namespace Platform {
class Clock;
}

namespace Platform::Storage {

class SQLiteConnection;

/// A database with a table `defaults(key, type, value)` and its bell file: opened at the first use, and again
/// after any of its files was removed or replaced; created, moved aside or left alone as `SQLiteUserDefaults`
/// promises.
///
/// Threads: one at a time. Errors: one line to the log for each new reason.
class SQLiteStore {
public:
    /// `inspect` neither makes nor moves any file, for a second process that only looks.
    enum class Access { readWrite, inspect };
    enum class Purpose { read, write };

    SQLiteStore(std::filesystem::path file, Access access, const Clock& clock, const AdapterLog& log);
    ~SQLiteStore();
    SQLiteStore(const SQLiteStore&) = delete;
    SQLiteStore& operator=(const SQLiteStore&) = delete;

    /// Whether the database is open. Whether it is still good is found out by its next use.
    [[nodiscard]] bool isOpen() const { return m_connection != nullptr; }
    [[nodiscard]] const std::filesystem::path& bellFile() const { return m_bell; }

    /// Runs `operation` on the open connection and returns whether it succeeded; all errors end here. It runs
    /// again on a new connection after a damaged file was moved aside, a read met an error of the disk, the
    /// table was lost, or the files were replaced during a write.
    bool perform(Purpose purpose, const std::function<void(SQLiteConnection&)>& operation);
    /// Tells other processes about a commit.
    void ringBell() const;
    /// Removes the damaged copies, except for the one whose path begins with `kept`.
    void removeDamagedCopies(std::string_view kept = {}) const;

private:
    /// Leaves no connection when there is nothing to inspect.
    void ensureOpen(Purpose purpose);
    /// Throws when another user could have prepared what is about to be opened.
    void requireTrustedFiles() const;
    void openForWriting();
    void openAsIs();
    void removeIndexWithoutLog() const;
    void openOrReplace();
    void moveAside() const;

    const std::filesystem::path m_file;
    const std::filesystem::path m_bell;
    const Access m_access;
    const Clock& m_clock;
    const AdapterLog& m_log;
    std::unique_ptr<SQLiteConnection> m_connection;
    ErrorLine m_errorLine;
    ErrorLine m_readOnlyLine;
};

} // namespace Platform::Storage
