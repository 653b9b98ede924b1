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
    auto const* const entry = dynamic_cast<ZKeyEntry const*>(object);
    auto const* const text =
        dynamic_cast<ZAbstractString const*>(entry != nullptr ? entry->getKey() : object);
    if (text == nullptr || text->ZAbstractString::hash() != hash) return std::nullopt;
    return zfc::utility::keyedHash({text->getChars(), text->getLength()});
}

std::optional<std::uint32_t> indexHash(bool ofTexts, ZObject const* key, std::uint32_t hash) {
    return ofTexts ? bytesHash(key, hash) : hash;
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

Arrival::Arrival(ZObject const* givenKey, ZObject const* givenValue, bool clones)
    : keyClone(clones ? cloneOf(givenKey) : nullptr),
      valueClone(clones ? cloneOf(givenValue) : nullptr),
      // A map that does not copy gives the caller's own objects back, which the caller may change.
      keyHeld(clones ? keyClone.get() : const_cast<ZObject*>(givenKey)),
      valueHeld(clones ? valueClone.get() : const_cast<ZObject*>(givenValue)) {}

void Arrival::release() {
    static_cast<void>(keyClone.release());
    static_cast<void>(valueClone.release());
}

/// Delegates, so that the destructor takes the clones back when a later one fails.
Bucket::Bucket(Bucket const& other) : Bucket(other.ownsMembers ? 1 : 0) {
    if (other.isCrowded()) {
        makeCrowd().index.reserve(other.size());
        crowd->isOfTexts = other.crowd->isOfTexts;
    }
    for (unsigned int place = 0; place < other.count; ++place) {
        if (other.isHole(place)) continue;
        Cell const original = other.cells()[place];
        Arrival copy(original.key, original.value, ownsMembers);
        makeRoom();
        // The hash of the original: a clone is not asked, which could throw.
        if (isCrowded()) crowd->index.add(other.crowd->index.hashAt(place), count);
        cells()[count++] = {copy.key(), copy.value(), original.hash};
        copy.release();
    }
    noteFirst();
}

Bucket::~Bucket() { removeAll(); }

ZObject* Bucket::clone() const { return new Bucket(*this); }

/// Whether `key` accepts what is there, and has left it there.
bool Bucket::holdsAt(unsigned int place, ZObject const* key) const {
    ZObject const* const held = cells()[place].key;
    return held != hole() && matches(key, held) && place < count && cells()[place].key == held;
}

int Bucket::scan(ZObject const* key, std::uint32_t hash) const {
    for (unsigned int place = 0; place < count; ++place) {
        // The numbers first: they nearly always decide, without a look at another object.
        if (cells()[place].hash == hash && holdsAt(place, key)) return static_cast<int>(place);
    }
    return -1;
}

int Bucket::find(ZObject const* key, std::uint32_t hash) const {
    if (!isCrowded()) return scan(key, hash);
    auto const known = indexHash(crowd->isOfTexts, key, hash);
    // A probe of another kind than the keys, which its own equals() may accept nevertheless.
    if (!known) return scan(key, hash);
    return crowd->index.find(*known, [&](unsigned int place) { return holdsAt(place, key); });
}

Cell const* Bucket::search(ZObject const* key, unsigned long hash) const {
    int const place = find(key, shortHash(hash));
    return place >= 0 ? cells() + place : nullptr;
}

void Bucket::noteFirst() {
    firstTextLength = 0;
    if (count == 0 || isHole(0) || cells()[0].key == nullptr) return;
    std::string_view const text = zfc::strings::plainText(*cells()[0].key);
    if (text.size() > sizeof firstText) return;
    std::copy(text.begin(), text.end(), firstText);
    firstTextLength = static_cast<unsigned char>(text.size());
}

/// Always the last step: the destructors may change the bucket.
void Bucket::end(Cell const& cell) const {
    if (!ownsMembers) return;
    ZObject* const value = cell.value;
    delete cell.key;
    delete value;
}

void Bucket::makeRoom() {
    if (count < room()) return;
    if (count >= maxCount) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    bool const wasInside = block == nullptr;
    resizeOrThrow(block, (std::size_t{room()} * 2 + 1) * sizeof(Cell));
    if (wasInside) block[0] = first;
    ++doublings;
}

Bucket::Crowd& Bucket::makeCrowd() {
    if (crowd == nullptr) crowd.reset(new (std::nothrow) Crowd);
    if (crowd == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return *crowd;
}

/// Whether all keys are texts with the hash of their bytes.
bool Bucket::holdsTextsAlone() const {
    for (unsigned int place = 0; place < count; ++place) {
        Cell const& cell = cells()[place];
        if (!isHole(place) && !bytesHash(cell.key, cell.hash)) return false;
    }
    return true;
}

/// Gives all entries a new index, which takes the old one's place only when all have answered.
void Bucket::indexAll(bool byTexts) {
    PlaceIndex fresh;
    fresh.reserve(count + 1);
    for (unsigned int place = 0; place < count; ++place) {
        Cell const& cell = cells()[place];
        if (isHole(place)) continue;
        fresh.add(indexHash(byTexts, cell.key, cell.hash).value_or(0), place);
    }
    makeCrowd().index = std::move(fresh);
    crowd->isOfTexts = byTexts;
}

/// Makes room in the index for one more, `cell`, and the index itself when it is time: an entry
/// that it lacks would never be found again. The hash by which the index is to have it.
std::uint32_t Bucket::indexWith(Cell const& cell) {
    auto const known = indexHash(!isCrowded() || crowd->isOfTexts, cell.key, cell.hash);
    if (!isCrowded()) {
        indexAll(known && holdsTextsAlone());
    } else if (!known) {
        indexAll(false);  // the others go by the same hash as this one from now on
    }
    crowd->index.reserve(count + 1);
    return crowd->isOfTexts ? *known : cell.hash;
}

void Bucket::append(Cell const& cell) {
    bool const indexes = isCrowded() || count >= greatestScan;
    std::uint32_t const hash = indexes ? indexWith(cell) : 0;
    makeRoom();
    // Nothing fails from here on.
    if (indexes) crowd->index.add(hash, count);
    cells()[count++] = cell;
    if (count == 1) noteFirst();
}

void Bucket::put(Arrival& arrival, unsigned long hash) {
    Cell const cell{arrival.key(), arrival.value(), shortHash(hash)};
    int const place = find(cell.key, cell.hash);
    if (place < 0) {
        append(cell);
        return arrival.release();
    }
    arrival.release();
    Cell old = std::exchange(cells()[place], cell);
    if (place == 0) noteFirst();
    // What was put again stays.
    if (old.key == cell.key) old.key = nullptr;
    if (old.value == cell.value) old.value = nullptr;
    end(old);
}

/// Takes an entry out of cells and index and gives it to the caller. A crowded bucket leaves a
/// hole: moving all that is behind up, and their numbers in the index down, would cost more than
/// the search that it spared.
Cell Bucket::takeOut(unsigned int place) {
    Cell const cell = cells()[place];
    if (isCrowded()) crowd->index.remove(place);
    if (place + 1 == count) {
        --count;
    } else if (!isCrowded()) {
        std::move(cells() + place + 1, cells() + count, cells() + place);
        --count;
    } else {
        cells()[place] = {hole(), nullptr, 0};
        if (++crowd->holes > size() + greatestScan) compact();
    }
    if (place == 0) noteFirst();
    return cell;
}

void Bucket::compact() {
    unsigned int kept = 0;
    crowd->index.empty();
    for (unsigned int place = 0; place < count; ++place) {
        if (isHole(place)) continue;
        crowd->index.add(crowd->index.hashAt(place), kept);
        cells()[kept++] = cells()[place];
    }
    count = kept;
    crowd->holes = 0;
    noteFirst();
}

void Bucket::drop(ZObject const* key, unsigned long hash) {
    int const place = find(key, shortHash(hash));
    // The entry ends last: its key may be `key` itself.
    if (place >= 0) end(takeOut(static_cast<unsigned int>(place)));
}

void Bucket::removeAll() {
    while (count > 0) {
        if (isHole(count - 1)) {
            --count;
            --crowd->holes;
        } else {
            end(takeOut(count - 1));
        }
    }
    if (crowd != nullptr) crowd->index.clear();
}

void Bucket::list(ZList& out, ZObject* Cell::*part) const {
    for (unsigned int place = 0; place < count; ++place) {
        if (!isHole(place)) out.add(cells()[place].*part);
    }
}

}  // namespace zfc::containers
