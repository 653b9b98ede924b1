#include "Z/containers/map_bucket.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "Z/ZAbstractString.h"
#include "Z/ZException.h"
#include "Z/ZKeyMap.h"
#include "Z/containers/members.h"
#include "Z/strings/plain_text.h"
#include "Z/utility/keyed_hash.h"

namespace zfc::containers {
namespace {

constexpr char sourceName[] = "src/Z/ZMap";

constexpr unsigned int greatestScan = 16;               // entries that are searched one by one
constexpr std::uint32_t leastSlots = 4 * greatestScan;  // half full with twice as many
constexpr std::uint64_t greatestSlots = std::uint64_t{1} << 32;  // what a mask of 32 bits reaches

/// Of the bytes of a text, or of the text that is the key of an entry. Nothing for an object that
/// is no text, or has another hash than that of its bytes: its class may take texts of other bytes
/// for equal.
std::optional<std::uint32_t> bytesHash(ZObject const* object, std::uint32_t hash) {
    // Nearly always, without a search through the class tree.
    std::string_view const plain =
        object != nullptr ? zfc::strings::plainText(*object) : std::string_view();
    if (!plain.empty()) return zfc::utility::keyedHash(plain);
    auto const* const entry = dynamic_cast<ZKeyEntry const*>(object);
    auto const* const text =
        dynamic_cast<ZAbstractString const*>(entry != nullptr ? entry->getKey() : object);
    if (text == nullptr || text->ZAbstractString::hash() != hash) return std::nullopt;
    return zfc::utility::keyedHash({text->getChars(), text->getLength()});
}

std::optional<std::uint32_t> indexHash(bool ofTexts, ZObject const* key, std::uint32_t hash) {
    return ofTexts ? bytesHash(key, hash) : hash;
}

void endInPool(ZObject*& member, Owner owner, TextPool& pool) {
    if (owner == Owner::pool && member != nullptr) pool.end(std::exchange(member, nullptr));
}

/// Always the last step: the destructors may change the bucket, or end it with its pool.
void endPair(Pair pair, TextPool& pool) {
    endInPool(pair.key, pair.keyOwner, pool);
    endInPool(pair.value, pair.valueOwner, pool);
    if (pair.keyOwner == Owner::heap) delete pair.key;
    if (pair.valueOwner == Owner::heap) delete pair.value;
}

Pair pairOf(Cell const& cell) { return {cell.key, cell.value, cell.keyOwner, cell.valueOwner}; }

Owner ownerIn(Owner held, bool owns) { return owns && held == Owner::caller ? Owner::heap : held; }

void noteText(Cell& cell) {
    cell.textLength = 0;
    if (cell.key == nullptr) return;
    std::string_view const text = zfc::strings::plainText(*cell.key);
    if (text.empty() || text.size() > sizeof cell.text) return;
    std::memcpy(cell.text, text.data(), text.size());
    cell.textLength = static_cast<unsigned char>(text.size());
}

std::unique_ptr<ZObject> cloneUnlessPooled(ZObject const* object, bool clones) {
    return clones && !TextPool::takes(object) ? cloneOf(object) : nullptr;
}

template <class Block>
void resizeOrThrow(Block& block, std::size_t bytes) {
    if (!resizeBlock(block, bytes)) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

}  // namespace

// --------------------------------------------------------------------------------- PlaceIndex

void PlaceIndex::reserve(unsigned int count) {
    std::size_t const had = slotCount();
    // In 64 bits: twice the count wraps in 32.
    std::uint64_t wanted = had == 0 ? leastSlots : had;
    while (wanted < std::uint64_t{count} * 2)
        wanted *= 2;
    if (wanted == had) return;
    if (wanted > greatestSlots) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto const room = static_cast<std::size_t>(wanted);
    resizeOrThrow(hashes, room / 2 * sizeof hashes[0]);
    Slots fresh(static_cast<Slot*>(std::calloc(room, sizeof(Slot))));  // number 0: free
    if (fresh == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    slots.swap(fresh);
    mask = static_cast<std::uint32_t>(wanted - 1);
    for (std::size_t i = 0; i < had; ++i) {
        if (fresh[i].isUsed()) enter(fresh[i]);
    }
}

void PlaceIndex::enter(Slot entered) {
    std::uint32_t at = home(entered.hash);
    while (slots[at].isUsed())
        at = next(at);
    slots[at] = entered;
}

void PlaceIndex::add(std::uint32_t hash, unsigned int place) {
    hashes[place] = hash;
    enter({hash, place + 1});
}

void PlaceIndex::remove(unsigned int place) {
    std::uint32_t at = home(hashes[place]);
    while (slots[at].number != place + 1)
        at = next(at);
    closeGap(at);
}

/// Frees the slot and moves those behind it up that would not be found across a free one.
void PlaceIndex::closeGap(std::uint32_t gap) {
    for (std::uint32_t at = next(gap); slots[at].isUsed(); at = next(at)) {
        std::uint32_t const wish = home(slots[at].hash);
        // Distances from the gap, modulo the table, since a row of used slots may go round its end.
        bool const liesBehindGap = ((wish - gap - 1) & mask) < ((at - gap) & mask);
        if (liesBehindGap) continue;
        slots[gap] = slots[at];
        gap = at;
    }
    slots[gap] = {0, 0};
}

void PlaceIndex::clear() { *this = PlaceIndex(); }

void PlaceIndex::empty() { std::memset(slots.get(), 0, slotCount() * sizeof(Slot)); }

// ------------------------------------------------------------------------------------- Bucket

Arrival::Arrival(ZObject const* givenKey, ZObject const* givenValue, bool copies)
    : clones(copies),
      keyClone(cloneUnlessPooled(givenKey, clones)),
      valueClone(cloneUnlessPooled(givenValue, clones)),
      held{} {
    // A map that does not copy gives the caller's own objects back, which the caller may change.
    held.key = keyClone != nullptr ? keyClone.get() : const_cast<ZObject*>(givenKey);
    held.value = valueClone != nullptr ? valueClone.get() : const_cast<ZObject*>(givenValue);
}

Arrival::~Arrival() {
    if (home != nullptr) endPair(held, *home);
}

void Arrival::settle(TextPool& pool) {
    home = &pool;
    if (!clones) return;
    auto const move = [&](ZObject*& member, ZObject const* cloned, Owner& owner) {
        if (cloned != nullptr || member == nullptr) return;
        member = pool.clone(*member);
        owner = Owner::pool;
    };
    move(held.key, keyClone.get(), held.keyOwner);
    move(held.value, valueClone.get(), held.valueOwner);
}

void Arrival::moveTo(Cell& cell, std::uint32_t hash, bool owns) {
    cell.key = held.key;
    cell.value = held.value;
    cell.hash = hash;
    cell.isUsed = true;
    cell.keyOwner = ownerIn(held.keyOwner, owns);
    cell.valueOwner = ownerIn(held.valueOwner, owns);
    noteText(cell);
    static_cast<void>(keyClone.release());
    static_cast<void>(valueClone.release());
    home = nullptr;
}

void Bucket::copy(Bucket const& other, TextPool& pool) {
    if (other.isCrowded()) {
        makeCrowd().index.reserve(other.size());
        rest->crowd->isOfTexts = other.rest->crowd->isOfTexts;
    }
    for (unsigned int place = 0; place < other.count(); ++place) {
        Cell const original = other.at(place);
        if (!original.isUsed) continue;
        bool const isOwned = original.keyOwner != Owner::caller;
        Arrival copied(original.key, original.value, isOwned);
        copied.settle(pool);
        makeRoom();
        // The hash of the original: a clone is not asked, which could throw.
        if (isCrowded()) rest->crowd->index.add(other.rest->crowd->index.hashAt(place), count());
        copied.moveTo(newCell(), original.hash, isOwned);
    }
}

void Bucket::giveBack() {
    if (rest != nullptr) delete rest->crowd;
    std::free(rest);
    rest = nullptr;
}

/// Whether the key of the probe accepts what is there, and has left it there.
bool Bucket::holdsAt(unsigned int place, Probe const& probe) const {
    if (!at(place).isUsed) return false;
    if (at(place).hasText(probe.text)) return true;
    ZObject const* const held = at(place).key;
    return matches(probe.key, held) && place < count() && at(place).isUsed && at(place).key == held;
}

int Bucket::scan(Probe const& probe) const {
    for (unsigned int place = 0; place < count(); ++place) {
        // The numbers first: they nearly always decide, without a look at another object.
        if (at(place).hash == probe.shortHash() && holdsAt(place, probe))
            return static_cast<int>(place);
    }
    return -1;
}

int Bucket::find(Probe const& probe) const {
    if (!isCrowded()) return scan(probe);
    auto const known = indexHash(rest->crowd->isOfTexts, probe.key, probe.shortHash());
    // A probe of another kind than the keys, which its own equals() may accept nevertheless.
    if (!known) return scan(probe);
    return rest->crowd->index.find(*known,
                                   [&](unsigned int place) { return holdsAt(place, probe); });
}

Cell const* Bucket::search(Probe const& probe) const {
    int const place = find(probe);
    return place >= 0 ? &at(static_cast<unsigned int>(place)) : nullptr;
}

void Bucket::resizeRest(unsigned char doublings) {
    std::size_t const room = (std::size_t{1} << doublings) - 1;
    void* const resized = std::realloc(rest, sizeof(Rest) + room * sizeof(Cell));
    if (resized == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto* const grown = static_cast<Rest*>(resized);
    if (rest == nullptr) *grown = {};
    grown->doublings = doublings;
    rest = grown;
}

void Bucket::makeRoom() {
    if (count() == 0) return;
    if (count() >= maxCount) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    if (rest == nullptr) return resizeRest(1);
    if (rest->count == rest->room()) resizeRest(static_cast<unsigned char>(rest->doublings + 1));
}

Bucket::Crowd& Bucket::makeCrowd() {
    if (rest == nullptr) resizeRest(1);
    if (rest->crowd == nullptr) rest->crowd = new (std::nothrow) Crowd;
    if (rest->crowd == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return *rest->crowd;
}

/// Whether all keys are texts with the hash of their bytes.
bool Bucket::holdsTextsAlone() const {
    for (unsigned int place = 0; place < count(); ++place) {
        Cell const& cell = at(place);
        if (cell.isUsed && !bytesHash(cell.key, cell.hash)) return false;
    }
    return true;
}

/// Gives all entries a new index, which takes the old one's place only when all have answered.
void Bucket::indexAll(bool byTexts) {
    PlaceIndex fresh;
    fresh.reserve(count() + 1);
    for (unsigned int place = 0; place < count(); ++place) {
        Cell const& cell = at(place);
        if (!cell.isUsed) continue;
        fresh.add(indexHash(byTexts, cell.key, cell.hash).value_or(0), place);
    }
    makeCrowd().index = std::move(fresh);
    rest->crowd->isOfTexts = byTexts;
}

/// Makes room in the index for one more, and makes the index itself when it is time: an entry
/// that it lacks would never be found again. The hash by which the index is to have it.
std::uint32_t Bucket::indexWith(ZObject const* key, std::uint32_t hash) {
    auto const known = indexHash(!isCrowded() || rest->crowd->isOfTexts, key, hash);
    if (!isCrowded()) {
        indexAll(known && holdsTextsAlone());
    } else if (!known) {
        indexAll(false);  // the others go by the same hash as this one from now on
    }
    rest->crowd->index.reserve(count() + 1);
    return rest->crowd->isOfTexts ? *known : hash;
}

/// There must be room for it. It counts when it is used.
Cell& Bucket::newCell() { return count() > 0 ? rest->cells()[rest->count++] : first; }

/// A cell for an entry of that key.
Cell& Bucket::append(ZObject const* key, std::uint32_t hash) {
    bool const indexes = isCrowded() || count() >= greatestScan;
    std::uint32_t const known = indexes ? indexWith(key, hash) : 0;
    makeRoom();
    // Nothing fails from here on.
    if (indexes) rest->crowd->index.add(known, count());
    return newCell();
}

void Bucket::put(Arrival& arrival, Probe probe, bool owns) {
    probe.key = arrival.key();  // which is asked whether it equals what is there
    int const place = count() > 0 ? find(probe) : -1;
    if (place < 0)
        return arrival.moveTo(append(probe.key, probe.shortHash()), probe.shortHash(), owns);
    Cell& cell = at(static_cast<unsigned int>(place));
    Pair old = pairOf(cell);
    TextPool& pool = arrival.pool();
    arrival.moveTo(cell, probe.shortHash(), owns);
    // What was put again stays, and stays whose it was.
    if (old.key == cell.key) cell.keyOwner = std::exchange(old.keyOwner, Owner::caller);
    if (old.value == cell.value) cell.valueOwner = std::exchange(old.valueOwner, Owner::caller);
    endPair(old, pool);
}

/// Takes an entry out of cells and index and gives it to the caller. A crowded bucket leaves a
/// hole: moving all that is behind up, and their numbers in the index down, would cost more than
/// the search that it spared.
Pair Bucket::takeOut(unsigned int place) {
    Pair const pair = pairOf(at(place));
    if (isCrowded()) {
        rest->crowd->index.remove(place);
        at(place) = {};
        ++rest->crowd->holes;
        dropHolesAtEnd();
        if (rest->crowd->holes > size() + greatestScan) compact();
    } else {
        closeUp(place);
    }
    return pair;
}

void Bucket::closeUp(unsigned int place) {
    unsigned int const last = count() - 1;
    for (; place < last; ++place)
        at(place) = at(place + 1);
    at(last) = {};
    if (last > 0) --rest->count;
}

void Bucket::dropHolesAtEnd() {
    for (; rest->count > 0 && !at(rest->count).isUsed; --rest->count)
        --rest->crowd->holes;
    if (count() == 0) rest->crowd->holes = 0;
}

void Bucket::compact() {
    unsigned int kept = 0;
    rest->crowd->index.empty();
    for (unsigned int place = 0; place < count(); ++place) {
        if (!at(place).isUsed) continue;
        rest->crowd->index.add(rest->crowd->index.hashAt(place), kept);
        at(kept++) = at(place);
    }
    rest->count = kept - 1;  // the last cell always has an entry
    rest->crowd->holes = 0;
}

void Bucket::drop(Probe const& probe, TextPool& pool) {
    int const place = find(probe);
    // The entry ends last: its key may be the probe's.
    if (place >= 0) endPair(takeOut(static_cast<unsigned int>(place)), pool);
}

void Bucket::removeAll(TextPool& pool) {
    while (count() > 0)
        endPair(takeOut(count() - 1), pool);
    if (isCrowded()) rest->crowd->index.clear();
}

void Bucket::list(ZList& out, ZObject* Cell::*part) const {
    for (unsigned int place = 0; place < count(); ++place) {
        if (at(place).isUsed) out.add(at(place).*part);
    }
}

// -------------------------------------------------------------------------------- BucketTable

BucketTable::BucketTable(unsigned int wanted)
    // Two buckets of three are for keys, each with a value.
    : texts(std::size_t{wanted} / 3 * 4), buckets(nullptr), count(wanted) {
    std::size_t bytes = 0;
    // In a block of malloc a bucket would lie across two cache lines.
    if (count > maxCount || __builtin_mul_overflow(std::size_t{count} + 1, sizeof(Bucket), &bytes))
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    // What the system has just given is not touched: an empty table costs little.
    block.reset(static_cast<char*>(std::calloc(bytes, 1)));
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto const address = reinterpret_cast<std::uintptr_t>(block.get());
    std::uintptr_t const behindLine = address % alignof(Bucket);
    std::uintptr_t const skipped = behindLine == 0 ? 0 : alignof(Bucket) - behindLine;
    buckets = reinterpret_cast<Bucket*>(block.get() + skipped);
    askForLargePages(block.get(), bytes);
}

/// Delegates, so that the destructor takes the clones back when a later one fails.
BucketTable::BucketTable(BucketTable const& other) : BucketTable(other.count) {
    Bucket* to = buckets;
    for (Bucket const& from : other)
        (to++)->copy(from, texts);
}

BucketTable::~BucketTable() {
    removeAll();
    for (Bucket& bucket : *this)
        bucket.giveBack();
}

ZObject* BucketTable::clone() const { return new BucketTable(*this); }

void BucketTable::removeAll() {
    bool more = true;
    // Again, where an entry's destructor has put another into a bucket before its own.
    while (more) {
        more = false;
        for (Bucket& bucket : *this) {
            if (bucket.size() == 0) continue;
            more = true;
            bucket.removeAll(texts);
        }
    }
}

}  // namespace zfc::containers
