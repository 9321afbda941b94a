#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "history/Sqlite.h"
#include "model/Date.h"

namespace ambrel {

// One confirmed reading of one device, as history keeps it.
struct HistoryRow {
    Date time;
    // The reading's device id ("mac" for this computer, "iphone").
    std::string device;
    int percentage = 0;
    bool isCharging = false;
    bool isPluggedIn = false;
    // How the phone was reached ("USB", "Wi-Fi"); empty for the computer.
    std::string link;

    friend bool operator==(const HistoryRow&, const HistoryRow&) = default;
};

// The battery history file: SQLite in WAL mode, one row per reading, kept by the caller to
// `kKeep`. A damaged file is renamed aside (the time in its name) and a new one started; a
// folder that cannot be written or a full disk turns history off with a worded status, and
// nothing else changes. Not thread-safe: one thread owns the store.
class HistoryStore {
public:
    static constexpr int kSchemaVersion = 1;
    // How long rows are kept: 30 days.
    static constexpr double kKeepSeconds = 30.0 * 24 * 3600;
    static constexpr const char* kFileName = "battery-history.sqlite3";

    explicit HistoryStore(std::filesystem::path file);

    // Opens the file, making it and its folder (0700) when missing. `now` names a damaged
    // file set aside. False when history is off; status() says why.
    bool open(Date now);
    // Opens an existing file only to read it, as a second reader beside the program's writer:
    // nothing is made, set aside or changed. False when there is no file or it cannot be read;
    // status() says why in the program's words.
    bool openToRead();
    bool isOn() const { return m_database.isOpen(); }
    // Why history is off, in the program's words; empty while it is on.
    const std::string& status() const { return m_status; }
    // Where a damaged file was put, when open() set one aside.
    const std::optional<std::filesystem::path>& setAside() const { return m_setAside; }
    const std::filesystem::path& file() const { return m_file; }

    // Adds one row, committed when this returns true. False turns history off (status()).
    bool append(const HistoryRow& row);
    // The rows of `device` from `since` on, oldest first.
    std::vector<HistoryRow> rows(std::string_view device, Date since);
    // Removes the rows older than `cutoff`; how many went, or -1 on an error.
    int prune(Date cutoff);

private:
    // Opens the file as it is: SQLITE_OK, or the code that stopped it.
    int openAsItIs(bool* damaged);
    bool migrate();
    void turnOff(int code, std::string_view what);

    std::filesystem::path m_file;
    SqliteDatabase m_database;
    std::string m_status;
    std::optional<std::filesystem::path> m_setAside;
    // The schema version the file had when opened.
    int m_version = 0;
};

// The name a damaged history file is given when set aside: "<file>.damaged-<UTC time>". Pure.
std::filesystem::path setAsideName(const std::filesystem::path& file, Date when);

} // namespace ambrel
