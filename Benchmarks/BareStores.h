#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;
class QSettings;

/// The four values of a stored snapshot.
struct SnapshotRecord {
    std::string snapshot;
    std::int64_t version = 0;
    double lastUpdated = 0;
    std::int64_t schemaVersion = 1;
};

/// Plain SQLite with the table and the durability of our stores, and with every statement prepared once.
/// Throws `std::runtime_error`.
class BareDatabase {
public:
    /// `lazy` does not wait for the disk.
    enum class Durability { full, lazy };

    explicit BareDatabase(const std::filesystem::path& file, Durability durability = Durability::full);

    /// Writes the four rows in one transaction.
    void write(const SnapshotRecord& record);
    /// Writes one row in one transaction.
    void write(std::string_view key, std::string_view bytes);
    void remove(std::string_view key);
    /// The stored bytes, empty if there is no such row; valid until the next call.
    std::string_view bytes(std::string_view key);

    static constexpr std::string_view snapshotKey = "ConfigSnapshot";

private:
    struct Close {
        void operator()(sqlite3* database) const;
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    [[nodiscard]] Statement prepared(const char* text) const;
    void run(const char* text) const;
    void run(const Statement& statement) const;
    template <typename Bind>
    void upsert(std::string_view key, std::string_view type, Bind bindValue);
    void upsertData(std::string_view key, std::string_view bytes);

    std::unique_ptr<sqlite3, Close> m_database;
    Statement m_begin;
    Statement m_commit;
    Statement m_upsert;
    Statement m_select;
    Statement m_delete;
};

/// Fills the write-ahead log up to its first checkpoint. From then on, as in a process that has been running
/// for a while, commits overwrite the file. Before that, they also wait for the file system to extend it.
void fillLog(const std::filesystem::path& file, const SnapshotRecord& record);

/// A QSettings file with the same four values.
class SettingsFile {
public:
    explicit SettingsFile(const std::filesystem::path& file);
    ~SettingsFile();
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    void write(const SnapshotRecord& record);
    /// The size of the stored snapshot in bytes, read again from the file if another process replaced it.
    std::size_t snapshotSize();
    [[nodiscard]] std::int64_t version() const;

private:
    std::unique_ptr<QSettings> m_settings;
};
