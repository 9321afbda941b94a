#include "phone/DeviceIdentifiers.h"

#include <algorithm>
#include <array>

#include "model/WhiteSpace.h"

namespace ambrel {

namespace {

// The line breaks beyond ASCII, as UTF-8: U+0085, U+2028, U+2029.
constexpr std::array<std::string_view, 3> kWideLineBreaks = {"\xC2\x85", "\xE2\x80\xA8",
                                                             "\xE2\x80\xA9"};

// The length of the line break at `position`, or 0 when there is none.
std::size_t lineBreakLength(std::string_view text, std::size_t position) {
    switch (text[position]) {
    case '\n':
    case '\v':
    case '\f':
    case '\r':
        return 1;
    default:
        break;
    }
    for (const auto lineBreak : kWideLineBreaks) {
        if (text.substr(position, lineBreak.size()) == lineBreak) {
            return lineBreak.size();
        }
    }
    return 0;
}

bool isIdentifierCharacter(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F') || character == '-';
}

bool isDeviceIdentifier(std::string_view piece) {
    return !piece.empty() && piece.size() <= kLongestDeviceIdentifier &&
           std::all_of(piece.begin(), piece.end(), isIdentifierCharacter);
}

} // namespace

std::vector<std::string> parseDeviceIdentifiers(std::string_view listOutput) {
    std::vector<std::string> identifiers;
    std::size_t pieceStart = 0;
    const auto takePiece = [&](std::size_t pieceEnd) {
        const auto piece =
            trimmingWhitespaceAndNewlines(listOutput.substr(pieceStart, pieceEnd - pieceStart));
        // Only ASCII passes the character test, so bytes and characters count the same here.
        if (isDeviceIdentifier(piece)) {
            identifiers.emplace_back(piece);
        }
    };
    std::size_t position = 0;
    while (position < listOutput.size()) {
        const std::size_t breakLength = lineBreakLength(listOutput, position);
        if (breakLength == 0) {
            ++position;
            continue;
        }
        takePiece(position);
        position += breakLength;
        pieceStart = position;
    }
    takePiece(listOutput.size());
    return identifiers;
}

} // namespace ambrel
