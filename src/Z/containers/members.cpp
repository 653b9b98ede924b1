#include "Z/containers/members.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "Z/ZException.h"

namespace zfc::containers {
namespace {

constexpr char sourceName[] = "src/Z/ZArray";

Row ownedRow(void* block) {
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return Row(static_cast<ZObject**>(block));
}

void checkCount(unsigned int count) {
    if (count > maxCount) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

}  // namespace

Row newRow(unsigned int count) {
    checkCount(count);
    return ownedRow(std::calloc(count, sizeof(ZObject*)));
}

void resizeRow(Row& row, unsigned int count) {
    checkCount(count);
    std::size_t bytes = 0;
    // calloc() checks the product, realloc() does not see it: on 32 bits it can wrap.
    if (__builtin_mul_overflow(std::size_t{count}, sizeof(ZObject*), &bytes) ||
        !resizeBlock(row, bytes))
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

void askForLargePages(char* block, std::size_t bytes) {
    constexpr std::size_t largeBlock = std::size_t{4} << 20;
    if (bytes < largeBlock) return;
    auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::size_t const offset = page - reinterpret_cast<std::uintptr_t>(block) % page;
    static_cast<void>(madvise(block + offset, bytes - offset, MADV_HUGEPAGE));
}

std::unique_ptr<ZObject> cloneOf(ZObject const* object) {
    if (object == nullptr) return nullptr;
    std::unique_ptr<ZObject> copy(object->clone());
    if (copy == nullptr) zraise(ZNotClonableException(), sourceName, __LINE__);
    return copy;
}

unsigned long hashOf(ZObject const* object) { return object != nullptr ? object->hash() : 0; }

bool matches(ZObject const* probe, ZObject const* member) {
    if (probe == nullptr || member == nullptr) return probe == member;
    return probe->equals(*member);
}

int firstMatch(Row const& row, unsigned int count, ZObject const* probe) {
    for (unsigned int i = 0; i < count; ++i) {
        if (matches(probe, row[i])) return static_cast<int>(i);
    }
    return -1;
}

int lastMatch(Row const& row, unsigned int count, ZObject const* probe) {
    for (unsigned int i = count; i-- > 0;) {
        if (matches(probe, row[i])) return static_cast<int>(i);
    }
    return -1;
}

Appending::~Appending() {
    // One by one, not by cutting the count: an owning list has clones to delete.
    while (!kept && list.size() > size)
        list.remove(list.size() - 1);
}

}  // namespace zfc::containers
