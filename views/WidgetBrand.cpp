#include "views/WidgetBrand.h"

#include <string_view>
#include <utility>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "platform/Bundle.h"

namespace ambrel::WidgetBrand {

namespace {

std::optional<std::string>& cachedName() {
    static std::optional<std::string> name;
    return name;
}

std::shared_ptr<const Bundle>& givenBundle() {
    static std::shared_ptr<const Bundle> bundle;
    return bundle;
}

// Byte offsets of the first and one past the last code point that is not white space (spaces
// of every kind, tabs and line breaks); equal when there is none.
std::pair<std::size_t, std::size_t> contentRange(std::string_view text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    std::size_t begin = text.size();
    std::size_t end = text.size();
    int32_t offset = 0;
    bool seenContent = false;
    while (offset < length) {
        const int32_t start = offset;
        UChar32 c = 0;
        U8_NEXT(bytes, offset, length, c);
        // A malformed byte sequence is content, not space.
        if (c < 0 || !u_isUWhiteSpace(c)) {
            if (!seenContent) {
                begin = static_cast<std::size_t>(start);
                seenContent = true;
            }
            end = static_cast<std::size_t>(offset);
        }
    }
    if (!seenContent) {
        return {0, 0};
    }
    return {begin, end};
}

} // namespace

std::string brandName(const std::optional<std::string>& displayName) {
    if (!displayName) {
        return kDefaultName;
    }
    const auto [begin, end] = contentRange(*displayName);
    if (begin == end) {
        return kDefaultName;
    }
    return displayName->substr(begin, end - begin);
}

const std::string& name() {
    auto& cached = cachedName();
    if (!cached) {
        const auto& bundle = givenBundle();
        cached = brandName(bundle ? bundle->infoString("CFBundleDisplayName") : std::nullopt);
    }
    return *cached;
}

void readFrom(std::shared_ptr<const Bundle> bundle) {
    givenBundle() = std::move(bundle);
    cachedName().reset();
}

void setDisplayNameForTesting(std::optional<std::string> displayName) {
    auto& cached = cachedName();
    if (displayName) {
        cached = brandName(displayName);
    } else {
        cached.reset();
    }
}

} // namespace ambrel::WidgetBrand
