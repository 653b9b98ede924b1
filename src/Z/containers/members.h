/// Shared. What arrays, lists and maps share in handling their members.
#ifndef Z_CONTAINERS_MEMBERS_H
#define Z_CONTAINERS_MEMBERS_H

#include <cstdlib>
#include <memory>
#include <utility>

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/zfree.h"

namespace zfc::containers {

/// Members side by side.
using Row = std::unique_ptr<ZObject*[], ZFree>;

/// The greatest number of members of a row: an index found is an `int`, -1 when there is none.
constexpr unsigned int maxCount = 0x7fffffff;

/// `count` null pointers; throws ZOutOfMemoryException, also above maxCount.
[[nodiscard]] Row newRow(unsigned int count);
/// Makes room for `count` members; what is new has no value. Throws as newRow(), and the row is
/// then as it was.
void resizeRow(Row& row, unsigned int count);

/// What an owning container stores for `object`: its clone, null for null. Throws
/// ZNotClonableException when it has none.
[[nodiscard]] std::unique_ptr<ZObject> cloneOf(ZObject const* object);

/// Appends a new object to a list that may own its members. While that fails, the object is ended
/// here.
template <class Object>
void appendNew(ZArrayList& list, std::unique_ptr<Object> object) {
    list.addNoCopy(object.get());
    static_cast<void>(object.release());
}

/// realloc() of a block with an owner. False when there is no memory; the block stays as it was.
template <class Block>
[[nodiscard]] bool resizeBlock(Block& block, std::size_t bytes) {
    // realloc() to no bytes may free the block and answer null, as if there were no memory.
    void* const resized = std::realloc(block.get(), bytes == 0 ? 1 : bytes);
    if (resized == nullptr) return false;
    static_cast<void>(block.release());  // realloc() has freed it
    block.reset(static_cast<typename Block::pointer>(resized));
    return true;
}

/// Asks for pages of megabytes for a large block that has not been touched yet: what goes anywhere
/// in it waits for the page table else. Advice: where it is not taken, all goes on.
void askForLargePages(char* block, std::size_t bytes);

/// Exchanges the named fields of two objects: what an assignment does with a copy of its source, so
/// that it changes nothing when copying fails.
template <class T, class... Fields>
void exchange(T& one, T& other, Fields T::*... fields) noexcept {
    (std::swap(one.*fields, other.*fields), ...);
}

/// The hash() of an object; 0 of null.
[[nodiscard]] unsigned long hashOf(ZObject const* object);
/// Whether `probe->equals()` accepts `member`; null matches null alone.
[[nodiscard]] bool matches(ZObject const* probe, ZObject const* member);
/// Index of the first (last) of `count` members that matches; -1 when there is none.
[[nodiscard]] int firstMatch(Row const& row, unsigned int count, ZObject const* probe);
[[nodiscard]] int lastMatch(Row const& row, unsigned int count, ZObject const* probe);

/// Takes off what was appended to a list in its scope, unless keep() is called.
class Appending {
  public:
    explicit Appending(ZList& changed) : list(changed), size(changed.size()) {}
    ~Appending();
    Appending(Appending const&) = delete;
    Appending& operator=(Appending const&) = delete;

    void keep() { kept = true; }

  private:
    ZList& list;
    unsigned int const size;  // members before
    bool kept = false;
};

}  // namespace zfc::containers

#endif
