#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "muxer/PlistNode.h"

namespace ambrel::testing {

// A binary pair record as libimobiledevice saves one, with the keys the muxer reads and a
// stand-in private key; an empty MAC leaves WiFiMACAddress out.
inline std::string pairRecordBytes(const std::string& mac, const std::string& buid,
                                   const std::string& hostId = "5B7A1C52-4E4B-4D2B-9A05-1C1D") {
    PlistNode record(plist_new_dict());
    plist_dict_set_item(record.get(), "HostID", plist_new_string(hostId.c_str()));
    plist_dict_set_item(record.get(), "SystemBUID", plist_new_string(buid.c_str()));
    plist_dict_set_item(record.get(), "HostPrivateKey", plist_new_data("SECRET-KEY", 10));
    if (!mac.empty()) {
        plist_dict_set_item(record.get(), "WiFiMACAddress", plist_new_string(mac.c_str()));
    }
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(record.get(), &bytes, &length);
    std::string result(bytes, length);
    std::free(bytes);
    return result;
}

inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

} // namespace ambrel::testing
