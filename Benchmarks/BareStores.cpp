#include "Benchmarks/BareStores.h"

#include <QSettings>
#include <sqlite3.h>

#include <stdexcept>

namespace {

void bindText(sqlite3_stmt* statement, int index, std::string_view text)
{
    ::sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

} // namespace

void BareDatabase::Close::operator()(sqlite3* database) const
{
    ::sqlite3_close(database);
}

void BareDatabase::Close::operator()(sqlite3_stmt* statement) const
{
    ::sqlite3_finalize(statement);
}

BareDatabase::BareDatabase(const std::filesystem::path& file, Durability durability)
{
    sqlite3* database = nullptr;
    const int result = ::sqlite3_open(file.c_str(), &database);
    m_database.reset(database);
    if (result != SQLITE_OK)
        throw std::runtime_error("cannot open " + file.string());
    run("PRAGMA journal_mode = WAL");
    run(durability == Durability::full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = OFF");
    run("CREATE TABLE IF NOT EXISTS defaults(key TEXT PRIMARY KEY, type TEXT NOT NULL, value NOT NULL)");
    m_begin = prepared("BEGIN IMMEDIATE");
    m_commit = prepared("COMMIT");
    m_upsert = prepared("INSERT INTO defaults VALUES(?1, ?2, ?3) "
                        "ON CONFLICT(key) DO UPDATE SET type = excluded.type, value = excluded.value");
    m_select = prepared("SELECT value FROM defaults WHERE key = ?1");
    m_delete = prepared("DELETE FROM defaults WHERE key = ?1");
}

BareDatabase::Statement BareDatabase::prepared(const char* text) const
{
    sqlite3_stmt* statement = nullptr;
    if (::sqlite3_prepare_v2(m_database.get(), text, -1, &statement, nullptr) != SQLITE_OK)
        throw std::runtime_error(::sqlite3_errmsg(m_database.get()));
    return Statement(statement);
}

void BareDatabase::run(const char* text) const
{
    if (::sqlite3_exec(m_database.get(), text, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(::sqlite3_errmsg(m_database.get()));
}

void BareDatabase::run(const Statement& statement) const
{
    if (::sqlite3_step(statement.get()) != SQLITE_DONE)
        throw std::runtime_error(::sqlite3_errmsg(m_database.get()));
    ::sqlite3_reset(statement.get());
}

template <typename Bind>
void BareDatabase::upsert(std::string_view key, std::string_view type, Bind bindValue)
{
    bindText(m_upsert.get(), 1, key);
    bindText(m_upsert.get(), 2, type);
    bindValue(m_upsert.get(), 3);
    run(m_upsert);
}

void BareDatabase::upsertData(std::string_view key, std::string_view bytes)
{
    upsert(key, "data", [&](sqlite3_stmt* statement, int index) {
        ::sqlite3_bind_blob(statement, index, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    });
}

void BareDatabase::write(const SnapshotRecord& record)
{
    run(m_begin);
    upsertData(snapshotKey, record.snapshot);
    upsert("ConfigVersion", "integer", [&](sqlite3_stmt* statement, int index) {
        ::sqlite3_bind_int64(statement, index, record.version);
    });
    upsert("LastUpdated", "date", [&](sqlite3_stmt* statement, int index) {
        ::sqlite3_bind_double(statement, index, record.lastUpdated);
    });
    upsert("SchemaVersion", "integer", [&](sqlite3_stmt* statement, int index) {
        ::sqlite3_bind_int64(statement, index, record.schemaVersion);
    });
    run(m_commit);
}

void BareDatabase::write(std::string_view key, std::string_view bytes)
{
    upsertData(key, bytes);
}

void BareDatabase::remove(std::string_view key)
{
    bindText(m_delete.get(), 1, key);
    run(m_delete);
}

std::string_view BareDatabase::bytes(std::string_view key)
{
    ::sqlite3_reset(m_select.get());
    bindText(m_select.get(), 1, key);
    if (::sqlite3_step(m_select.get()) != SQLITE_ROW)
        return {};
    const auto* bytes = static_cast<const char*>(::sqlite3_column_blob(m_select.get(), 0));
    return {bytes, static_cast<std::size_t>(::sqlite3_column_bytes(m_select.get(), 0))};
}

void fillLog(const std::filesystem::path& file, const SnapshotRecord& record)
{
    constexpr std::size_t pageBytes = 4096;
    constexpr std::size_t enoughPages = 1200; // SQLite checkpoints at 1000.
    BareDatabase database(file, BareDatabase::Durability::lazy);
    for (std::size_t pages = 0; pages < enoughPages; pages += 1 + record.snapshot.size() / pageBytes)
        database.write(record);
}

SettingsFile::SettingsFile(const std::filesystem::path& file)
    : m_settings(std::make_unique<QSettings>(QString::fromStdString(file.string()), QSettings::IniFormat))
{}

SettingsFile::~SettingsFile() = default;

void SettingsFile::write(const SnapshotRecord& record)
{
    m_settings->setValue("ConfigSnapshot", QByteArray::fromStdString(record.snapshot));
    m_settings->setValue("ConfigVersion", static_cast<qlonglong>(record.version));
    m_settings->setValue("LastUpdated", record.lastUpdated);
    m_settings->setValue("SchemaVersion", static_cast<qlonglong>(record.schemaVersion));
    m_settings->sync();
}

std::size_t SettingsFile::snapshotSize()
{
    m_settings->sync();
    return static_cast<std::size_t>(m_settings->value("ConfigSnapshot").toByteArray().size());
}

std::int64_t SettingsFile::version() const
{
    return m_settings->value("ConfigVersion").toLongLong();
}
