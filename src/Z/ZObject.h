/// The root of almost every class of the library.
#ifndef Z_ZOBJECT_H
#define Z_ZOBJECT_H

#include "Z/ztags.h"

#include <cstddef>
#include <new>

#include "Z/zexport.h"

/// Identity, ordering, hashing and cloning for everything that a container can hold, and
/// allocation that reports exhaustion as an exception.
///
/// An object is, until a class says otherwise, equal to itself alone and ordered by its address. A
/// class with content overrides compare(), and with it hash() when it is to be a key.
class ZFC_API ZObject {
  public:
    ZObject() = default;
    ZObject(ZObject const&) = default;
    ZObject& operator=(ZObject const&) = default;

    // in slot order: do not sort
    ZFC_API virtual ~ZObject() = default;
    /// The object's own address as a number.
    [[nodiscard]] virtual unsigned long hash() const;
    /// 0 for this object itself, -1 when this object lies at the lower address, else 1.
    [[nodiscard]] virtual int compare(ZObject const& other) const;
    /// A new copy that the caller owns, made with this class's operator new; null when the class
    /// cannot be cloned, as here.
    [[nodiscard]] virtual ZObject* clone() const;
    /// Whether compare() gives 0.
    [[nodiscard]] virtual bool equals(ZObject const& other) const;

    /// All six ask the virtual compare().
    [[nodiscard]] bool operator==(ZObject const& other) const { return compare(other) == 0; }
    [[nodiscard]] bool operator!=(ZObject const& other) const { return compare(other) != 0; }
    [[nodiscard]] bool operator<(ZObject const& other) const { return compare(other) < 0; }
    [[nodiscard]] bool operator>(ZObject const& other) const { return compare(other) > 0; }
    [[nodiscard]] bool operator<=(ZObject const& other) const { return compare(other) <= 0; }
    [[nodiscard]] bool operator>=(ZObject const& other) const { return compare(other) >= 0; }

    /// Never return null: throw ZOutOfMemoryException (message 1).
    static void* operator new(std::size_t size);
    static void* operator new[](std::size_t size);
    static void* operator new(std::size_t size, std::align_val_t alignment);
    static void* operator new[](std::size_t size, std::align_val_t alignment);
    /// Return null instead.
    static void* operator new(std::size_t size, std::nothrow_t const&) noexcept;
    static void* operator new[](std::size_t size, std::nothrow_t const&) noexcept;
    static void* operator new(std::size_t size, std::align_val_t alignment,
                              std::nothrow_t const&) noexcept;
    static void* operator new[](std::size_t size, std::align_val_t alignment,
                                std::nothrow_t const&) noexcept;
    /// Take back what the forms above gave; null is left alone.
    static void operator delete(void* block) noexcept;
    static void operator delete[](void* block) noexcept;
    static void operator delete(void* block, std::align_val_t alignment) noexcept;
    static void operator delete[](void* block, std::align_val_t alignment) noexcept;
    /// For constructors that throw.
    static void operator delete(void* block, std::nothrow_t const&) noexcept;
    static void operator delete[](void* block, std::nothrow_t const&) noexcept;
    static void operator delete(void* block, std::align_val_t alignment,
                                std::nothrow_t const&) noexcept;
    static void operator delete[](void* block, std::align_val_t alignment,
                                  std::nothrow_t const&) noexcept;
    ///@{
    /// The class's own forms would hide these.
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void* operator new[](std::size_t, void* place) noexcept { return place; }
    static void operator delete(void*, void*) noexcept {}
    static void operator delete[](void*, void*) noexcept {}
    ///@}
};

#endif
