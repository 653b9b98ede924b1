#include "Z/ZObject.h"

#include <functional>

#include "Z/ZException.h"

namespace {

constexpr char sourceName[] = "src/Z/ZObject";
constexpr int allocationFailureLine = 75;  // fixed: part of the report that administrators know

void* allocate(std::size_t size) {
    // std::bad_alloc is no exception of this library's tree, which callers catch by its root.
    void* const block = ::operator new(size, std::nothrow);
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, allocationFailureLine);
    return block;
}

}  // namespace

ZObject::~ZObject() = default;

unsigned long ZObject::hash() const { return reinterpret_cast<unsigned long>(this); }

int ZObject::compare(ZObject const& other) const {
    if (this == &other) return 0;
    // ISO C++ orders unrelated pointers by std::less alone.
    return std::less<ZObject const*>()(this, &other) ? -1 : 1;
}

ZObject* ZObject::clone() const { return nullptr; }

bool ZObject::equals(ZObject const& other) const { return compare(other) == 0; }

void* ZObject::operator new(std::size_t size) { return allocate(size); }
void* ZObject::operator new[](std::size_t size) { return allocate(size); }
void ZObject::operator delete(void* block) noexcept { ::operator delete(block); }
void ZObject::operator delete[](void* block) noexcept { ::operator delete(block); }
