#include "presentation/IcuPages.h"

#include <cstdint>
#include <string_view>

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

namespace ambrel {

namespace {

bool isIcuLibrary(const char* path) {
    if (path == nullptr) {
        return false;
    }
    std::string_view name(path);
    const auto slash = name.rfind('/');
    if (slash != std::string_view::npos) {
        name.remove_prefix(slash + 1);
    }
    return name.starts_with("libicu");
}

int releaseObject(dl_phdr_info* info, std::size_t, void* total) {
    if (!isIcuLibrary(info->dlpi_name)) {
        return 0;
    }
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    for (int index = 0; index < info->dlpi_phnum; ++index) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[index];
        // A writable segment holds relocated pointers and the library's variables: advising it
        // away would throw them back to the file's contents.
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
            continue;
        }
        const std::uintptr_t start = (info->dlpi_addr + segment.p_vaddr) & ~(page - 1);
        const std::uintptr_t end =
            (info->dlpi_addr + segment.p_vaddr + segment.p_memsz + page - 1) & ~(page - 1);
        if (madvise(reinterpret_cast<void*>(start), end - start, MADV_DONTNEED) == 0) {
            *static_cast<std::size_t*>(total) += end - start;
        }
    }
    return 0;
}

} // namespace

std::size_t IcuPages::release() {
    std::size_t total = 0;
    dl_iterate_phdr(releaseObject, &total);
    return total;
}

} // namespace ambrel
