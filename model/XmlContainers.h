#pragma once

#include <cstddef>
#include <string_view>

namespace ambrel {

// How many arrays and dictionaries an XML property list opens, counted by their opening tags:
// libplist accepts no space after "<", so every nested value starts with "<array" or "<dict"
// and the count bounds the nesting depth from above. Lets a caller refuse a document before
// libplist recurses into it. Pure; thread-safe.
std::size_t xmlContainerCount(std::string_view xml);

} // namespace ambrel
