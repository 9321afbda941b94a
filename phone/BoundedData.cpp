#include "phone/BoundedData.h"

#include <algorithm>

#include "phone/UnicodeText.h"

namespace ambrel {

BoundedData::BoundedData(std::size_t capacity) : m_capacity(capacity) {}

bool BoundedData::append(std::string_view chunk) {
    const std::lock_guard guard(m_lock);
    const std::size_t room = m_capacity - m_data.size();
    m_data.append(chunk.substr(0, std::min(room, chunk.size())));
    return m_data.size() < m_capacity;
}

std::string BoundedData::string() const {
    const std::lock_guard guard(m_lock);
    return decodeUtf8Lossy(m_data);
}

std::size_t BoundedData::size() const {
    const std::lock_guard guard(m_lock);
    return m_data.size();
}

} // namespace ambrel
