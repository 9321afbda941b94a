#pragma once

#include <cstddef>

namespace ambrel {

// ICU's libraries are large: building the date formatters reads through a megabyte or two of
// its calendar and time-zone data and runs setup code that formatting never needs again. Those
// pages are clean copies of the library files, so they can be given back to the kernel once the
// formatters exist; the few that formatting uses are read back in on demand.
class IcuPages {
public:
    // Drops this process's mappings of the read-only parts (code, constants, locale data) of the
    // loaded ICU libraries from its resident set. Never touches a writable segment, so no state
    // is lost. Returns the bytes of address space advised (0 when no ICU library is loaded).
    // Any thread.
    static std::size_t release();
};

} // namespace ambrel
