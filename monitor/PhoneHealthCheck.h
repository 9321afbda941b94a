#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/BatteryHealth.h"
#include "model/Date.h"
#include "model/PhoneLink.h"
#include "monitor/BatteryMonitor.h"

namespace ambrel {

class MainScheduler;
class Worker;

// One phone's battery health as last read, with when.
struct PhoneHealthRecord {
    Date measured;
    BatteryHealth health;

    friend bool operator==(const PhoneHealthRecord&, const PhoneHealthRecord&) = default;
};

// The health of each phone read so far, by udid, kept in a small private file so that a
// restart does not ask the phone again.
namespace PhoneHealthFile {

inline constexpr const char* kFileName = "battery-health.json";

// Absent entries for anything unreadable: a missing, damaged or oversized file is no records.
std::map<std::string, PhoneHealthRecord> load(const std::filesystem::path& file);
bool save(const std::filesystem::path& file,
          const std::map<std::string, PhoneHealthRecord>& records);

// The record of the first of `udids` that has one, else the latest measured; absent when there
// are no records.
std::optional<PhoneHealthRecord> choose(const std::map<std::string, PhoneHealthRecord>& records,
                                        std::initializer_list<std::optional<std::string>> udids);

// The JSON form `--readings` prints: the known parts of `health`, null when nothing is known.
nlohmann::json healthJson(const BatteryHealth& health);

} // namespace PhoneHealthFile

// Reads the phone's battery health through its diagnostics relay after a read reached it: at
// most once a day per phone, and again after the phone was paired. It is its own job, started
// once the read has ended, so the read never waits for it; a try that fails changes nothing
// the card shows and is tried again no sooner than an hour later. Main thread only.
class PhoneHealthCheck {
public:
    using ReadHealth =
        std::function<std::optional<BatteryHealth>(const std::string& udid, PhoneLink link)>;

    static constexpr double kEverySeconds = 24 * 3600.0;
    static constexpr double kRetrySeconds = 3600.0;

    // `monitor` must outlive this object; `read` runs on `worker`'s threads.
    PhoneHealthCheck(BatteryMonitor& monitor, std::shared_ptr<Worker> worker,
                     std::shared_ptr<MainScheduler> scheduler, ReadHealth read,
                     std::filesystem::path file);
    ~PhoneHealthCheck();
    PhoneHealthCheck(const PhoneHealthCheck&) = delete;
    PhoneHealthCheck& operator=(const PhoneHealthCheck&) = delete;

    // The health of the phone the card shows, else of the phone read last, else the latest
    // stored; absent when none was ever read.
    std::optional<PhoneHealthRecord> health() const;
    // Told on the main thread after each health read that gave something.
    void setChanged(std::function<void()> changed) { m_changed = std::move(changed); }
    bool isReading() const { return m_reading; }

private:
    void phoneRead();
    void finish(const std::string& udid, std::optional<BatteryHealth> health);

    BatteryMonitor& m_monitor;
    std::shared_ptr<Worker> m_worker;
    std::shared_ptr<MainScheduler> m_scheduler;
    ReadHealth m_read;
    std::filesystem::path m_file;
    std::map<std::string, PhoneHealthRecord> m_records;
    std::map<std::string, Date> m_failedAt;
    std::optional<std::string> m_lastRead;
    std::function<void()> m_changed;
    BatteryMonitor::ObserverId m_observer = 0;
    std::optional<Date> m_lastPhone;
    bool m_reading = false;
    bool m_pairingSeen = false;
    std::shared_ptr<PhoneHealthCheck*> m_lifetime;
};

} // namespace ambrel
