#include "muxer/PlistNode.h"

#include <utility>

namespace ambrel {

PlistNode::~PlistNode() {
    if (m_node != nullptr) {
        plist_free(m_node);
    }
}

PlistNode::PlistNode(const PlistNode& other)
    : m_node(other.m_node != nullptr ? plist_copy(other.m_node) : nullptr) {}

PlistNode& PlistNode::operator=(const PlistNode& other) {
    if (this != &other) {
        PlistNode copy(other);
        std::swap(m_node, copy.m_node);
    }
    return *this;
}

PlistNode::PlistNode(PlistNode&& other) noexcept : m_node(std::exchange(other.m_node, nullptr)) {}

PlistNode& PlistNode::operator=(PlistNode&& other) noexcept {
    if (this != &other) {
        PlistNode gone(std::move(*this));
        m_node = std::exchange(other.m_node, nullptr);
    }
    return *this;
}

plist_t PlistNode::release() {
    return std::exchange(m_node, nullptr);
}

} // namespace ambrel
