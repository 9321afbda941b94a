#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ambrel::AmbrelMain {

// The program's entry: one-shot commands first (they need no display), then the widget.
int main(int argc, char** argv);

} // namespace ambrel::AmbrelMain
