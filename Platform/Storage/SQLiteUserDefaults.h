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

/// A defaults domain in a SQLite database with the table `defaults(key, type, value)`.
///
/// Types: text, integer, real, boolean (0 or 1), date (seconds since 2001-01-01T00:00:00Z), data (blob), and
/// plist (a binary property list) for everything else. The database has a write-ahead log, and every commit
/// is durable. After a commit the writer touches the bell file next to the database; processes watch that
/// file to learn of each other's changes.
///
/// The connection opens on first use, and again after one of its files was removed or replaced. A write
/// succeeds only once its commit is in the files that other processes open. A missing table is created. A
/// file that is not a database, or whose table `defaults` is unsuitable, is moved aside to "*.corrupt-<UTC
/// time>", accessible only to the user, and replaced by a new database; only the newest copy is kept. A
/// database that cannot be written is opened read-only; the next write tries again. The database's user
/// version is its format number: a later format is read as far as possible and never written.
///
/// Files that another user could have created are refused, and nothing is created next to them; see
/// `PrivateFiles.h`. Root inspects another user's store with that user's rights.
///
/// Threads: any; operations are serialized. Errors: logged, once per reason. A value that could not be read
/// counts as missing, and the next write of its key fails, because it might overwrite a value it should have
/// used.
class SQLiteUserDefaults final : public UserDefaults {
public:
    using Access = SQLiteStore::Access;

    SQLiteUserDefaults(std::filesystem::path file, Access access, const Clock& clock, const AdapterLog& log);
    ~SQLiteUserDefaults() override;

    /// Opens the database if necessary. With `inspect`, returns false if there is no database.
    [[nodiscard]] bool isAvailable() const override;
    [[nodiscard]] const std::filesystem::path& bellFile() const;

    [[nodiscard]] std::optional<PropertyList> object(std::string_view key) const override;
    bool write(std::span<const Entry> entries) override;
    bool removeObject(std::string_view key) override;
    void synchronize() override {}
    /// Removes the keys and all traces of their current and earlier values from the files, and deletes the
    /// damaged copies. Returns false and logs an error if this is not possible now, for example because
    /// another process is reading.
    bool erase(std::span<const std::string_view> keys);

private:
    bool change(const std::function<void(SQLiteConnection&)>& operation);

    mutable std::mutex m_mutex;
    const std::unique_ptr<SQLiteStore> m_store;
    /// The keys whose last read failed. A write of one would overwrite an unknown value.
    mutable std::set<std::string, std::less<>> m_unreadKeys;
};

} // namespace Platform::Storage
