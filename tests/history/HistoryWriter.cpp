// Appends history rows over and over and writes each committed row's number (4 bytes) to its
// standard output. The crash-safety test kills it at random moments.
// Usage: ambrel_history_writer <history file> <first row number>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "history/HistoryStore.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: ambrel_history_writer <history file> <first row number>\n", stderr);
        return 2;
    }
    ambrel::HistoryStore store(argv[1]);
    if (!store.open(ambrel::Date::fromSecondsSinceReferenceDate(800000000.0))) {
        std::fprintf(stderr, "%s\n", store.status().c_str());
        return 1;
    }
    for (std::uint32_t number = static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10));;
         ++number) {
        ambrel::HistoryRow row;
        row.time = ambrel::Date::fromSecondsSinceReferenceDate(800000000.0 + number);
        row.device = number % 2 == 0 ? "mac" : "iphone";
        row.percentage = static_cast<int>(number % 101);
        row.isCharging = number % 3 == 0;
        row.isPluggedIn = number % 5 == 0;
        row.link = number % 2 == 0 ? "" : "Wi-Fi";
        if (!store.append(row)) {
            std::fprintf(stderr, "%s\n", store.status().c_str());
            return 1;
        }
        if (::write(STDOUT_FILENO, &number, sizeof number) != sizeof number) {
            return 1;
        }
    }
}
