#include "zprop/memory.h"

#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace zprop {
namespace {

constexpr int largest = 16 << 20;     // bytes of a block that is reused
constexpr int leastFile = 64 * 1024;  // bytes

/// Has the system make the whole pages of the block; where it cannot they come one by one.
void makePages(void* block, std::size_t length) {
#ifdef MADV_POPULATE_WRITE
    auto const page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto const start = reinterpret_cast<std::uintptr_t>(block);
    std::uintptr_t const first = (start + page - 1) / page * page;
    std::uintptr_t const end = (start + length) / page * page;
    static_cast<void>(madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE));
#else
    static_cast<void>(block);
    static_cast<void>(length);
#endif
}

}  // namespace

void keepFreedMemory() {
    static_cast<void>(mallopt(M_MMAP_THRESHOLD, largest));
    static_cast<void>(mallopt(M_TRIM_THRESHOLD, 2 * largest));
}

void takeMemoryFor(std::string const& file, std::size_t times) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0 || status.st_size < leastFile) return;
    auto const size = static_cast<unsigned long long>(status.st_size);
    if (size > largest / times) return;
    std::size_t const length = static_cast<std::size_t>(size) * times;
    void* const block = std::malloc(length);
    if (block == nullptr) return;
    makePages(block, length);
    std::free(block);  // to be taken again, since freed memory is kept
}

}  // namespace zprop
