#pragma once

namespace ambrel {

// The colours the gauge logic asks for by meaning; the drawing layer picks the actual colour
// for the look in force (light or dark).
enum class ColorRole { primary, secondary, green, orange, red };

} // namespace ambrel
