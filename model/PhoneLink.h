#pragma once

#include <optional>
#include <string_view>

namespace ambrel {

// How the phone is reached: by cable through usbmuxd, or over the local network.
enum class PhoneLink { usb, wifi };

// The link's word where it is shown or stored: "USB" or "Wi-Fi" (a phone reading's source).
constexpr std::string_view phoneLinkText(PhoneLink link) {
    return link == PhoneLink::wifi ? "Wi-Fi" : "USB";
}

// The link a stored word names; nothing for any other word.
constexpr std::optional<PhoneLink> phoneLinkFromText(std::string_view text) {
    if (text == phoneLinkText(PhoneLink::usb)) {
        return PhoneLink::usb;
    }
    if (text == phoneLinkText(PhoneLink::wifi)) {
        return PhoneLink::wifi;
    }
    return std::nullopt;
}

} // namespace ambrel
