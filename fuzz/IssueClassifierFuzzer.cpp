// The classification of a failed phone read: the standard-error text of the last failed tool
// run together with how it ended and what the attempt saw.
//
// Input layout: byte 0 holds the flags (bit 0: a failure was recorded, bit 1: it timed out,
// bit 2: candidates were seen, bit 3: Wi-Fi was tried), bytes 1 to 4 the exit status (little
// endian), and the rest is the standard-error text.
//
// Besides never crashing, the outcome must always be one of the six worded issues with its own
// state, and for ASCII texts it must agree with a plain reference reading of the rules that
// finds the error code with a regular expression.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <regex>
#include <string>
#include <string_view>

#include "fuzz/FuzzCheck.h"
#include "phone/PhoneIssueClassifier.h"

using ambrel::fuzzing::check;
namespace Classifier = ambrel::PhoneIssueClassifier;

namespace {

// std::regex recurses per character; longer texts are only checked for the basic properties.
constexpr std::size_t kLongestReferenceText = 512;

struct Observation {
    std::optional<ambrel::CommandOutput> lastFailure;
    bool sawCandidates = false;
    bool triedWiFi = false;
};

Observation observationFrom(const std::uint8_t* data, std::size_t size) {
    Observation observation;
    if (size == 0) {
        return observation;
    }
    const std::uint8_t flags = data[0];
    observation.sawCandidates = (flags & 4) != 0;
    observation.triedWiFi = (flags & 8) != 0;
    if ((flags & 1) == 0) {
        return observation;
    }
    std::uint32_t status = 0;
    for (std::size_t index = 0; index < 4 && 1 + index < size; ++index) {
        status |= static_cast<std::uint32_t>(data[1 + index]) << (8 * index);
    }
    ambrel::CommandOutput output;
    output.status = static_cast<std::int32_t>(status);
    output.timedOut = (flags & 2) != 0;
    if (size > 5) {
        output.stderrText.assign(reinterpret_cast<const char*>(data + 5), size - 5);
    }
    observation.lastFailure = output;
    return observation;
}

bool contains(const std::string& text, std::string_view phrase) {
    return text.find(phrase) != std::string::npos;
}

// The rules read one by one, the error code found by a regular expression.
ambrel::PhoneIssue reference(const Observation& seen) {
    using ambrel::PhoneSetupState;
    const auto issue = [](PhoneSetupState state, const char* message, bool transient) {
        return ambrel::PhoneIssue{state, message, transient};
    };
    if (!seen.lastFailure) {
        return issue(PhoneSetupState::notFound,
                     seen.sawCandidates ? Classifier::kTemporarilyUnavailable
                                        : Classifier::kNotFound,
                     seen.triedWiFi);
    }
    std::string text = seen.lastFailure->stderrText;
    std::transform(text.begin(), text.end(), text.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
    });
    std::optional<long long> code;
    if (contains(text, "lockdown")) {
        std::smatch match;
        if (std::regex_search(text, match, std::regex(R"(\((-?[0-9]+)\))"))) {
            errno = 0;
            char* end = nullptr;
            const std::string digits = match[1].str();
            const long long value = std::strtoll(digits.c_str(), &end, 10);
            if (errno == 0 && end != nullptr && *end == '\0') {
                code = value;
            }
        }
    }
    const auto codeIn = [&](std::initializer_list<long long> codes) {
        return code && std::find(codes.begin(), codes.end(), *code) != codes.end();
    };
    const auto anyOf = [&](std::initializer_list<std::string_view> phrases) {
        return std::any_of(phrases.begin(), phrases.end(),
                           [&](std::string_view phrase) { return contains(text, phrase); });
    };
    if (codeIn({-17, -35}) ||
        anyOf({"password protected", "password_protected", "device is locked", "escrow locked"})) {
        return issue(PhoneSetupState::notFound, Classifier::kLocked, false);
    }
    if (codeIn({-4, -18, -19, -20, -21, -29, -30, -31, -36}) ||
        anyOf({"pairing failed", "pairing required", "not paired", "invalid pair record",
               "missing pair record", "invalid host id", "missing host id", "user denied pairing",
               "pairing dialog response pending", "trust dialog", "trust this computer"})) {
        return issue(PhoneSetupState::needsPairing, Classifier::kTrust, false);
    }
    if (seen.lastFailure->timedOut) {
        return issue(PhoneSetupState::notFound, Classifier::kTimedOut, seen.triedWiFi);
    }
    if (seen.sawCandidates) {
        return issue(PhoneSetupState::notFound, Classifier::kTemporarilyUnavailable,
                     seen.triedWiFi);
    }
    if (seen.lastFailure->status == 0) {
        return issue(PhoneSetupState::notFound, Classifier::kNotFound, seen.triedWiFi);
    }
    return issue(PhoneSetupState::unavailable, Classifier::kServiceUnreachable, false);
}

bool isAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char character) { return static_cast<unsigned char>(character) < 0x80; });
}

// Every message goes with one state, whatever the input.
void checkWording(const ambrel::PhoneIssue& issue) {
    using ambrel::PhoneSetupState;
    const std::array<std::pair<const char*, PhoneSetupState>, 6> wordings = {{
        {Classifier::kLocked, PhoneSetupState::notFound},
        {Classifier::kTrust, PhoneSetupState::needsPairing},
        {Classifier::kTimedOut, PhoneSetupState::notFound},
        {Classifier::kTemporarilyUnavailable, PhoneSetupState::notFound},
        {Classifier::kNotFound, PhoneSetupState::notFound},
        {Classifier::kServiceUnreachable, PhoneSetupState::unavailable},
    }};
    const auto found = std::find_if(wordings.begin(), wordings.end(), [&](const auto& wording) {
        return issue.message == wording.first;
    });
    check(found != wordings.end(), "the message is one of the six classified issues");
    check(issue.state == found->second, "the message comes with its own state");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Observation seen = observationFrom(data, size);
    const auto issue = Classifier::classify(seen.lastFailure, seen.sawCandidates, seen.triedWiFi);
    checkWording(issue);
    check(!issue.isTransient || seen.triedWiFi, "only a Wi-Fi attempt can be transient");
    if (!seen.lastFailure || (isAscii(seen.lastFailure->stderrText) &&
                              seen.lastFailure->stderrText.size() <= kLongestReferenceText)) {
        check(issue == reference(seen), "the outcome follows the rules in their order");
    }
    return 0;
}
