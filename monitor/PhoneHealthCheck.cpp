#include "monitor/PhoneHealthCheck.h"

#include <nlohmann/json.hpp>

#include "monitor/PrivateFile.h"
#include "platform/MainScheduler.h"
#include "platform/Worker.h"

namespace ambrel {

namespace {

// A few phones' worth; anything larger is not our file.
constexpr std::size_t kLargestFile = 64 * 1024;
constexpr int kFileVersion = 1;

std::optional<int> wholeNumber(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number_integer()) {
        return std::nullopt;
    }
    const auto value = found->get<std::int64_t>();
    if (value <= 0 || value > 1000000) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

} // namespace

namespace PhoneHealthFile {

std::map<std::string, PhoneHealthRecord> load(const std::filesystem::path& file) {
    std::map<std::string, PhoneHealthRecord> records;
    const auto text = PrivateFile::read(file, kLargestFile);
    if (!text) {
        return records;
    }
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    if (!json.is_object() || json.value("version", 0) != kFileVersion) {
        return records;
    }
    const auto phones = json.find("phones");
    if (phones == json.end() || !phones->is_object()) {
        return records;
    }
    for (const auto& [udid, entry] : phones->items()) {
        if (!entry.is_object() || !entry.contains("measured") || !entry["measured"].is_number()) {
            continue;
        }
        PhoneHealthRecord record;
        record.measured = Date::fromSecondsSinceReferenceDate(entry["measured"].get<double>());
        record.health.maximumCapacity = wholeNumber(entry, "maximumCapacity");
        if (record.health.maximumCapacity > 150) {
            record.health.maximumCapacity.reset();
        }
        record.health.cycleCount = wholeNumber(entry, "cycleCount");
        if (const auto temperature = entry.find("temperature");
            temperature != entry.end() && temperature->is_number()) {
            record.health.temperature = temperature->get<double>();
        }
        if (!record.health.isEmpty()) {
            records.emplace(udid, record);
        }
    }
    return records;
}

bool save(const std::filesystem::path& file,
          const std::map<std::string, PhoneHealthRecord>& records) {
    nlohmann::json phones = nlohmann::json::object();
    for (const auto& [udid, record] : records) {
        if (record.health.isEmpty()) {
            continue;
        }
        nlohmann::json entry = healthJson(record.health);
        entry["measured"] = record.measured.secondsSinceReferenceDate();
        phones[udid] = std::move(entry);
    }
    const nlohmann::json json = {{"version", kFileVersion}, {"phones", std::move(phones)}};
    return PrivateFile::makeFolders(file.parent_path()) &&
           PrivateFile::replace(file, json.dump(), false);
}

std::optional<PhoneHealthRecord> choose(const std::map<std::string, PhoneHealthRecord>& records,
                                        std::initializer_list<std::optional<std::string>> udids) {
    for (const auto& udid : udids) {
        if (!udid) {
            continue;
        }
        if (const auto found = records.find(*udid); found != records.end()) {
            return found->second;
        }
    }
    // Before the first read: the phone whose health was read last.
    std::optional<PhoneHealthRecord> latest;
    for (const auto& [udid, record] : records) {
        if (!latest || record.measured > latest->measured) {
            latest = record;
        }
    }
    return latest;
}

nlohmann::json healthJson(const BatteryHealth& health) {
    if (health.isEmpty()) {
        return nullptr;
    }
    nlohmann::json json = nlohmann::json::object();
    if (health.maximumCapacity) {
        json["maximumCapacity"] = *health.maximumCapacity;
    }
    if (health.cycleCount) {
        json["cycleCount"] = *health.cycleCount;
    }
    if (health.temperature) {
        json["temperature"] = *health.temperature;
    }
    return json;
}

} // namespace PhoneHealthFile

PhoneHealthCheck::PhoneHealthCheck(BatteryMonitor& monitor, std::shared_ptr<Worker> worker,
                                   std::shared_ptr<MainScheduler> scheduler, ReadHealth read,
                                   std::filesystem::path file)
    : m_monitor(monitor), m_worker(std::move(worker)), m_scheduler(std::move(scheduler)),
      m_read(std::move(read)), m_file(std::move(file)), m_records(PhoneHealthFile::load(m_file)),
      m_lifetime(std::make_shared<PhoneHealthCheck*>(this)) {
    // The reading shown from the cache at start is no read of the phone.
    if (const auto cached = m_monitor.phone()) {
        m_lastPhone = cached->lastUpdated();
    }
    m_observer = m_monitor.addObserver([this](MonitorProperty property, ChangePhase phase) {
        if (phase != ChangePhase::didChange) {
            return;
        }
        if (property == MonitorProperty::phoneSetupState &&
            m_monitor.phoneSetupState() == PhoneSetupState::needsPairing) {
            m_pairingSeen = true;
        }
        // The read has ended once the monitor says it no longer refreshes.
        if (property == MonitorProperty::isRefreshingPhone && !m_monitor.isRefreshingPhone()) {
            phoneRead();
        }
    });
}

PhoneHealthCheck::~PhoneHealthCheck() {
    m_monitor.removeObserver(m_observer);
}

std::optional<PhoneHealthRecord> PhoneHealthCheck::health() const {
    return PhoneHealthFile::choose(m_records, {m_monitor.phoneID(), m_lastRead});
}

void PhoneHealthCheck::phoneRead() {
    const auto& snapshot = m_monitor.phone();
    const auto& udid = m_monitor.phoneID();
    if (m_reading || !snapshot || !udid || m_monitor.phoneSetupState() != PhoneSetupState::ready ||
        (m_lastPhone && snapshot->lastUpdated() <= *m_lastPhone)) {
        return;
    }
    m_lastPhone = snapshot->lastUpdated();
    const auto link = phoneLinkFromText(snapshot->source());
    if (!link) {
        return;
    }
    const Date now = m_monitor.clock().now();
    const bool afterPairing = m_pairingSeen;
    if (!afterPairing) {
        if (const auto found = m_records.find(*udid);
            found != m_records.end() && now.secondsSince(found->second.measured) < kEverySeconds &&
            now.secondsSince(found->second.measured) >= 0) {
            return;
        }
        if (const auto failed = m_failedAt.find(*udid);
            failed != m_failedAt.end() && now.secondsSince(failed->second) < kRetrySeconds &&
            now.secondsSince(failed->second) >= 0) {
            return;
        }
    }
    m_pairingSeen = false;
    m_reading = true;
    std::weak_ptr<PhoneHealthCheck*> weak = m_lifetime;
    std::weak_ptr<MainScheduler> weakScheduler = m_scheduler;
    m_worker->run([weak, weakScheduler, read = m_read, udid = *udid, link = *link] {
        if (weak.expired()) {
            return;
        }
        auto health = read(udid, link);
        if (auto scheduler = weakScheduler.lock()) {
            scheduler->post([weak, udid, health] {
                if (auto alive = weak.lock()) {
                    (*alive)->finish(udid, health);
                }
            });
        }
    });
}

void PhoneHealthCheck::finish(const std::string& udid, std::optional<BatteryHealth> health) {
    m_reading = false;
    const Date now = m_monitor.clock().now();
    if (!health) {
        m_failedAt[udid] = now;
        return;
    }
    m_failedAt.erase(udid);
    m_records[udid] = PhoneHealthRecord{now, *health};
    m_lastRead = udid;
    // Silent when the folder cannot be written: the health is still shown for this run.
    PhoneHealthFile::save(m_file, m_records);
    if (m_changed) {
        m_changed();
    }
}

} // namespace ambrel
