#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Expected.h"
#include "model/PhoneLink.h"
#include "phone/CommandOutput.h"
#include "platform/ProcessLauncher.h"

namespace ambrel {

// A phone the muxer knows, on one connection (a phone on both shows up twice).
struct PhoneOnMuxer {
    std::string udid;
    PhoneLink link = PhoneLink::usb;
    bool operator==(const PhoneOnMuxer&) const = default;
};

// What the phone says about itself and about this computer.
struct PhoneDetails {
    std::string udid;
    PhoneLink link = PhoneLink::usb;
    std::string name;
    std::string model;
    // The iOS (iPadOS) version as the phone gives it ("17.5.1"); empty when it gives none.
    std::string osVersion;
    // The phone's Wi-Fi MAC as it gives it ("f0:99:bf:10:20:30"); empty when it gives none.
    std::string wifiAddress;
    bool trusted = false;
    // Why it is not trusted, as the phone or the library named it ("InvalidHostID",
    // "MissingPairRecord"); empty when trusted.
    std::string trustError;
    // "EnableWifiConnections"; absent when it could not be read (not trusted).
    std::optional<bool> wifiConnections;
};

enum class LockdownFailure {
    // The helper is missing, crashed, or printed something else than its line.
    helperBroken,
    timedOut,
    noDevice,
    muxerUnavailable,
    notTrusted,
    lockdownError,
};

struct LockdownError {
    LockdownFailure kind = LockdownFailure::helperBroken;
    // The lockdown error's name ("InvalidHostID", "SetProhibited"), or the helper's own word.
    std::string name;
    bool operator==(const LockdownError&) const = default;
};

// Runs the phone settings helper (tovrin-lockdown) and idevicepair from the program's tool
// folder through CommandRunner::run on the program's launcher. Every call blocks for up to its time
// limit plus the runner's grace: never call one on the main thread. Thread-safe.
class LockdownHelper {
public:
    // Enough for the muxer's 5 s reply limit and a slow phone; a phone that never answers ends
    // the run here.
    static constexpr std::chrono::milliseconds kTimeout{15000};
    // Pairing waits for the person at the phone to choose Trust or Don't Trust.
    static constexpr std::chrono::milliseconds kPairTimeout{60000};

    LockdownHelper(std::filesystem::path toolDirectory, std::shared_ptr<ProcessLauncher> launcher);

    std::filesystem::path helperPath() const;
    std::filesystem::path pairToolPath() const;

    Expected<std::vector<PhoneOnMuxer>, LockdownError> listPhones() const;
    // Over USB when the phone is there, else over Wi-Fi; with `networkOnly`, Wi-Fi alone.
    Expected<PhoneDetails, LockdownError> details(const std::string& udid,
                                                  bool networkOnly = false) const;
    // Reads the phone's Wi-Fi connection setting over USB, or sets it and reads it back.
    Expected<bool, LockdownError> wifiConnections(const std::string& udid,
                                                  std::optional<bool> wanted) const;
    // "idevicepair pair": the phone shows its Trust dialog. The tool's output on failure.
    Expected<bool, std::string> pair(const std::string& udid) const;

    // The parts that read the helper's output; pure.
    static Expected<std::vector<PhoneOnMuxer>, LockdownError>
    parseList(const CommandOutput& output);
    static Expected<PhoneDetails, LockdownError> parseDetails(const CommandOutput& output);
    static Expected<bool, LockdownError> parseWifi(const CommandOutput& output);

private:
    CommandOutput run(const std::filesystem::path& executable,
                      const std::vector<std::string>& arguments,
                      std::chrono::milliseconds timeout) const;

    std::filesystem::path m_toolDirectory;
    std::shared_ptr<ProcessLauncher> m_launcher;
};

} // namespace ambrel
