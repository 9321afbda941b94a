#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace ambrel {

// The bytes one output stream of a tool run has printed, kept up to a fixed cap. Shared
// between the run and the reader thread of its stream; every access takes the lock, so the run
// never sees a half-appended chunk. Thread-safe.
class BoundedData {
public:
    explicit BoundedData(std::size_t capacity);

    // Keeps as much of `chunk` as still fits under the cap and drops the rest. Returns false
    // once the buffer is full, so the reader can stop taking the lock for bytes it discards.
    bool append(std::string_view chunk);

    // The kept bytes decoded as UTF-8, ill-formed sequences replaced by U+FFFD.
    std::string string() const;

    std::size_t size() const;

private:
    const std::size_t m_capacity;
    mutable std::mutex m_lock;
    std::string m_data;
};

} // namespace ambrel
