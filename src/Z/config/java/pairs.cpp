#include "Z/config/java/pairs.h"

#include <algorithm>
#include <utility>

#include "Z/ZException.h"
#include "Z/config/java/strings.h"
#include "Z/containers/members.h"
#include "Z/strings/plain_text.h"

namespace zfc::java {
namespace {

constexpr char sourceName[] = "src/Z/ZJavaProperties";
constexpr std::size_t firstSlots = 4;

}  // namespace

/// The texts are all that differs: slots are those of the other.
Pairs::Pairs(Pairs const& other) : ZObject(other), slots(other.slots), count(other.count) {
    compact(other.texts.bytesUsed());
}

Pairs::~Pairs() = default;

ZObject* Pairs::clone() const { return new Pairs(*this); }

void Pairs::set(std::string_view key, std::string_view value) {
    makeRoom();
    std::uint32_t const hash = cache::hashName(key);
    Pair& slot = slots[slotOf(key, hash)];
    if (!slot.isUsed()) return add(slot, key, hash, value);
    replaceValue(slot, value);
    if (texts.isWasteful()) tryCompact();
}

/// For one more pair.
void Pairs::makeRoom() {
    if (count < slots.size() / 4 * 3) return;
    // Numbers of slots have 32 bits, and so has all memory on some machines.
    std::size_t const most = std::min(slots.max_size(), std::size_t{1} << 31);
    if (slots.size() > most / 2) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    // Allocated before anything changes, and exchanged at once.
    cache::Vector<Pair> old(std::max(firstSlots, slots.size() * 2));
    slots.swap(old);
    for (Pair const& pair : old) {
        if (!pair.isUsed()) continue;
        std::size_t at = pair.hash & (slots.size() - 1);
        while (slots[at].isUsed())
            at = (at + 1) & (slots.size() - 1);
        slots[at] = pair;
    }
}

char const* Pairs::textOf(std::string_view key, std::string_view value) {
    fresh.assign(key);
    fresh.push_back('\0');
    fresh.append(value);
    return texts.copy(fresh).data();
}

void Pairs::add(Pair& slot, std::string_view key, std::uint32_t hash, std::string_view value) {
    char const* const text = textOf(key, value);  // all that can fail
    slot = {text, static_cast<std::uint32_t>(key.size()), static_cast<std::uint32_t>(value.size()),
            hash, count};
    ++count;
    texts.startUse(slot.textLength());
}

void Pairs::replaceValue(Pair& pair, std::string_view value) {
    std::size_t const oldLength = pair.textLength();
    if (value.size() > pair.valueLength)
        pair.text = textOf(pair.key(), value);
    else
        cache::Texts::overwrite(pair.value().data(), value);
    pair.valueLength = static_cast<std::uint32_t>(value.size());
    texts.endUse(oldLength);
    texts.startUse(pair.textLength());
}

/// Copies every text into one block of `bytes`, in the order in which programs ask.
void Pairs::compact(std::size_t bytes) {
    // These two are all that can fail.
    Numbers const order = inOrder();
    cache::Texts moved;
    moved.reserve(bytes);
    for (std::uint32_t const slot : order)
        moved.moveIn(slots[slot].text, slots[slot].textLength());
    // Last, with nothing left that points into the old blocks.
    texts = std::move(moved);
}

void Pairs::tryCompact() {
    try {
        compact(texts.bytesUsed());
    } catch (ZOutOfMemoryException const&) {
        return;  // the value is set; the garbage can wait
    }
}

Pairs::Numbers Pairs::inOrder() const {
    Numbers order(count);
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (slots[i].isUsed()) order[slots[i].place] = static_cast<std::uint32_t>(i);
    }
    return order;
}

std::array<Pairs::Numbers, Pairs::bucketCount> Pairs::buckets() const {
    std::array<Numbers, bucketCount> result;
    for (std::uint32_t const slot : inOrder())
        result[strings::textHash(slots[slot].key()) % bucketCount].push_back(slot);
    return result;
}

void Pairs::handOut() const {
    Numbers const order = inOrder();
    while (handedOut.size() < count)
        handedOut.push_back(stringOf(slots[order[handedOut.size()]].key()));
}

void Pairs::listKeys(ZList& out) const {
    handOut();
    // Noted first: the list's own function may change the pairs.
    cache::Vector<ZObject*> keys;
    keys.reserve(count);
    each([&](Pair const& pair) { keys.push_back(&handedOut[pair.place]); });
    containers::Appending appending(out);
    for (ZObject* const key : keys)
        out.add(key);
    appending.keep();
}

}  // namespace zfc::java
