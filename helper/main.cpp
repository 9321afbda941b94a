// tovrin-lockdown: reads and changes the phone settings that Debian has no tool for. One line
// of JSON on standard output; the exit codes are those of LockdownHelperProtocol.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <nlohmann/json.hpp>
#include <plist/plist.h>
#include <usbmuxd.h>

#include "helper/LockdownErrorNames.h"
#include "phone/LockdownHelperProtocol.h"

namespace {

using nlohmann::json;
namespace protocol = ambrel::LockdownHelperProtocol;

constexpr const char* kLabel = "tovrin-lockdown";

int finish(const json& line, int code) {
    const std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    return code;
}

int failure(json line, const std::string& error, int code) {
    line[protocol::kErrorKey] = error;
    return finish(line, code);
}

bool isTrustError(lockdownd_error_t error) {
    return error == LOCKDOWN_E_INVALID_HOST_ID || error == LOCKDOWN_E_MISSING_HOST_ID ||
           error == LOCKDOWN_E_MISSING_PAIR_RECORD || error == LOCKDOWN_E_INVALID_PAIR_RECORD ||
           error == LOCKDOWN_E_INVALID_CONF;
}

// Owns what one exchange with a phone holds, in the order it must be let go.
struct Connection {
    idevice_t device = nullptr;
    lockdownd_client_t client = nullptr;
    ~Connection() {
        if (client != nullptr) {
            lockdownd_client_free(client);
        }
        if (device != nullptr) {
            idevice_free(device);
        }
    }
};

std::string stringValue(plist_t node) {
    std::string text;
    if (node != nullptr && plist_get_node_type(node) == PLIST_STRING) {
        char* value = nullptr;
        plist_get_string_val(node, &value);
        if (value != nullptr) {
            text = value;
            std::free(value);
        }
    }
    return text;
}

std::optional<std::string> publicValue(lockdownd_client_t client, const char* key) {
    plist_t value = nullptr;
    if (lockdownd_get_value(client, nullptr, key, &value) != LOCKDOWN_E_SUCCESS) {
        return std::nullopt;
    }
    std::string text = stringValue(value);
    plist_free(value);
    return text;
}

// The HostID of this computer's pair record for `udid` as the muxer keeps it. Read without
// the library's handshake, which would start pairing (and the phone's Trust dialog) when there
// is no record.
std::optional<std::string> hostId(const std::string& udid) {
    char* data = nullptr;
    uint32_t size = 0;
    if (usbmuxd_read_pair_record(udid.c_str(), &data, &size) < 0 || data == nullptr) {
        return std::nullopt;
    }
    plist_t record = nullptr;
    plist_from_memory(data, size, &record);
    std::free(data);
    if (record == nullptr) {
        return std::nullopt;
    }
    std::string id = plist_get_node_type(record) == PLIST_DICT
                         ? stringValue(plist_dict_get_item(record, "HostID"))
                         : std::string();
    plist_free(record);
    if (id.empty()) {
        return std::nullopt;
    }
    return id;
}

// Starts a trusted session; LOCKDOWN_E_MISSING_PAIR_RECORD when there is no pair record.
lockdownd_error_t startSession(const Connection& connection, const std::string& udid) {
    const auto id = hostId(udid);
    if (!id) {
        return LOCKDOWN_E_MISSING_PAIR_RECORD;
    }
    return lockdownd_start_session(connection.client, id->c_str(), nullptr, nullptr);
}

std::optional<bool> wifiConnections(lockdownd_client_t client, lockdownd_error_t* error) {
    plist_t value = nullptr;
    *error = lockdownd_get_value(client, protocol::kWirelessDomain, protocol::kWifiKey, &value);
    if (*error != LOCKDOWN_E_SUCCESS) {
        return std::nullopt;
    }
    std::optional<bool> enabled;
    if (value != nullptr && plist_get_node_type(value) == PLIST_BOOLEAN) {
        uint8_t flag = 0;
        plist_get_bool_val(value, &flag);
        enabled = flag != 0;
    } else {
        *error = LOCKDOWN_E_INVALID_RESPONSE;
    }
    plist_free(value);
    return enabled;
}

int listPhones() {
    usbmuxd_device_info_t* list = nullptr;
    const int count = usbmuxd_get_device_list(&list);
    if (count < 0) {
        return failure(json::object(), protocol::kMuxerUnavailableError,
                       protocol::kExitMuxerUnavailable);
    }
    json devices = json::array();
    for (int i = 0; i < count; ++i) {
        devices.push_back({{protocol::kUdidKey, list[i].udid},
                           {protocol::kConnectionKey, list[i].conn_type == CONNECTION_TYPE_NETWORK
                                                          ? protocol::kNetworkConnection
                                                          : protocol::kUsbConnection}});
    }
    usbmuxd_device_list_free(&list);
    return finish({{protocol::kDevicesKey, devices}}, protocol::kExitOk);
}

struct Failure {
    std::string error;
    int code;
};

int failure(json line, const Failure& failed) {
    return failure(std::move(line), failed.error, failed.code);
}

Failure lockdownFailure(lockdownd_error_t error) {
    return {ambrel::LockdownErrorNames::name(error),
            isTrustError(error) ? protocol::kExitNotTrusted : protocol::kExitLockdownError};
}

// Connects to lockdown of `udid` found through `lookup`.
std::optional<Failure> connect(Connection& connection, const std::string& udid,
                               enum idevice_options lookup) {
    usbmuxd_device_info_t* list = nullptr;
    if (usbmuxd_get_device_list(&list) < 0) {
        return Failure{protocol::kMuxerUnavailableError, protocol::kExitMuxerUnavailable};
    }
    usbmuxd_device_list_free(&list);
    if (idevice_new_with_options(&connection.device, udid.c_str(), lookup) != IDEVICE_E_SUCCESS) {
        return Failure{protocol::kNoDeviceError, protocol::kExitNoDevice};
    }
    const lockdownd_error_t error =
        lockdownd_client_new(connection.device, &connection.client, kLabel);
    if (error != LOCKDOWN_E_SUCCESS) {
        return lockdownFailure(error);
    }
    return std::nullopt;
}

int phoneInfo(const std::string& udid, bool networkOnly) {
    json line = {{protocol::kUdidKey, udid}};
    Connection connection;
    bool overNetwork = networkOnly;
    const auto lookup = networkOnly ? IDEVICE_LOOKUP_NETWORK : IDEVICE_LOOKUP_USBMUX;
    if (auto failed = connect(connection, udid, lookup)) {
        // A phone that is only on Wi-Fi is still shown.
        if (networkOnly || failed->code != protocol::kExitNoDevice) {
            return failure(line, *failed);
        }
        if (auto again = connect(connection, udid, IDEVICE_LOOKUP_NETWORK)) {
            return failure(line, *again);
        }
        overNetwork = true;
    }
    line[protocol::kConnectionKey] =
        overNetwork ? protocol::kNetworkConnection : protocol::kUsbConnection;
    const auto name = publicValue(connection.client, "DeviceName");
    const auto model = publicValue(connection.client, "ProductType");
    // Public like the model, so an untrusted phone gives it too.
    const auto osVersion = publicValue(connection.client, "ProductVersion");
    const auto wifiAddress = publicValue(connection.client, "WiFiAddress");
    if (!name && !model) {
        return failure(line, protocol::kInvalidResponseError, protocol::kExitLockdownError);
    }
    line[protocol::kNameKey] = name.value_or("");
    line[protocol::kModelKey] = model.value_or("");
    line[protocol::kOsVersionKey] = osVersion.value_or("");
    line[protocol::kWifiAddressKey] = wifiAddress.value_or("");
    const lockdownd_error_t session = startSession(connection, udid);
    line[protocol::kTrustedKey] = session == LOCKDOWN_E_SUCCESS;
    line[protocol::kWifiConnectionsKey] = nullptr;
    if (session != LOCKDOWN_E_SUCCESS) {
        line[protocol::kTrustErrorKey] = ambrel::LockdownErrorNames::name(session);
        return finish(line, protocol::kExitOk);
    }
    lockdownd_error_t error = LOCKDOWN_E_SUCCESS;
    if (const auto enabled = wifiConnections(connection.client, &error)) {
        line[protocol::kWifiConnectionsKey] = *enabled;
    }
    return finish(line, protocol::kExitOk);
}

int wifi(const std::string& udid, std::optional<bool> wanted) {
    json line = {{protocol::kUdidKey, udid}};
    Connection connection;
    // The setting is changed over the cable only, as on the Mac.
    if (auto failed = connect(connection, udid, IDEVICE_LOOKUP_USBMUX)) {
        return failure(line, *failed);
    }
    if (const auto error = startSession(connection, udid); error != LOCKDOWN_E_SUCCESS) {
        return failure(line, lockdownFailure(error));
    }
    if (wanted) {
        // The request takes the value over.
        const lockdownd_error_t error =
            lockdownd_set_value(connection.client, protocol::kWirelessDomain, protocol::kWifiKey,
                                plist_new_bool(*wanted ? 1 : 0));
        if (error != LOCKDOWN_E_SUCCESS) {
            return failure(line, lockdownFailure(error));
        }
    }
    lockdownd_error_t error = LOCKDOWN_E_SUCCESS;
    const auto enabled = wifiConnections(connection.client, &error);
    if (!enabled) {
        return failure(line, lockdownFailure(error));
    }
    line[protocol::kWifiConnectionsKey] = *enabled;
    return finish(line, protocol::kExitOk);
}

int usage() {
    std::fputs("Usage: tovrin-lockdown list\n"
               "       tovrin-lockdown info UDID [--network]\n"
               "       tovrin-lockdown wifi UDID [on|off]\n",
               stderr);
    return protocol::kExitUsage;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && arguments[0] == protocol::kListCommand) {
        return listPhones();
    }
    if (arguments.size() < 2 || arguments[1].empty()) {
        return usage();
    }
    const std::string& command = arguments[0];
    const std::string& udid = arguments[1];
    if (command == protocol::kInfoCommand && arguments.size() == 2) {
        return phoneInfo(udid, false);
    }
    if (command == protocol::kInfoCommand && arguments.size() == 3 &&
        arguments[2] == protocol::kNetworkOption) {
        return phoneInfo(udid, true);
    }
    if (command == protocol::kWifiCommand && arguments.size() == 2) {
        return wifi(udid, std::nullopt);
    }
    if (command == protocol::kWifiCommand && arguments.size() == 3 &&
        (arguments[2] == protocol::kOn || arguments[2] == protocol::kOff)) {
        return wifi(udid, arguments[2] == protocol::kOn);
    }
    return usage();
}
