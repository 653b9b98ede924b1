/// Memory for the texts that a map copies.
#ifndef Z_CONTAINERS_TEXT_POOL_H
#define Z_CONTAINERS_TEXT_POOL_H

#include <cstddef>

#include "Z/ZObject.h"
#include "Z/ZUTF8String.h"
#include "Z/strings/plain_text.h"

namespace zfc::containers {

/// Clones of strings, side by side in a few blocks: a large map would spend most of its filling on
/// one malloc() for each, and on the system's page faults. The blocks go back when no clone is
/// left.
class TextPool {
  public:
    /// For about so many clones, of which an eighth is taken for a sign that the others come, too.
    explicit TextPool(std::size_t count) : expected(count) {}
    TextPool(TextPool const&) = delete;
    TextPool& operator=(TextPool const&) = delete;
    ~TextPool() { giveBack(); }

    /// Whether clone() takes it: an object of one of the two string classes themselves, whose
    /// functions are known.
    [[nodiscard]] static bool takes(ZObject const* object) {
        return object != nullptr && (zfc::strings::isExactly<ZLCString>(*object) ||
                                     zfc::strings::isExactly<ZUTF8String>(*object));
    }
    /// A copy of the string, to be ended by end() alone. Throws ZOutOfMemoryException.
    [[nodiscard]] ZObject* clone(ZObject const& string);
    void end(ZObject* clone);

  private:
    struct Block {
        Block* older;
    };
    union Place {
        Place* nextFree;
        alignas(ZUTF8String) char object[sizeof(ZUTF8String)];
    };
    static_assert(sizeof(ZLCString) == sizeof(ZUTF8String));

    [[nodiscard]] Place* takePlace();
    void addBlock();
    void giveBack();

    std::size_t const expected;
    Block* newest = nullptr;
    Place* fresh = nullptr;  // the next in the newest block
    std::size_t freshCount = 0;
    Place* freed = nullptr;  // those of clones that have ended
    std::size_t places = 0;  // of all blocks
    std::size_t clones = 0;  // that live
};

}  // namespace zfc::containers

#endif
