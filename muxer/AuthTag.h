#pragma once

#include <string>

namespace ambrel {

// The tag a phone on a private Wi-Fi address puts in its advert for one computer it paired
// with: base64 of the first 8 bytes of HMAC-SHA256(K, identifier), where K is 32 bytes of
// HKDF-SHA512 from the pairing's HostID (no salt, no info) and `identifier` is the advert's own
// "identifier" value. A pairing's HostID is made anew for every pairing, so a tag that matches
// names the one phone that holds that record; the HostID itself never leaves this computer.
// Pure.
std::string authTagFor(const std::string& hostId, const std::string& identifier);

} // namespace ambrel
