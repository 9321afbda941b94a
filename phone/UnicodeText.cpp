#include "phone/UnicodeText.h"

#include <cstdint>
#include <memory>

#include <unicode/ubrk.h>
#include <unicode/utext.h>

#include "model/Utf8.h"

namespace ambrel {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

} // namespace

std::string decodeUtf8Lossy(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t position = 0;
    while (position < bytes.size()) {
        const auto step = decodeUtf8At(bytes, position);
        if (step.value) {
            text.append(bytes.substr(position, step.length));
        } else {
            text.append(kReplacementCharacter);
        }
        position += step.length;
    }
    return text;
}

std::size_t characterCount(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UText, decltype(&utext_close)> utext(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status),
        &utext_close);
    std::unique_ptr<UBreakIterator, decltype(&ubrk_close)> breaks(
        ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status), &ubrk_close);
    if (U_SUCCESS(status)) {
        ubrk_setUText(breaks.get(), utext.get(), &status);
    }
    std::size_t count = 0;
    if (U_SUCCESS(status)) {
        while (ubrk_next(breaks.get()) != UBRK_DONE) {
            ++count;
        }
        return count;
    }
    // Without break data, count code points: never fewer than the characters, so a length
    // limit errs on the strict side.
    for (std::size_t position = 0; position < text.size(); ++count) {
        position += decodeUtf8At(text, position).length;
    }
    return count;
}

} // namespace ambrel
