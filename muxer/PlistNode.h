#pragma once

#include <plist/plist.h>

namespace ambrel {

// Owns one libplist value and frees it with the value; a copy is a deep copy. Empty when it
// holds nothing. Not thread-safe: a node belongs to one thread at a time.
class PlistNode {
public:
    PlistNode() = default;
    // Takes ownership of `node` (may be null).
    explicit PlistNode(plist_t node) : m_node(node) {}
    ~PlistNode();
    PlistNode(const PlistNode& other);
    PlistNode& operator=(const PlistNode& other);
    PlistNode(PlistNode&& other) noexcept;
    PlistNode& operator=(PlistNode&& other) noexcept;

    plist_t get() const { return m_node; }
    // Hands the value over to the caller, who frees it (or gives it to a container).
    plist_t release();
    explicit operator bool() const { return m_node != nullptr; }

private:
    plist_t m_node = nullptr;
};

} // namespace ambrel
