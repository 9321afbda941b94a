// Placeholder until the reader lands: reports the tools as missing.
#include "phone/PhoneReader.h"
#include "phone/PhoneIssueClassifier.h"

namespace ambrel::PhoneReader {

PhoneReadResult readAttempt(const std::filesystem::path&, const std::optional<std::string>&,
                            const std::optional<PhoneIdentity>&, const Clock&) {
    return unexpected(
        PhoneIssue{PhoneSetupState::unavailable, PhoneIssueClassifier::kMissingTools, false});
}

} // namespace ambrel::PhoneReader
