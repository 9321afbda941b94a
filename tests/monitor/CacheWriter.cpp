// Saves the reading cache over and over, alternating two readings, and writes one byte to its
// standard output after each completed save. The crash-safety test kills it at random moments.
// Usage: ambrel_cache_writer <cache file>

#include <cstdio>

#include <unistd.h>

#include "monitor/ReadingCache.h"
#include "tests/monitor/CacheWriterSnapshots.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: ambrel_cache_writer <cache file>\n", stderr);
        return 2;
    }
    const std::filesystem::path file = argv[1];
    const auto first = ambrel::testing::phonecycle::cacheWriterSnapshot(true);
    const auto second = ambrel::testing::phonecycle::cacheWriterSnapshot(false);
    for (unsigned long count = 0;; ++count) {
        ambrel::ReadingCache::save(file, count % 2 == 0 ? first : second);
        const char mark = 'w';
        if (::write(STDOUT_FILENO, &mark, 1) != 1) {
            return 1;
        }
    }
}
