#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "muxer/NetworkPhoneSource.h"

namespace ambrel::testing {

// Wi-Fi phones and pair records set by the test; remembers what the muxer told it.
class FakeNetworkPhones : public NetworkPhoneSource {
public:
    void setDevices(std::vector<MuxDevice> devices) {
        const std::lock_guard lock(m_mutex);
        m_devices = std::move(devices);
    }
    void setPairRecord(const std::string& udid, const std::string& record) {
        const std::lock_guard lock(m_mutex);
        m_records[udid] = record;
    }
    void setBuid(const std::string& buid) {
        const std::lock_guard lock(m_mutex);
        m_buid = buid;
    }
    std::map<std::string, std::string> notedRecords() const {
        const std::lock_guard lock(m_mutex);
        return m_noted;
    }
    std::vector<std::string> notedUsbSerials() const {
        const std::lock_guard lock(m_mutex);
        return m_usbSerials;
    }

    std::vector<MuxDevice> networkDevices() override {
        const std::lock_guard lock(m_mutex);
        return m_devices;
    }
    std::optional<std::string> pairRecord(const std::string& udid) override {
        const std::lock_guard lock(m_mutex);
        const auto found = m_records.find(udid);
        return found == m_records.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<std::string> systemBuid() override {
        const std::lock_guard lock(m_mutex);
        return m_buid.empty() ? std::nullopt : std::optional(m_buid);
    }
    void noteUsbDevices(const std::vector<MuxDevice>& devices) override {
        const std::lock_guard lock(m_mutex);
        m_usbSerials.clear();
        for (const auto& device : devices) {
            m_usbSerials.push_back(device.serialNumber);
        }
    }
    void notePairRecord(const std::string& udid, const std::string& record) override {
        const std::lock_guard lock(m_mutex);
        m_noted[udid] = record;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<MuxDevice> m_devices;
    std::map<std::string, std::string> m_records;
    std::map<std::string, std::string> m_noted;
    std::vector<std::string> m_usbSerials;
    std::string m_buid;
};

} // namespace ambrel::testing
