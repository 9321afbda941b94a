// The reading cache: the JSON text of one saved phone reading, decoded straight from memory and
// loaded from a file the way a restart loads it.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "fuzz/FuzzCheck.h"
#include "model/BatteryDeviceSnapshot.h"
#include "monitor/ReadingCache.h"

using ambrel::fuzzing::check;

namespace {

// A fixed "now" keeps the outcome a function of the input alone.
const ambrel::Date kNow = ambrel::Date::fromSecondsSince1970(1794667260.0);

std::filesystem::path cacheFile;

bool sameFields(const ambrel::BatteryDeviceSnapshot& left,
                const ambrel::BatteryDeviceSnapshot& right) {
    return left.id() == right.id() && left.name() == right.name() &&
           left.percentage() == right.percentage() && left.isCharging() == right.isCharging() &&
           left.isPluggedIn() == right.isPluggedIn() && left.source() == right.source() &&
           left.model() == right.model() && left.lastUpdated() == right.lastUpdated();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::string folder = (std::filesystem::temp_directory_path() / "tovrin-fuzz-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    cacheFile = std::filesystem::path(folder) / "battery-cache.json";
    // The folder goes when the run ends, however it ends short of a crash.
    static const struct Cleanup {
        std::filesystem::path folder;
        ~Cleanup() {
            std::error_code error;
            std::filesystem::remove_all(folder, error);
        }
    } cleanup{folder};
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto decoded = ambrel::BatteryDeviceSnapshot::decodeJson(text);
    if (decoded) {
        // Saving what was read and reading it back changes nothing.
        const std::string encoded = decoded->encodeJson();
        const auto again = ambrel::BatteryDeviceSnapshot::decodeJson(encoded);
        check(again.has_value(), "an encoded snapshot decodes");
        check(sameFields(*decoded, *again), "a snapshot survives encoding unchanged");
        check(again->encodeJson() == encoded, "encoding is stable");
        (void)decoded->isStale(kNow);
    }

    {
        std::ofstream stream(cacheFile, std::ios::binary | std::ios::trunc);
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        check(stream.good(), "the cache file can be written");
    }
    const auto loaded = ambrel::ReadingCache::load(cacheFile, kNow);
    if (loaded) {
        check(decoded.has_value(), "only a decodable file loads");
        check(sameFields(*loaded, *decoded), "loading gives the decoded snapshot");
        check(loaded->id() == "iphone", "only a phone reading loads");
        check(loaded->percentage() >= 0 && loaded->percentage() <= 100,
              "only a percentage from 0 to 100 loads");
        check(loaded->lastUpdated() <= kNow.addingSeconds(ambrel::ReadingCache::kFutureTolerance),
              "a reading from further ahead than a minute does not load");
    }
    return 0;
}
