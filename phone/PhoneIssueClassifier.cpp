#include "phone/PhoneIssueClassifier.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace ambrel::PhoneIssueClassifier {

namespace {

constexpr std::array<std::int64_t, 2> kLockedCodes = {-17, -35};
constexpr std::array<std::int64_t, 9> kPairingCodes = {-4, -18, -19, -20, -21, -29, -30, -31, -36};

// Checked in this order; all lower case, as the text they are looked for in.
constexpr std::array<std::string_view, 4> kLockedPhrases = {
    "password protected", "password_protected", "device is locked", "escrow locked"};
constexpr std::array<std::string_view, 11> kPairingPhrases = {
    "pairing failed",      "pairing required",    "not paired",
    "invalid pair record", "missing pair record", "invalid host id",
    "missing host id",     "user denied pairing", "pairing dialog response pending",
    "trust dialog",        "trust this computer"};

// Lower-cases the tool's text for the phrase tests. ASCII letters are lowered; the only other
// characters whose lower case contains ASCII are U+212A KELVIN SIGN ("k") and U+0130 (an "i"
// with a combining dot), so those are lowered too. Every other character is left alone: its
// lower case holds no ASCII, so it could never take part in a match of the ASCII phrases,
// the word "lockdown" or a parenthesised number.
std::string lowercased(std::string_view text) {
    std::string lower;
    lower.reserve(text.size());
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char character = text[position];
        if (character >= 'A' && character <= 'Z') {
            lower.push_back(static_cast<char>(character - 'A' + 'a'));
        } else if (text.substr(position, 3) == "\xE2\x84\xAA") {
            lower.push_back('k');
            position += 2;
        } else if (text.substr(position, 2) == "\xC4\xB0") {
            lower.append("i\xCC\x87");
            position += 1;
        } else {
            lower.push_back(character);
        }
    }
    return lower;
}

bool isAsciiDigit(char character) {
    return character >= '0' && character <= '9';
}

// The first match of "\((-?\d+)\)" with ASCII digits, parsed as a 64-bit integer. A scan is
// exact here: a match can only end at the ")" right after the digits that follow its "(", so
// trying each "(" from the left finds the same first match a regular expression would. A match
// whose number overflows gives no code; later matches are not considered.
std::optional<std::int64_t> firstParenthesisedCode(std::string_view text) {
    for (auto open = text.find('('); open != std::string_view::npos;
         open = text.find('(', open + 1)) {
        std::size_t position = open + 1;
        const std::size_t numberStart = position;
        if (position < text.size() && text[position] == '-') {
            ++position;
        }
        const std::size_t digitsStart = position;
        while (position < text.size() && isAsciiDigit(text[position])) {
            ++position;
        }
        if (position == digitsStart || position >= text.size() || text[position] != ')') {
            continue;
        }
        std::int64_t code = 0;
        const char* first = text.data() + numberStart;
        const char* last = text.data() + position;
        const auto [end, error] = std::from_chars(first, last, code);
        if (error != std::errc() || end != last) {
            return std::nullopt;
        }
        return code;
    }
    return std::nullopt;
}

template <std::size_t N>
bool containsCode(const std::array<std::int64_t, N>& codes, std::int64_t code) {
    for (const auto listed : codes) {
        if (listed == code) {
            return true;
        }
    }
    return false;
}

template <std::size_t N>
bool containsAny(std::string_view text, const std::array<std::string_view, N>& phrases) {
    for (const auto phrase : phrases) {
        if (text.find(phrase) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

PhoneIssue issue(PhoneSetupState state, const char* message, bool isTransient) {
    return PhoneIssue{state, message, isTransient};
}

} // namespace

PhoneIssue classify(const std::optional<CommandOutput>& lastFailure, bool sawCandidates,
                    bool triedWiFi) {
    if (!lastFailure) {
        if (sawCandidates) {
            return issue(PhoneSetupState::notFound, kTemporarilyUnavailable, triedWiFi);
        }
        return issue(PhoneSetupState::notFound, kNotFound, triedWiFi);
    }

    const std::string text = lowercased(lastFailure->stderrText);
    std::optional<std::int64_t> code;
    if (text.find("lockdown") != std::string::npos) {
        code = firstParenthesisedCode(text);
    }

    if (code && containsCode(kLockedCodes, *code)) {
        return issue(PhoneSetupState::notFound, kLocked, false);
    }
    if (containsAny(text, kLockedPhrases)) {
        return issue(PhoneSetupState::notFound, kLocked, false);
    }
    if (code && containsCode(kPairingCodes, *code)) {
        return issue(PhoneSetupState::needsPairing, kTrust, false);
    }
    if (containsAny(text, kPairingPhrases)) {
        return issue(PhoneSetupState::needsPairing, kTrust, false);
    }

    if (lastFailure->timedOut) {
        return issue(PhoneSetupState::notFound, kTimedOut, triedWiFi);
    }
    if (sawCandidates) {
        return issue(PhoneSetupState::notFound, kTemporarilyUnavailable, triedWiFi);
    }
    if (lastFailure->status == 0) {
        return issue(PhoneSetupState::notFound, kNotFound, triedWiFi);
    }
    return issue(PhoneSetupState::unavailable, kServiceUnreachable, false);
}

} // namespace ambrel::PhoneIssueClassifier
