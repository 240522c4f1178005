#include "Platform/Storage/SQLiteUserDefaults.h"

#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/Storage/SQLiteConnection.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <cmath>
#include <optional>
#include <utility>

namespace Platform::Storage {

namespace {

using Purpose = SQLiteStore::Purpose;

void bindBytes(SQLite::Statement& statement, int index, const void* bytes, std::size_t count)
{
    // A null pointer would bind NULL.
    statement.bindNoCopy(index, count > 0 ? bytes : "", static_cast<int>(count));
}

/// Binds the type name and the value as parameters 2 and 3. `storage` must outlive the statement's execution.
void bindValue(SQLite::Statement& statement, const PropertyList& value, Data& storage)
{
    const auto* real = value.real();
    const auto* date = value.date();
    const char* type = value.typeName();
    if (const auto* text = value.text()) {
        statement.bindNoCopy(3, *text);
    } else if (const auto* integer = value.integer()) {
        statement.bind(3, *integer);
    } else if (const auto* boolean = value.boolean()) {
        statement.bind(3, *boolean ? 1 : 0);
    } else if (real != nullptr && !std::isnan(*real)) {
        statement.bind(3, *real);
    } else if (date != nullptr && !std::isnan(date->secondsSinceReferenceDate)) {
        statement.bind(3, date->secondsSinceReferenceDate);
    } else if (const auto* data = value.data()) {
        bindBytes(statement, 3, data->data(), data->size());
    } else {
        type = "plist";
        storage = PropertyLists::writeBinaryPropertyList(value);
        bindBytes(statement, 3, storage.data(), storage.size());
    }
    statement.bindNoCopy(2, type);
}

/// Returns the stored value; absent if type and column do not match.
std::optional<PropertyList> readValue(std::string_view type, const SQLite::Column& column)
{
    const auto bytes = [&] {
        const auto* first = static_cast<const std::byte*>(column.getBlob());
        return Data(first, first + column.getBytes());
    };
    if (type == "text" && column.isText())
        return PropertyList(column.getString());
    if (type == "integer" && column.isInteger())
        return PropertyList(column.getInt64());
    if (type == "boolean" && column.isInteger())
        return PropertyList(column.getInt64() != 0);
    if (type == "real" && (column.isFloat() || column.isInteger()))
        return PropertyList(column.getDouble());
    if (type == "date" && (column.isFloat() || column.isInteger()))
        return PropertyList(Date{column.getDouble()});
    if (type == "data" && column.isBlob())
        return PropertyList(bytes());
    if (type == "plist") {
        const std::string_view document(static_cast<const char*>(column.getBlob()),
                                        static_cast<std::size_t>(column.getBytes()));
        try {
            return PropertyLists::readPropertyList(document).root;
        } catch (const PropertyLists::PropertyListError&) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

SQLiteUserDefaults::SQLiteUserDefaults(std::filesystem::path file, Access access, const Clock& clock,
                                       const AdapterLog& log)
    : m_store(std::make_unique<SQLiteStore>(std::move(file), access, clock, log))
{}

SQLiteUserDefaults::~SQLiteUserDefaults() = default;

bool SQLiteUserDefaults::isAvailable() const
{
    const std::lock_guard lock(m_mutex);
    return m_store->isOpen() || m_store->perform(Purpose::read, [](SQLiteConnection&) {});
}

const std::filesystem::path& SQLiteUserDefaults::bellFile() const
{
    return m_store->bellFile();
}

std::optional<PropertyList> SQLiteUserDefaults::object(std::string_view key) const
{
    std::optional<PropertyList> value;
    const std::lock_guard lock(m_mutex);
    const bool isRead = m_store->perform(Purpose::read, [&](SQLiteConnection& connection) {
        SQLite::Statement& select = connection.select();
        select.tryReset();
        const std::string name(key);
        select.bindNoCopy(1, name);
        if (select.executeStep())
            value = readValue(select.getColumn(0).getText(), select.getColumn(1));
        // An unfinished statement would hold a read transaction and block checkpoints.
        select.reset();
        if (!m_unreadKeys.empty())
            m_unreadKeys.erase(std::string(key));
    });
    if (!isRead)
        m_unreadKeys.emplace(key);
    return value;
}

bool SQLiteUserDefaults::write(std::span<const Entry> entries)
{
    return change([&](SQLiteConnection& connection) {
        for (const Entry& entry : entries) {
            if (m_unreadKeys.erase(std::string(entry.key)) > 0)
                throw SQLite::Exception(
                    fmt::format("{} could not be read before, so writing it could lose its value", entry.key),
                    SQLITE_ABORT);
        }
        SQLite::Transaction transaction(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
        for (const Entry& entry : entries) {
            const std::string key(entry.key);
            Data storage;
            SQLite::Statement& upsert = connection.upsert();
            upsert.tryReset(); // Its last use may have ended with an error.
            upsert.bindNoCopy(1, key);
            bindValue(upsert, entry.value, storage);
            upsert.exec();
            upsert.reset();
        }
        transaction.commit();
    });
}

bool SQLiteUserDefaults::removeObject(std::string_view key)
{
    return change([&](SQLiteConnection& connection) {
        SQLite::Statement statement(connection.database(), "DELETE FROM defaults WHERE key = ?1");
        statement.bind(1, std::string(key));
        statement.exec();
    });
}

bool SQLiteUserDefaults::erase(std::span<const std::string_view> keys)
{
    const bool isErased = change([&](SQLiteConnection& connection) {
        SQLite::Database& database = connection.database();
        SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
        for (const std::string_view key : keys) {
            SQLite::Statement statement(database, "DELETE FROM defaults WHERE key = ?1");
            statement.bind(1, std::string(key));
            statement.exec();
        }
        transaction.commit();
        // Deleted values stay in free pages and in the log until both are rewritten.
        database.exec("VACUUM");
        if (database.execAndGet("PRAGMA wal_checkpoint(TRUNCATE)").getInt() != 0)
            throw SQLite::Exception("another process is reading; try again", SQLITE_BUSY);
    });
    if (isErased)
        m_store->removeDamagedCopies();
    return isErased;
}

bool SQLiteUserDefaults::change(const std::function<void(SQLiteConnection&)>& operation)
{
    const std::lock_guard lock(m_mutex);
    const bool isCommitted = m_store->perform(Purpose::write, operation);
    if (isCommitted)
        m_store->ringBell();
    return isCommitted;
}

} // namespace Platform::Storage
