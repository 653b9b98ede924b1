/// Lists of objects, and the iterator over them.
#ifndef Z_ZLIST_H
#define Z_ZLIST_H

#include "Z/ztags.h"

#include <memory>
#include <typeinfo>

#include "Z/ZIterator.h"
#include "Z/ZObject.h"
#include "Z/ZSort.h"
#include "Z/zexport.h"
#include "Z/zfree.h"

class ZListIterator;

/// What a list offers.
///
/// An owning list keeps clones of what it is given and deletes what it drops; any other keeps and
/// drops the caller's pointers. A member may be null, which matches null alone when searched for.
/// Whatever stores a clone throws ZNotClonableException (message 14) for an object that has none,
/// whatever grows the list throws ZOutOfMemoryException (message 1); an operation that throws
/// leaves the list as it was. Nothing locks.
class ZFC_API ZList {
  public:
    // in slot order: do not sort
    virtual ~ZList();
    /// Number of members.
    [[nodiscard]] virtual unsigned int size() const = 0;
    /// Whether there is no member.
    [[nodiscard]] virtual bool isEmpty() const = 0;
    /// Non-zero when the members belong to the list.
    [[nodiscard]] virtual int ownsMembers() const = 0;
    /// The member at `i`, which stays the list's or its owner's; null beyond the end.
    [[nodiscard]] virtual ZObject* get(unsigned int i) const = 0;
    /// Replaces the member at `i`; an owning list stores a clone and deletes the old member. Does
    /// nothing beyond the end.
    virtual void set(unsigned int i, ZObject* obj) = 0;
    /// Appends `obj`; an owning list appends a clone.
    virtual void add(ZObject* obj) = 0;
    /// Puts `obj`, or its clone, before the member at `i`, or at the end for size(). Does nothing
    /// for an index beyond that.
    virtual void add(unsigned int i, ZObject* obj) = 0;
    /// As add(), but an owning list takes `obj` itself over. It stays the caller's when the index
    /// is bad or the operation throws.
    virtual void addNoCopy(ZObject* obj) = 0;
    virtual void addNoCopy(unsigned int i, ZObject* obj) = 0;
    /// Takes the member at `i` out; an owning list deletes it. Does nothing beyond the end.
    virtual void remove(unsigned int i) = 0;
    /// As remove() for the first member that `obj->equals()` accepts, if there is one.
    virtual void remove(ZObject const* obj) = 0;
    /// As remove() for the member that `iterator` returned last, and backs the iterator up, so that
    /// it goes on with the member behind. Does nothing when the iterator has returned none or walks
    /// another list.
    virtual void remove(ZListIterator& iterator) = 0;
    /// Takes every member out, as remove() does, the last one first.
    virtual void removeAll() = 0;
    /// Whether indexOf() finds `obj`.
    [[nodiscard]] virtual bool contains(ZObject const* obj) const = 0;
    /// Index of the first member (lastIndexOf: of the last) that `obj->equals()` accepts; -1 when
    /// there is none.
    [[nodiscard]] virtual int indexOf(ZObject const* obj) const = 0;
    /// The same for the last.
    [[nodiscard]] virtual int lastIndexOf(ZObject const* obj) const = 0;
    /// What `iterator.indexOf()` gives.
    [[nodiscard]] virtual int indexOf(ZListIterator& iterator) const = 0;
    /// Appends every member of `other` (which may be this list) with add(), in its order.
    virtual void addList(ZList const& other) = 0;
    /// Appends the members from index `from` up to but not including `to`, which is cut to the
    /// size, to `out` with its add(). `out` is as it was when that throws.
    virtual void subList(ZList& out, unsigned int from, unsigned int to) const = 0;
    /// Exchanges two members; does nothing when one of them is beyond the end.
    virtual void swap(unsigned int i, unsigned int j) = 0;
    /// Sorts in place: not stable, at most about 4 n log2 n comparisons. Null members go behind all
    /// others, are never compared, and do not change how the others are sorted. Ends, with every
    /// member kept, however inconsistent `cmp` is, and also when it throws. One that changes the
    /// list spoils the order alone.
    virtual void sort(ZSortCompare const& cmp, ZSortCompare::sortorder order) = 0;
    /// Puts the members into the order that ISO C rand() gives, seeded by srand() with the time in
    /// seconds at each call. Changes the process's rand() sequence.
    virtual void shuffle() = 0;

    /// A literal 0 is an index, not a null object.
    void remove(int i) { remove(static_cast<unsigned int>(i)); }

  protected:
    ZList() = default;
    ZList(ZList const&) = default;
    ZList& operator=(ZList const&) = default;
};

/// The part of a list that needs no knowledge of its storage.
class ZFC_API ZAbstractList : public ZObject, public ZList {
  public:
    using ZList::indexOf;
    using ZList::remove;

    // in slot order: do not sort
    ~ZAbstractList() override;
    [[nodiscard]] bool isEmpty() const override;
    void remove(ZObject const* obj) override;
    void remove(ZListIterator& iterator) override;
    void removeAll() override;
    [[nodiscard]] bool contains(ZObject const* obj) const override;
    [[nodiscard]] int indexOf(ZListIterator& iterator) const override;
    void addList(ZList const& other) override;
    void subList(ZList& out, unsigned int from, unsigned int to) const override;
    void sort(ZSortCompare const& cmp, ZSortCompare::sortorder order) override;
    void shuffle() override;

  protected:
    ZAbstractList() = default;
    ZAbstractList(ZAbstractList const&) = default;
    ZAbstractList& operator=(ZAbstractList const&) = default;

    /// Sorts the members from index `lo` to index `hi`, which is cut to the last.
    virtual void quickSort(ZSortCompare const& cmp, ZSortCompare::sortorder order, unsigned int lo,
                           unsigned int hi);
};

/// A growable list in one row.
class ZFC_API ZArrayList : public ZAbstractList {
  public:
    /// Room for `capacity` members, 1 for a capacity of 0. The room grows by half of itself when it
    /// is full, by 1 from 1. Throws ZOutOfMemoryException (message 1), also for more than INT_MAX
    /// members, which no index could tell.
    ZArrayList(unsigned int capacity, int ownsMembers);
    /// A copy has clones of the members when `other` owns its own, else the same pointers.
    ZArrayList(ZArrayList const& other);
    ZArrayList& operator=(ZArrayList const& other);

    using ZAbstractList::indexOf;
    using ZAbstractList::remove;

    // in slot order: do not sort
    ~ZArrayList() override;
    [[nodiscard]] ZObject* clone() const override;
    [[nodiscard]] unsigned int size() const override { return count; }
    [[nodiscard]] int ownsMembers() const override { return ownsMembers_; }
    [[nodiscard]] ZObject* get(unsigned int i) const override {
        return i < count ? data[i] : nullptr;
    }
    void set(unsigned int i, ZObject* obj) override;
    ZFC_API void add(ZObject* obj) override {
        if (ownsMembers_ != 0) return addClone(obj);
        ZArrayList::addNoCopy(obj);
    }
    void add(unsigned int i, ZObject* obj) override;
    ZFC_API void addNoCopy(ZObject* obj) override {
        if (count == capacity_) grow();
        data[count++] = obj;
    }
    void addNoCopy(unsigned int i, ZObject* obj) override;
    void remove(unsigned int i) override;
    void removeAll() override;
    [[nodiscard]] int indexOf(ZObject const* obj) const override;
    [[nodiscard]] int lastIndexOf(ZObject const* obj) const override;
    void swap(unsigned int i, unsigned int j) override;

    /// The members for `for (ZObject* member : list)`, the fastest walk over them. The list must
    /// not change meanwhile.
    [[nodiscard]] ZObject* const* begin() const { return data.get(); }
    /// The end of the walk.
    [[nodiscard]] ZObject* const* end() const { return data.get() + count; }

    /// Number of members that fit before the list grows.
    [[nodiscard]] unsigned int capacity() const { return capacity_; }
    /// As set(), but an owning list takes `obj` itself over. It stays the caller's when the index
    /// is beyond the end.
    void setNoCopy(unsigned int i, ZObject* obj);

  protected:
    void quickSort(ZSortCompare const& cmp, ZSortCompare::sortorder order, unsigned int lo,
                   unsigned int hi) override;

  private:
    void addClone(ZObject const* obj);
    void grow();

    unsigned int capacity_;                   // room in `data`, 1 to INT_MAX
    std::unique_ptr<ZObject*[], ZFree> data;  // the members, then slots without meaning
    unsigned int count = 0;                   // number of members
    int ownsMembers_;                         // non-zero: members are cloned and deleted
};

/// Walks a list from its first member to its last. The list may change meanwhile: the iterator
/// knows its position only.
class ZFC_API ZListIterator : public ZAbstractIterator {
  public:
    /// Before the first member of `walked`, which is not owned and outlives the iterator.
    explicit ZListIterator(ZList const& walked) : list(&walked) {}
    ZListIterator(ZListIterator const&) = default;
    ZListIterator& operator=(ZListIterator const&) = default;

    // in slot order: do not sort
    ~ZListIterator() override;
    [[nodiscard]] ZObject* clone() const override;
    [[nodiscard]] ZFC_API bool hasMore() override { return position < size(); }
    ZFC_API ZObject* getNext() override { return position < size() ? member(position++) : nullptr; }
    void reset() override;

    /// One member back, so that getNext() returns the same one again; stays at the beginning.
    void backUp();
    /// Index of the member returned last; -1 before the first.
    [[nodiscard]] int indexOf() const;
    /// Whether `other` is the list that it walks.
    [[nodiscard]] bool walks(ZList const& other) const { return list == &other; }

  private:
    /// The list when it is an array list itself, as most are: its members are at hand without
    /// virtual calls. Else null.
    [[nodiscard]] ZArrayList const* row() const {
        ZList const& walked = *list;
        bool const isRow = &typeid(walked) == &typeid(ZArrayList);
        return isRow ? static_cast<ZArrayList const*>(list) : nullptr;
    }
    [[nodiscard]] unsigned int size() const {
        return row() != nullptr ? row()->ZArrayList::size() : list->size();
    }
    [[nodiscard]] ZObject* member(unsigned int i) const {
        return row() != nullptr ? row()->ZArrayList::get(i) : list->get(i);
    }

    ZList const* list;          // the list walked; not owned, never null
    unsigned int position = 0;  // index of the member that getNext() returns
};

#endif
