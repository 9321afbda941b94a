#include "history/Sqlite.h"

#include <sqlite3.h>
#include <utility>

namespace ambrel {

SqliteDatabase::~SqliteDatabase() {
    close();
}

SqliteDatabase::SqliteDatabase(SqliteDatabase&& other) noexcept
    : m_db(std::exchange(other.m_db, nullptr)) {}

SqliteDatabase& SqliteDatabase::operator=(SqliteDatabase&& other) noexcept {
    if (this != &other) {
        close();
        m_db = std::exchange(other.m_db, nullptr);
    }
    return *this;
}

int SqliteDatabase::open(const std::filesystem::path& file, bool create) {
    close();
    const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int result = sqlite3_open_v2(file.c_str(), &m_db, flags, nullptr);
    if (result != SQLITE_OK) {
        close();
        return result;
    }
    // A locked file (another copy of the program writing) waits a moment rather than failing.
    sqlite3_busy_timeout(m_db, 2000);
    return result;
}

void SqliteDatabase::close() {
    if (m_db != nullptr) {
        sqlite3_close_v2(m_db);
        m_db = nullptr;
    }
}

int SqliteDatabase::exec(std::string_view sql) {
    if (m_db == nullptr) {
        return SQLITE_MISUSE;
    }
    const std::string text(sql);
    return sqlite3_exec(m_db, text.c_str(), nullptr, nullptr, nullptr);
}

std::optional<std::string> SqliteDatabase::queryText(std::string_view sql, int* result) {
    SqliteStatement statement(*this, sql);
    int code = statement.prepared();
    std::optional<std::string> text;
    if (code == SQLITE_OK) {
        code = statement.step();
        if (code == SQLITE_ROW) {
            text = statement.columnText(0);
            code = SQLITE_OK;
        }
    }
    if (result != nullptr) {
        *result = code == SQLITE_DONE ? SQLITE_OK : code;
    }
    return text;
}

std::string SqliteDatabase::lastError() const {
    return m_db != nullptr ? sqlite3_errmsg(m_db) : "no database";
}

SqliteStatement::SqliteStatement(SqliteDatabase& database, std::string_view sql) {
    if (database.get() == nullptr) {
        m_prepared = SQLITE_MISUSE;
        return;
    }
    m_prepared = sqlite3_prepare_v2(database.get(), sql.data(), static_cast<int>(sql.size()),
                                    &m_statement, nullptr);
}

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(m_statement);
}

void SqliteStatement::bind(int index, double value) {
    sqlite3_bind_double(m_statement, index, value);
}

void SqliteStatement::bind(int index, std::int64_t value) {
    sqlite3_bind_int64(m_statement, index, value);
}

void SqliteStatement::bind(int index, std::string_view value) {
    sqlite3_bind_text(m_statement, index, value.data(), static_cast<int>(value.size()),
                      SQLITE_TRANSIENT);
}

int SqliteStatement::step() {
    return m_statement != nullptr ? sqlite3_step(m_statement) : SQLITE_MISUSE;
}

void SqliteStatement::reset() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

double SqliteStatement::columnDouble(int index) const {
    return sqlite3_column_double(m_statement, index);
}

std::int64_t SqliteStatement::columnInt(int index) const {
    return sqlite3_column_int64(m_statement, index);
}

std::string SqliteStatement::columnText(int index) const {
    const auto* text = sqlite3_column_text(m_statement, index);
    return text != nullptr
               ? std::string(reinterpret_cast<const char*>(text),
                             static_cast<std::size_t>(sqlite3_column_bytes(m_statement, index)))
               : std::string();
}

} // namespace ambrel
