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

/// SQLite and nothing around it: the table of our stores, as durable as they are, every statement prepared
/// once. Throws `std::runtime_error`.
class BareDatabase {
public:
    /// `lazy` does not wait for the disk.
    enum class Durability { full, lazy };

    explicit BareDatabase(const std::filesystem::path& file, Durability durability = Durability::full);

    /// The four rows, as one transaction.
    void write(const SnapshotRecord& record);
    /// One row, as one transaction.
    void write(std::string_view key, std::string_view bytes);
    void remove(std::string_view key);
    /// The stored bytes, none when there is no such row; valid until the next call.
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

/// Brings the write-ahead log to the length at which it is folded in and begun anew. From then on a commit
/// overwrites what the file has already, as in a process that has been saving for long; before, it also waits
/// for the file system to make the file longer.
void fillLog(const std::filesystem::path& file, const SnapshotRecord& record);

/// A settings file of Qt with the same four values.
class SettingsFile {
public:
    explicit SettingsFile(const std::filesystem::path& file);
    ~SettingsFile();
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    void write(const SnapshotRecord& record);
    /// How long the stored snapshot is, read from the file anew if another process replaced it since.
    std::size_t snapshotSize();
    [[nodiscard]] std::int64_t version() const;

private:
    std::unique_ptr<QSettings> m_settings;
};
