#pragma once

#include "Platform/AdapterLog.h"
#include "Platform/Storage/SQLiteStore.h"
#include "Platform/UserDefaults.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace Platform::Storage {

/// One defaults domain as one SQLite database, with the table `defaults(key, type, value)`.
///
/// Types: text, integer, real, boolean (0 or 1), date (seconds since 2001-01-01T00:00:00Z), data (blob), and
/// plist, a binary property list, for everything else. Write-ahead log, every commit synchronised. After a
/// commit the writer touches the bell file beside the database; whoever watches that file learns of every
/// writer's changes.
///
/// The connection opens at the first use, and again after any of its files was removed or replaced. A write
/// returns only when its commit is in the files that other processes open. A missing table is created. A file
/// that is no database, or has a table `defaults` of another kind, is moved aside to "*.corrupt-<UTC time>",
/// for the user alone, and replaced by a new one; of these copies only the newest is kept. One that cannot be
/// written is still read, and opened again by the next write. The user version of the database is the number
/// of its format; a file of a later format is read as far as it is understood and never written.
///
/// Files that another user could have prepared are refused, and nothing is created next to them; see
/// `PrivateFiles.h`. When root inspects a store of another user, it reads with the rights of that user.
///
/// Threads: any; one operation at a time. Errors: one line to the log for each new reason. A value that could
/// not be read counts as missing, and the next write of its key fails: it may rest on that mistake.
class SQLiteUserDefaults final : public UserDefaults {
public:
    using Access = SQLiteStore::Access;

    SQLiteUserDefaults(std::filesystem::path file, Access access, const Clock& clock, const AdapterLog& log);
    ~SQLiteUserDefaults() override;

    /// Opens the database if need be. With `inspect`, false as well when there is none.
    [[nodiscard]] bool isAvailable() const override;
    [[nodiscard]] const std::filesystem::path& bellFile() const;

    [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const override;
    bool write(std::span<const Entry> entries) override;
    bool removeObject(std::string_view key) override;
    void synchronize() override {}
    /// Removes the keys and every byte that the files still hold of their present and earlier values, damaged
    /// copies included. Returns false, with one error line, when that cannot be done now, for example because
    /// another process is reading.
    bool erase(std::span<const std::string_view> keys);

private:
    bool change(const std::function<void(SQLiteConnection&)>& operation);

    mutable std::mutex m_mutex;
    const std::unique_ptr<SQLiteStore> m_store;
    /// What the last attempt to read could not tell: whoever writes it next would not know what is lost.
    mutable std::set<std::string, std::less<>> m_unreadKeys;
};

} // namespace Platform::Storage
