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

/// A database with the table `defaults(key, type, value)` and its bell file. Opens it on first use, and again
/// after one of its files was removed or replaced; creates it or moves it aside as described in
/// `SQLiteUserDefaults`.
///
/// Threads: one at a time. Errors: logged, once per reason.
class SQLiteStore {
public:
    /// `inspect` creates and moves no files; other processes use it to read the store.
    enum class Access { readWrite, inspect };
    enum class Purpose { read, write };

    SQLiteStore(std::filesystem::path file, Access access, const Clock& clock, const AdapterLog& log);
    ~SQLiteStore();
    SQLiteStore(const SQLiteStore&) = delete;
    SQLiteStore& operator=(const SQLiteStore&) = delete;

    /// Returns whether a connection is open. Its next use checks whether it is still current.
    [[nodiscard]] bool isOpen() const { return m_connection != nullptr; }
    [[nodiscard]] const std::filesystem::path& bellFile() const { return m_bell; }

    /// Runs `operation` on an open connection and returns whether it succeeded. Catches all errors. May run
    /// `operation` several times, each on a new connection: after a damaged file was moved aside, a read
    /// failed with a disk error, the table was missing, or the files were replaced during a write.
    bool perform(Purpose purpose, const std::function<void(SQLiteConnection&)>& operation);
    /// Notifies other processes of a commit.
    void ringBell() const;
    /// Removes the damaged copies, except those whose paths start with `kept`.
    void removeDamagedCopies(std::string_view kept = {}) const;

private:
    /// Opens no connection if there is no database to inspect.
    void ensureOpen(Purpose purpose);
    /// Throws if another user could have created the files.
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
