#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

namespace Platform::Storage {

/// The statements that write to the table `defaults`, made ready once for as long as the database is open.
/// `SQLite::Transaction` would have SQLite read its two anew for each commit.
///
/// Errors: `SQLite::Exception`.
class SQLiteWriter {
public:
    /// `database` must outlive this object.
    explicit SQLiteWriter(const SQLite::Database& database)
        : m_begin(database, "BEGIN IMMEDIATE"),
          m_upsert(database, "INSERT INTO defaults(key, type, value) VALUES(?1, ?2, ?3) "
                             "ON CONFLICT(key) DO UPDATE SET type = excluded.type, value = excluded.value"),
          m_commit(database, "COMMIT"),
          m_rollback(database, "ROLLBACK")
    {}

    /// Takes back at its end what was not committed.
    class Transaction {
    public:
        explicit Transaction(SQLiteWriter& writer) : m_writer(writer) { run(m_writer.m_begin); }
        ~Transaction()
        {
            try {
                if (!m_isCommitted)
                    run(m_writer.m_rollback);
            } catch (const SQLite::Exception&) {
                // The error that ended the transaction had SQLite take it back.
            }
        }
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;

        /// Takes key, type name and value as its parameters.
        SQLite::Statement& upsert()
        {
            m_writer.m_upsert.tryReset();
            return m_writer.m_upsert;
        }
        void commit()
        {
            run(m_writer.m_commit);
            m_isCommitted = true;
        }

    private:
        SQLiteWriter& m_writer;
        bool m_isCommitted = false;
    };

    static void run(SQLite::Statement& statement)
    {
        statement.tryReset(); // It may still hold the error that ended its last use.
        statement.exec();
        statement.reset();
    }

private:
    SQLite::Statement m_begin;
    SQLite::Statement m_upsert;
    SQLite::Statement m_commit;
    SQLite::Statement m_rollback;
};

} // namespace Platform::Storage
