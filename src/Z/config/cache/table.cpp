#include "Z/config/cache/table.h"

#include <algorithm>

#include "Z/ZException.h"

namespace zfc::cache {
namespace {

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";
constexpr std::size_t firstSlots = 4;
constexpr std::size_t mostSlots = std::size_t{1} << 31;

}  // namespace

void Table::grow() {
    if (slots.size() >= mostSlots) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    // Allocated before anything changes, and exchanged at once.
    Vector<Slot> old(std::max(firstSlots, slots.size() * 2));
    slots.swap(old);
    mask = static_cast<std::uint32_t>(slots.size() - 1);
    mostEntries = static_cast<std::uint32_t>(slots.size() / 4 * 3);
    for (Slot const& entry : old) {
        if (entry.number != none) put(entry);
    }
}

void Table::erase(std::uint32_t hash, Index number) {
    std::size_t gap = home(hash);
    while (slots[gap].number != number)
        gap = next(gap);
    for (std::size_t at = next(gap); slots[at].number != none; at = next(at)) {
        if (((at - home(slots[at].hash)) & mask) < ((at - gap) & mask))
            continue;  // would leave its run
        slots[gap] = slots[at];
        gap = at;
    }
    slots[gap] = {};
    --count;
}

}  // namespace zfc::cache
