#include "Z/containers/text_pool.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "Z/ZException.h"
#include "Z/containers/members.h"
#include "Z/utility/undo.h"

namespace zfc::containers {
namespace {

constexpr char sourceName[] = "src/Z/ZMap";

constexpr std::size_t leastPlaces = 4;
constexpr std::size_t mostPlaces = 150000;  // 18 MB: several large pages

}  // namespace

ZObject* TextPool::clone(ZObject const& string) {
    Place* const place = takePlace();
    ZUndo freeing([&] {
        place->nextFree = freed;
        freed = place;
    });
    ZObject* copy = nullptr;
    if (zfc::strings::isExactly<ZLCString>(string)) {
        copy = new (place) ZLCString(static_cast<ZLCString const&>(string));
    } else {
        copy = new (place) ZUTF8String(static_cast<ZUTF8String const&>(string));
    }
    freeing.keep();
    ++clones;
    return copy;
}

void TextPool::end(ZObject* clone) {
    std::destroy_at(clone);
    auto* const place = reinterpret_cast<Place*>(clone);
    place->nextFree = freed;
    freed = place;
    if (--clones == 0) giveBack();
}

TextPool::Place* TextPool::takePlace() {
    if (Place* const place = freed) {
        freed = place->nextFree;
        return place;
    }
    if (freshCount == 0) addBlock();
    --freshCount;
    return fresh++;
}

void TextPool::addBlock() {
    bool const fillsUp = places < expected && places >= expected / 8;
    // Half as many as there are: what stays unused is in proportion.
    std::size_t const wanted = fillsUp ? expected - places : places / 2;
    std::size_t const count = std::clamp(wanted, leastPlaces, mostPlaces);
    std::size_t const bytes = sizeof(Block) + count * sizeof(Place);
    auto* const block = static_cast<char*>(std::malloc(bytes));
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    askForLargePages(block, bytes);
    newest = new (block) Block{newest};
    fresh = reinterpret_cast<Place*>(block + sizeof(Block));
    freshCount = count;
    places += count;
}

void TextPool::giveBack() {
    while (newest != nullptr)
        std::free(std::exchange(newest, newest->older));
    fresh = freed = nullptr;
    freshCount = places = 0;
}

}  // namespace zfc::containers
