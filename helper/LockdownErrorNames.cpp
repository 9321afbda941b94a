#include "helper/LockdownErrorNames.h"

#include <array>
#include <utility>

namespace ambrel::LockdownErrorNames {

std::string name(int code) {
    // The codes are those of <libimobiledevice/lockdown.h> (1.3.0); kept as numbers so that
    // this table is tested without the library.
    static constexpr std::array<std::pair<int, const char*>, 40> kNames{{
        {0, "Success"},
        {-1, "InvalidArgument"},
        {-2, "InvalidConfiguration"},
        {-3, "PlistError"},
        {-4, "PairingFailed"},
        {-5, "SslError"},
        {-6, "DictError"},
        {-7, "ReceiveTimeout"},
        {-8, "MuxError"},
        {-9, "NoRunningSession"},
        {-10, "InvalidResponse"},
        {-11, "MissingKey"},
        {-12, "MissingValue"},
        {-13, "GetProhibited"},
        {-14, "SetProhibited"},
        {-15, "RemoveProhibited"},
        {-16, "ImmutableValue"},
        {-17, "PasswordProtected"},
        {-18, "UserDeniedPairing"},
        {-19, "PairingDialogResponsePending"},
        {-20, "MissingHostID"},
        {-21, "InvalidHostID"},
        {-22, "SessionActive"},
        {-23, "SessionInactive"},
        {-24, "MissingSessionID"},
        {-25, "InvalidSessionID"},
        {-26, "MissingService"},
        {-27, "InvalidService"},
        {-28, "ServiceLimit"},
        {-29, "MissingPairRecord"},
        {-30, "SavePairRecordFailed"},
        {-31, "InvalidPairRecord"},
        {-32, "InvalidActivationRecord"},
        {-33, "MissingActivationRecord"},
        {-34, "ServiceProhibited"},
        {-35, "EscrowLocked"},
        {-36, "PairingProhibitedOverThisConnection"},
        {-37, "FMiPProtected"},
        {-38, "MCProtected"},
        {-39, "MCChallengeRequired"},
    }};
    for (const auto& [number, text] : kNames) {
        if (number == code) {
            return text;
        }
    }
    return "UnknownError";
}

} // namespace ambrel::LockdownErrorNames
