#pragma once

namespace ambrel::testing {

// The test process's QApplication on the offscreen platform (no display needed), made on first
// use and kept until the process ends.
void ensureOffscreenApplication();

} // namespace ambrel::testing
