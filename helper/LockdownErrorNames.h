#pragma once

#include <string>

namespace ambrel::LockdownErrorNames {

// The name of a lockdown error code of libimobiledevice 1.3 (`lockdownd_error_t`): the phone's
// own word where the phone sends one ("InvalidHostID", "SetProhibited"), else a word for what
// the library met ("MuxError", "ReceiveTimeout"). "UnknownError" for a code it does not know.
std::string name(int code);

} // namespace ambrel::LockdownErrorNames
