/// Shared. Memory of the property cache: its containers' allocator, and the texts that its records
/// point at.
#ifndef Z_CONFIG_CACHE_TEXTS_H
#define Z_CONFIG_CACHE_TEXTS_H

#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Z/ZObject.h"
#include "Z/zfree.h"

namespace zfc::cache {

// Exhaustion is reported as everywhere in the library (ZOutOfMemoryException, message 1).

/// Base of what the cache makes with `new`.
struct Allocated {
    static void* operator new(std::size_t size) { return ZObject::operator new(size); }
    static void operator delete(void* block) noexcept { ZObject::operator delete(block); }
};

/// Room for what a container of the cache holds; raises ZOutOfMemoryException (message 1).
[[nodiscard]] void* allocateRoom(std::size_t bytes);

/// For the containers of the cache.
template <class T>
struct Allocator {
    using value_type = T;
    Allocator() = default;
    template <class U>
    Allocator(Allocator<U> const&) noexcept {}
    T* allocate(std::size_t count) { return static_cast<T*>(allocateRoom(count * sizeof(T))); }
    void deallocate(T* block, std::size_t) noexcept { ZObject::operator delete(block); }
    friend bool operator==(Allocator const&, Allocator const&) { return true; }
    friend bool operator!=(Allocator const&, Allocator const&) { return false; }
};

template <class T>
using Vector = std::vector<T, Allocator<T>>;
using String = std::basic_string<char, std::char_traits<char>, Allocator<char>>;

/// A block from malloc.
using Block = std::unique_ptr<char, ZFree>;
/// Both raise ZOutOfMemoryException (message 1) when there is none.
[[nodiscard]] Block allocateBlock(std::size_t bytes);
/// The bytes that fit are kept; a block that cannot be resized stays as it is.
void resizeBlock(Block& block, std::size_t bytes);

/// ISO C isspace in the C locale, whatever locale the process has set.
[[nodiscard]] constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Whether a caller's text is null or empty.
[[nodiscard]] inline bool isEmpty(char const* text) { return text == nullptr || *text == '\0'; }

/// Where the texts of one cache lie: whole files as they were read, and blocks filled one text
/// after the other. A text ends with a NUL and stays where it is; one that is no longer used is
/// garbage, and the owner copies what is left into a fresh object when there is too much of it.
class Texts {
  public:
    /// A copy of `text`, with a NUL behind it; `text` may lie in here. Not counted as used yet. A
    /// text of 4 GiB raises ZOutOfMemoryException (message 1).
    [[nodiscard]] std::string_view copy(std::string_view text);
    /// Takes a block whose texts are used where they lie.
    void adopt(Block block, std::size_t bytes);
    /// Puts `text`, which may lie in here, in the place of one that is in use and no shorter.
    static void overwrite(char const* place, std::string_view text) {
        // All texts lie in our own blocks.
        auto* const bytes = const_cast<char*>(place);
        std::memmove(bytes, text.data(), text.size());
        bytes[text.size()] = '\0';
    }
    /// Copies a text of another object to here, as one that is in use.
    void moveIn(char const*& text, std::size_t length) {
        text = copy({text, length}).data();
        startUse(length);
    }
    /// Makes room for `bytes` of texts, their NULs counted, in one block.
    void reserve(std::size_t bytes);

    void startUse(std::size_t length) { used += length + 1; }
    void endUse(std::size_t length) { used -= length + 1; }
    /// More than half is garbage, and it is worth the work.
    [[nodiscard]] bool isWasteful() const { return held > 2 * used + spare; }
    [[nodiscard]] std::size_t bytesUsed() const { return used; }

  private:
    static constexpr std::size_t spare = std::size_t{64} * 1024;

    char* take(std::size_t bytes);

    Vector<Block> blocks;      // all memory
    char* room = nullptr;      // where the next text goes
    std::size_t roomLeft = 0;  // bytes there
    std::size_t held = 0;      // bytes of all blocks
    std::size_t used = 0;      // bytes of the texts in use, their NULs counted
};

}  // namespace zfc::cache

#endif
