#pragma once

#include <sys/stat.h>

namespace ambrel::testing {

// Sets the process's umask for the life of the object; children started meanwhile inherit it.
class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask) : m_previous(::umask(mask)) {}
    ~ScopedUmask() { ::umask(m_previous); }
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
    mode_t m_previous;
};

} // namespace ambrel::testing
