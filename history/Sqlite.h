#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace ambrel {

// A thin owner of one SQLite connection. Every call reports SQLite's result code; nothing
// throws. Not thread-safe: a connection belongs to one thread at a time.
class SqliteDatabase {
public:
    SqliteDatabase() = default;
    ~SqliteDatabase();
    SqliteDatabase(SqliteDatabase&& other) noexcept;
    SqliteDatabase& operator=(SqliteDatabase&& other) noexcept;
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    // Opens (creating it when `create`) the file read-write; the result code. On failure the
    // connection is closed again.
    int open(const std::filesystem::path& file, bool create);
    void close();
    bool isOpen() const { return m_db != nullptr; }

    // Runs statements that return nothing wanted.
    int exec(std::string_view sql);
    // The first column of the first row of a query, as text; absent on an error or no row.
    std::optional<std::string> queryText(std::string_view sql, int* result = nullptr);
    // The last error's message, for a log line.
    std::string lastError() const;

    sqlite3* get() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
};

// One prepared statement of a connection.
class SqliteStatement {
public:
    SqliteStatement(SqliteDatabase& database, std::string_view sql);
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    // SQLITE_OK when it was prepared.
    int prepared() const { return m_prepared; }

    // Parameters count from 1, as in SQLite.
    void bind(int index, double value);
    void bind(int index, std::int64_t value);
    void bind(int index, std::string_view value);
    // SQLITE_ROW, SQLITE_DONE or an error.
    int step();
    // Ready for the next run, bindings cleared.
    void reset();

    double columnDouble(int index) const;
    std::int64_t columnInt(int index) const;
    std::string columnText(int index) const;

private:
    sqlite3_stmt* m_statement = nullptr;
    int m_prepared = 0;
};

} // namespace ambrel
