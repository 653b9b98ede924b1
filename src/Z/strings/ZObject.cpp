#include "Z/ZObject.h"

#include <functional>

#include "Z/ZException.h"

namespace {

constexpr char sourceName[] = "src/Z/ZObject";
constexpr int allocationFailureLine = 75;  // fixed: part of the report that administrators know

template <class... Alignment>
void* allocate(std::size_t size, Alignment... alignment) {
    // std::bad_alloc is no exception of this library's tree, which callers catch by its root.
    void* const block = ::operator new(size, alignment..., std::nothrow);
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, allocationFailureLine);
    return block;
}

}  // namespace

unsigned long ZObject::hash() const { return reinterpret_cast<unsigned long>(this); }

int ZObject::compare(ZObject const& other) const {
    if (this == &other) return 0;
    // ISO C++ orders unrelated pointers by std::less alone.
    return std::less<ZObject const*>()(this, &other) ? -1 : 1;
}

ZObject* ZObject::clone() const { return nullptr; }

bool ZObject::equals(ZObject const& other) const { return compare(other) == 0; }

// The forms for arrays are those for one object: the compiler has counted the bytes.

void* ZObject::operator new(std::size_t size) { return allocate(size); }
void* ZObject::operator new[](std::size_t size) { return allocate(size); }
void* ZObject::operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, alignment);
}
void* ZObject::operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate(size, alignment);
}

void* ZObject::operator new(std::size_t size, std::nothrow_t const& none) noexcept {
    return ::operator new(size, none);
}
void* ZObject::operator new[](std::size_t size, std::nothrow_t const& none) noexcept {
    return ::operator new(size, none);
}
void* ZObject::operator new(std::size_t size, std::align_val_t alignment,
                            std::nothrow_t const& none) noexcept {
    return ::operator new(size, alignment, none);
}
void* ZObject::operator new[](std::size_t size, std::align_val_t alignment,
                              std::nothrow_t const& none) noexcept {
    return ::operator new(size, alignment, none);
}

void ZObject::operator delete(void* block) noexcept { ::operator delete(block); }
void ZObject::operator delete[](void* block) noexcept { ::operator delete(block); }
void ZObject::operator delete(void* block, std::align_val_t alignment) noexcept {
    ::operator delete(block, alignment);
}
void ZObject::operator delete[](void* block, std::align_val_t alignment) noexcept {
    ::operator delete(block, alignment);
}

void ZObject::operator delete(void* block, std::nothrow_t const& /*none*/) noexcept {
    ::operator delete(block);
}
void ZObject::operator delete[](void* block, std::nothrow_t const& /*none*/) noexcept {
    ::operator delete(block);
}
void ZObject::operator delete(void* block, std::align_val_t alignment,
                              std::nothrow_t const& /*none*/) noexcept {
    ::operator delete(block, alignment);
}
void ZObject::operator delete[](void* block, std::align_val_t alignment,
                                std::nothrow_t const& /*none*/) noexcept {
    ::operator delete(block, alignment);
}
