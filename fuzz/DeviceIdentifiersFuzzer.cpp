// The device list printed by `idevice_id -n` or `-l`. Every identifier that comes out must be
// safe to pass on to ideviceinfo: short, and hexadecimal digits and hyphens only.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/FuzzCheck.h"
#include "phone/DeviceIdentifiers.h"

using ambrel::fuzzing::check;

namespace {

bool isIdentifierCharacter(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F') || character == '-';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view output(reinterpret_cast<const char*>(data), size);
    const auto identifiers = ambrel::parseDeviceIdentifiers(output);
    std::size_t searchFrom = 0;
    for (const auto& identifier : identifiers) {
        check(!identifier.empty(), "an identifier is never empty");
        check(identifier.size() <= ambrel::kLongestDeviceIdentifier,
              "an identifier is at most 128 characters");
        for (const char character : identifier) {
            check(isIdentifierCharacter(character),
                  "an identifier holds hexadecimal digits and hyphens only");
        }
        // Identifiers come out in the order they were printed, each taken from the text.
        const auto position = output.find(identifier, searchFrom);
        check(position != std::string_view::npos, "identifiers keep the printed order");
        searchFrom = position + identifier.size();
    }
    check(identifiers.size() <= size / 2 + 1, "at most one identifier per two bytes");
    return 0;
}
