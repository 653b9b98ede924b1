#include "Z/ZList.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "Z/containers/list_sort.h"
#include "Z/containers/members.h"

namespace {

/// The members of any list, for sorting.
struct ListMembers {
    ZList& list;
    [[nodiscard]] ZObject* get(unsigned int i) const { return list.get(i); }
    void swap(unsigned int i, unsigned int j) const { list.swap(i, j); }
};

/// The members of a list in one row, without its virtual calls. Row and count are the list's own,
/// since a comparator may change them.
struct RowMembers {
    zfc::containers::Row const& row;
    unsigned int const& count;
    [[nodiscard]] ZObject* get(unsigned int i) const { return i < count ? row[i] : nullptr; }
    void swap(unsigned int i, unsigned int j) const {
        if (std::max(i, j) < count) std::swap(row[i], row[j]);
    }
};

/// Sorts from index `lo` to index `hi`, which is cut to the last of `size` members.
template <class Members>
void sortRange(Members members, unsigned int size, ZSortCompare const& cmp,
               ZSortCompare::sortorder order, unsigned int lo, unsigned int hi) {
    unsigned int const end = hi < size ? hi + 1 : size;
    if (lo < end) ZListSort<Members>(members, cmp, order)(lo, end);
}

}  // namespace

ZList::~ZList() = default;

// ------------------------------------------------------------------------------- ZAbstractList

ZAbstractList::~ZAbstractList() = default;

bool ZAbstractList::isEmpty() const { return size() == 0; }

void ZAbstractList::remove(ZObject const* obj) {
    int const index = indexOf(obj);
    if (index >= 0) remove(index);
}

void ZAbstractList::remove(ZListIterator& iterator) {
    int const index = iterator.indexOf();
    // The list may have become shorter since the iterator's last step.
    if (index < 0 || static_cast<unsigned int>(index) >= size() || !iterator.walks(*this)) return;
    remove(index);
    iterator.backUp();
}

void ZAbstractList::removeAll() {
    // From the end, where nothing has to move up.
    while (size() > 0)
        remove(size() - 1);
}

bool ZAbstractList::contains(ZObject const* obj) const { return indexOf(obj) != -1; }

int ZAbstractList::indexOf(ZListIterator& iterator) const { return iterator.indexOf(); }

void ZAbstractList::addList(ZList const& other) { other.subList(*this, 0, other.size()); }

void ZAbstractList::subList(ZList& out, unsigned int from, unsigned int to) const {
    unsigned int const end = std::min(to, size());  // taken first: `out` may be this list
    zfc::containers::Appending appending(out);
    for (unsigned int i = from; i < end; ++i)
        out.add(get(i));
    appending.keep();
}

void ZAbstractList::sort(ZSortCompare const& cmp, ZSortCompare::sortorder order) {
    quickSort(cmp, order, 0, size());
}

void ZAbstractList::quickSort(ZSortCompare const& cmp, ZSortCompare::sortorder order,
                              unsigned int lo, unsigned int hi) {
    sortRange(ListMembers{*this}, size(), cmp, order, lo, hi);
}

void ZAbstractList::shuffle() {
    // Kept: seeded at each call, so lists of one size shuffled in one second are shuffled alike.
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    for (unsigned int i = size(); i > 1; --i)
        swap(i - 1, static_cast<unsigned>(std::rand()) % i);
}

// ---------------------------------------------------------------------------------- ZArrayList

ZArrayList::ZArrayList(unsigned int room, int owns)
    : capacity_(std::max(room, 1U)), ownsMembers_(owns) {
    // Without values: slots from `count` on are never read.
    zfc::containers::resizeRow(data, capacity_);
}

/// Delegates, so that the destructor takes the clones back when a later one fails.
ZArrayList::ZArrayList(ZArrayList const& other) : ZArrayList(other.capacity_, other.ownsMembers_) {
    for (unsigned int i = 0; i < other.count; ++i)
        ZArrayList::add(other.data[i]);
}

ZArrayList& ZArrayList::operator=(ZArrayList const& other) {
    // The old members end with `copy`, when this list is whole again.
    ZArrayList copy(other);
    zfc::containers::exchange(*this, copy, &ZArrayList::capacity_, &ZArrayList::data,
                              &ZArrayList::count, &ZArrayList::ownsMembers_);
    return *this;
}

ZArrayList::~ZArrayList() { ZArrayList::removeAll(); }

ZObject* ZArrayList::clone() const { return new ZArrayList(*this); }

void ZArrayList::grow() {
    // By half, so that appending stays cheap in the long run; by one at least, since half of 1 is
    // 0. It cannot wrap: the capacity is at most 2^31 - 1, and more is refused below.
    unsigned int const room = capacity_ + std::max(capacity_ / 2, 1U);
    zfc::containers::resizeRow(data, room);
    capacity_ = room;
}

void ZArrayList::set(unsigned int i, ZObject* obj) {
    // Beyond the end nothing must be cloned: setNoCopy() would not take it, and it would leak.
    if (i >= count || ownsMembers_ == 0) return setNoCopy(i, obj);
    setNoCopy(i, zfc::containers::cloneOf(obj).release());
}

void ZArrayList::setNoCopy(unsigned int i, ZObject* obj) {
    if (i >= count) return;
    // The slot first: the destructor of a member may look into the list.
    ZObject* const old = std::exchange(data[i], obj);
    if (ownsMembers_ != 0 && old != obj) delete old;
}

void ZArrayList::addClone(ZObject const* obj) {
    auto copy = zfc::containers::cloneOf(obj);
    ZArrayList::addNoCopy(copy.get());
    static_cast<void>(copy.release());
}

void ZArrayList::add(unsigned int i, ZObject* obj) {
    if (i > count || ownsMembers_ == 0) return ZArrayList::addNoCopy(i, obj);
    auto copy = zfc::containers::cloneOf(obj);
    ZArrayList::addNoCopy(i, copy.get());
    static_cast<void>(copy.release());
}

void ZArrayList::addNoCopy(unsigned int i, ZObject* obj) {
    if (i > count) return;
    // Appended first: that alone can fail, and the members before have not moved then.
    ZArrayList::addNoCopy(obj);
    std::rotate(data.get() + i, data.get() + count - 1, data.get() + count);
}

void ZArrayList::remove(unsigned int i) {
    if (i >= count) return;
    ZObject* const old = data[i];
    // The list is whole again before the member ends: its destructor may look into it.
    std::move(data.get() + i + 1, data.get() + count, data.get() + i);
    --count;
    if (ownsMembers_ != 0) delete old;
}

void ZArrayList::removeAll() {
    if (ownsMembers_ != 0) ZAbstractList::removeAll();  // else there is nothing to delete
    count = 0;
}

int ZArrayList::indexOf(ZObject const* obj) const {
    return zfc::containers::firstMatch(data, count, obj);
}

int ZArrayList::lastIndexOf(ZObject const* obj) const {
    return zfc::containers::lastMatch(data, count, obj);
}

void ZArrayList::swap(unsigned int i, unsigned int j) {
    if (std::max(i, j) < count) std::swap(data[i], data[j]);
}

void ZArrayList::quickSort(ZSortCompare const& cmp, ZSortCompare::sortorder order, unsigned int lo,
                           unsigned int hi) {
    sortRange(RowMembers{data, count}, count, cmp, order, lo, hi);
}

// ------------------------------------------------------------------------------- ZListIterator

ZListIterator::~ZListIterator() = default;

ZObject* ZListIterator::clone() const { return new ZListIterator(*this); }

void ZListIterator::reset() { position = 0; }

void ZListIterator::backUp() {
    if (position > 0) --position;
}

int ZListIterator::indexOf() const { return static_cast<int>(position) - 1; }
