#include "model/XmlContainers.h"

namespace ambrel {

namespace {

std::size_t occurrences(std::string_view text, std::string_view pattern) {
    std::size_t count = 0;
    for (auto position = text.find(pattern); position != std::string_view::npos;
         position = text.find(pattern, position + pattern.size())) {
        ++count;
    }
    return count;
}

} // namespace

std::size_t xmlContainerCount(std::string_view xml) {
    return occurrences(xml, "<array") + occurrences(xml, "<dict");
}

} // namespace ambrel
