#include "history/HistoryStore.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sqlite3.h>
#include <sys/stat.h>

namespace ambrel {

namespace {

// Each step brings the schema from its index to the next version; version 0 is an empty file.
constexpr std::array<const char*, HistoryStore::kSchemaVersion> kMigrations = {
    // 0 -> 1: one row per reading, clustered by device and time (no separate index: the file
    // for 30 days of both devices stays small).
    "CREATE TABLE readings ("
    " device TEXT NOT NULL,"
    " time REAL NOT NULL,"
    " percentage INTEGER NOT NULL,"
    " charging INTEGER NOT NULL,"
    " plugged INTEGER NOT NULL,"
    " link TEXT NOT NULL DEFAULT '',"
    " PRIMARY KEY (device, time)) WITHOUT ROWID;",
};

bool isDamage(int code) {
    const int primary = code & 0xff;
    return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

} // namespace

std::filesystem::path setAsideName(const std::filesystem::path& file, Date when) {
    const auto seconds = static_cast<std::time_t>(when.secondsSince1970());
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H%M%SZ", &parts);
    return file.string() + ".damaged-" + stamp;
}

HistoryStore::HistoryStore(std::filesystem::path file) : m_file(std::move(file)) {}

int HistoryStore::openAsItIs(bool* damaged) {
    *damaged = false;
    int code = m_database.open(m_file, true);
    if (code != SQLITE_OK) {
        return code;
    }
    // Reading the header and the schema is what tells a damaged file.
    m_database.queryText("PRAGMA user_version;", &code);
    if (code == SQLITE_OK) {
        const auto check = m_database.queryText("PRAGMA quick_check(1);", &code);
        if (code == SQLITE_OK && check != "ok") {
            code = SQLITE_CORRUPT;
        }
    }
    if (code != SQLITE_OK) {
        *damaged = isDamage(code);
        m_database.close();
    }
    return code;
}

bool HistoryStore::open(Date now) {
    m_status.clear();
    m_setAside.reset();
    std::error_code error;
    const auto folder = m_file.parent_path();
    if (!folder.empty() && !std::filesystem::is_directory(folder, error)) {
        std::filesystem::create_directories(folder, error);
        ::chmod(folder.c_str(), 0700);
    }
    bool damaged = false;
    int code = openAsItIs(&damaged);
    if (damaged) {
        const auto aside = setAsideName(m_file, now);
        std::filesystem::rename(m_file, aside, error);
        if (error) {
            turnOff(code, "it is damaged and could not be set aside");
            return false;
        }
        // The journal files belonged to the damaged file.
        std::filesystem::remove(m_file.string() + "-wal", error);
        std::filesystem::remove(m_file.string() + "-shm", error);
        m_setAside = aside;
        code = openAsItIs(&damaged);
    }
    if (code != SQLITE_OK) {
        turnOff(code, "its file cannot be opened");
        return false;
    }
    // A newer program's file is not touched at all, not even its journal mode.
    const auto text = m_database.queryText("PRAGMA user_version;", &code);
    m_version = text ? std::atoi(text->c_str()) : 0;
    if (code != SQLITE_OK) {
        turnOff(code, "its file cannot be read");
        return false;
    }
    if (m_version > kSchemaVersion) {
        m_database.close();
        m_status = "Battery history is off: its file was written by a newer Tovrin, and is left "
                   "as it is.";
        return false;
    }
    // WAL with NORMAL sync survives the program being killed at any moment; only a power cut may
    // lose the last rows.
    const auto mode = m_database.queryText("PRAGMA journal_mode=WAL;", &code);
    if (code != SQLITE_OK || mode != "wal") {
        turnOff(code != SQLITE_OK ? code : SQLITE_CANTOPEN, "its file cannot be written");
        return false;
    }
    m_database.exec("PRAGMA synchronous=NORMAL;");
    // Rows are only added at the end and pruned from the start: a small page cache does, and
    // keeps the program's memory where it was without history (SQLite's default is 2 MiB).
    m_database.exec("PRAGMA cache_size=-64;");
    ::chmod(m_file.c_str(), 0600);
    return migrate();
}

bool HistoryStore::openToRead() {
    m_status.clear();
    m_setAside.reset();
    std::error_code error;
    if (!std::filesystem::exists(m_file, error)) {
        m_status = "No battery history yet: Tovrin records it while the card runs.";
        return false;
    }
    bool damaged = false;
    int code = m_database.open(m_file, false);
    if (code == SQLITE_OK) {
        const auto text = m_database.queryText("PRAGMA user_version;", &code);
        m_version = text ? std::atoi(text->c_str()) : 0;
    }
    damaged = isDamage(code);
    if (code != SQLITE_OK) {
        m_database.close();
        m_status = damaged ? "The battery history file is damaged; Tovrin sets it aside and "
                             "starts a new one the next time it runs."
                           : "The battery history file cannot be read.";
        return false;
    }
    if (m_version > kSchemaVersion) {
        m_database.close();
        m_status = "The battery history file was written by a newer Tovrin.";
        return false;
    }
    if (m_version < kSchemaVersion) {
        m_database.close();
        m_status = "No battery history yet: Tovrin records it while the card runs.";
        return false;
    }
    return true;
}

bool HistoryStore::migrate() {
    int code = SQLITE_OK;
    const int version = m_version;
    for (int step = version; step < kSchemaVersion; ++step) {
        const std::string sql = std::string("BEGIN IMMEDIATE;") + kMigrations[step] +
                                "PRAGMA user_version=" + std::to_string(step + 1) + ";COMMIT;";
        code = m_database.exec(sql);
        if (code != SQLITE_OK) {
            m_database.exec("ROLLBACK;");
            turnOff(code, "its file cannot be written");
            return false;
        }
    }
    return true;
}

void HistoryStore::turnOff(int code, std::string_view what) {
    m_database.close();
    const int primary = code & 0xff;
    if (primary == SQLITE_FULL) {
        m_status = "Battery history is off: the disk is full.";
    } else if (primary == SQLITE_READONLY || primary == SQLITE_CANTOPEN || primary == SQLITE_PERM ||
               primary == SQLITE_AUTH) {
        m_status =
            "Battery history is off: Tovrin cannot write to " + m_file.parent_path().string() + ".";
    } else {
        m_status =
            "Battery history is off: " + std::string(what) + " (" + sqlite3_errstr(code) + ").";
    }
}

bool HistoryStore::append(const HistoryRow& row) {
    if (!isOn()) {
        return false;
    }
    SqliteStatement insert(m_database, "INSERT OR REPLACE INTO readings"
                                       " (device, time, percentage, charging, plugged, link)"
                                       " VALUES (?1, ?2, ?3, ?4, ?5, ?6);");
    int code = insert.prepared();
    if (code == SQLITE_OK) {
        insert.bind(1, row.device);
        insert.bind(2, row.time.secondsSinceReferenceDate());
        insert.bind(3, static_cast<std::int64_t>(row.percentage));
        insert.bind(4, static_cast<std::int64_t>(row.isCharging ? 1 : 0));
        insert.bind(5, static_cast<std::int64_t>(row.isPluggedIn ? 1 : 0));
        insert.bind(6, row.link);
        code = insert.step();
    }
    if (code != SQLITE_DONE) {
        turnOff(code, "its file cannot be written");
        return false;
    }
    return true;
}

std::vector<HistoryRow> HistoryStore::rows(std::string_view device, Date since) {
    std::vector<HistoryRow> found;
    if (!isOn()) {
        return found;
    }
    SqliteStatement query(m_database,
                          "SELECT time, percentage, charging, plugged, link FROM readings"
                          " WHERE device = ?1 AND time >= ?2 ORDER BY time;");
    if (query.prepared() != SQLITE_OK) {
        return found;
    }
    query.bind(1, device);
    query.bind(2, since.secondsSinceReferenceDate());
    while (query.step() == SQLITE_ROW) {
        HistoryRow row;
        row.time = Date::fromSecondsSinceReferenceDate(query.columnDouble(0));
        row.device = std::string(device);
        row.percentage = static_cast<int>(query.columnInt(1));
        row.isCharging = query.columnInt(2) != 0;
        row.isPluggedIn = query.columnInt(3) != 0;
        row.link = query.columnText(4);
        found.push_back(std::move(row));
    }
    return found;
}

int HistoryStore::prune(Date cutoff) {
    if (!isOn()) {
        return -1;
    }
    SqliteStatement remove(m_database, "DELETE FROM readings WHERE time < ?1;");
    if (remove.prepared() != SQLITE_OK) {
        return -1;
    }
    remove.bind(1, cutoff.secondsSinceReferenceDate());
    const int code = remove.step();
    if (code != SQLITE_DONE) {
        turnOff(code, "its file cannot be written");
        return -1;
    }
    return sqlite3_changes(m_database.get());
}

} // namespace ambrel
