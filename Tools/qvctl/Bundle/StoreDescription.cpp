#include "Tools/qvctl/Bundle/StoreDescription.h"

#include "Platform/AdapterLog.h"
#include "Platform/Linux/DevicePaths.h"
#include "Platform/Storage/SQLiteConnection.h"
#include "Platform/Storage/SQLiteStore.h"
#include "Platform/SystemClock.h"
#include "Tools/qvctl/InspectedStore.h"

#include <SQLiteCpp/SQLiteCpp.h>

namespace Qvctl::Bundle {

namespace {

namespace json = boost::json;
using Platform::Storage::SQLiteConnection;
using Platform::Storage::SQLiteStore;

json::object describeConnection(SQLiteConnection& connection, const Redaction& redaction)
{
    // Limits what a damaged store can add.
    constexpr const char* tables = "select sql from sqlite_master where sql is not null limit 100";
    constexpr const char* entries =
        "select key, type, length(cast(value as blob)) from defaults order by key limit 1000";
    json::object object{{"formatNumber", connection.database().execAndGet("PRAGMA user_version").getInt64()}};
    auto& schema = object["schema"].emplace_array();
    for (SQLite::Statement query(connection.database(), tables); query.executeStep();)
        schema.emplace_back(redaction.redact(query.getColumn(0).getString()));
    auto& keys = object["keys"].emplace_array();
    if (!connection.hasTable())
        return object;
    for (SQLite::Statement query(connection.database(), entries); query.executeStep();)
        keys.push_back({{"key", redaction.redact(query.getColumn(0).getString())},
                        {"type", redaction.redact(query.getColumn(1).getString())},
                        {"bytes", query.getColumn(2).getInt64()}});
    return object;
}

} // namespace

json::object describeStore(const std::filesystem::path& file, const Redaction& redaction)
{
    FirstLogLine problem;
    const Platform::AdapterLog log(problem, std::string(Platform::Linux::applicationIdentifier));
    const Platform::SystemClock clock;
    SQLiteStore store(file, SQLiteStore::Access::inspect, clock, log);
    json::object object;
    store.perform(SQLiteStore::Purpose::read,
                  [&](SQLiteConnection& connection) { object = describeConnection(connection, redaction); });
    object["file"] = redaction.redact(file.string());
    object["problem"] = problem.text.empty() ? json::value() : json::value(redaction.redact(problem.text));
    return object;
}

} // namespace Qvctl::Bundle
