#pragma once

namespace ambrel::AmbrelMain {

// The program's entry. One-shot commands first, before any GUI object exists, so that they
// work over SSH without a display: "--enable-login" / "--login-status" (one JSON line), then
// "--help", "--version" and "--readings". Anything else, unknown arguments included, runs the
// widget: a second launch hands over to the running copy and exits 0.
int main(int argc, char** argv);

} // namespace ambrel::AmbrelMain
