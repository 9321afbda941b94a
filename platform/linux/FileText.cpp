#include "platform/linux/FileText.h"

#include <fstream>

namespace ambrel {

std::optional<std::string> readFileText(const std::filesystem::path& path, std::size_t limit) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::string text;
    text.resize(limit);
    stream.read(text.data(), static_cast<std::streamsize>(limit));
    if (stream.bad()) {
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

} // namespace ambrel
