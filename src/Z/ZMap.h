/// Maps whose entries carry their own keys.
#ifndef Z_ZMAP_H
#define Z_ZMAP_H

#include "Z/ztags.h"

#include "Z/ZArray.h"
#include "Z/ZIterator.h"
#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

namespace zfc::containers {
class Arrival;
class BucketTable;
struct Cell;
struct Probe;
}  // namespace zfc::containers

/// What a map offers: a set of entries, found by the `equals()` of the object asked with.
///
/// An owning map keeps clones of its entries and deletes what it drops; any other keeps and drops
/// the caller's pointers. What stores an entry throws ZNotClonableException (message 14) for one
/// that an owning map cannot clone, and ZOutOfMemoryException (message 1); the map is then as it
/// was. Null is an entry that equals null alone. What an entry is found by does not change while a
/// map holds it. Nothing locks.
class ZFC_API ZMap {
  public:
    // in slot order: do not sort
    virtual ~ZMap();
    /// Stores `entry`, or its clone, in the place of the one equal to it if there is one.
    virtual void putEntry(ZObject* entry) = 0;
    /// The entry that `key->equals()` accepts, which stays the map's or its owner's; null when
    /// there is none.
    [[nodiscard]] virtual ZObject* getEntry(ZObject const* key) const = 0;
    /// Takes the entry that `key->equals()` accepts out, if there is one; an owning map deletes it.
    virtual void removeEntry(ZObject* key) = 0;
    /// Whether an entry is there that `key->equals()` accepts.
    [[nodiscard]] virtual bool contains(ZObject const* key) const = 0;
    /// Number of entries.
    [[nodiscard]] virtual unsigned int size() const = 0;
    /// Whether there is no entry.
    [[nodiscard]] virtual bool isEmpty() const = 0;
    /// Takes every entry out; an owning map deletes them, and those too that their destructors put
    /// meanwhile.
    virtual void removeAll() = 0;
    /// putEntry() for every entry of `other`. When one throws, those before it are stored.
    virtual void putAll(ZMap& other) = 0;
    /// Appends every entry to `out` with its add(). `out` is as it was when that throws.
    virtual void list(ZList& out) const = 0;

  protected:
    ZMap() = default;
    ZMap(ZMap const&) = default;
    ZMap& operator=(ZMap const&) = default;
};

/// The part of a map that needs no knowledge of its storage.
class ZFC_API ZAbstractMap : public ZObject, public ZMap {
  public:
    // in slot order: do not sort
    ~ZAbstractMap() override;
    [[nodiscard]] bool isEmpty() const override;
    void putAll(ZMap& other) override;

  protected:
    ZAbstractMap() = default;
    ZAbstractMap(ZAbstractMap const&) = default;
    ZAbstractMap& operator=(ZAbstractMap const&) = default;
};

/// A map for few entries: a list searched from its beginning. Keeps the order of insertion.
class ZFC_API ZArrayMap : public ZArrayList, public ZMap {
  public:
    /// As the constructors of ZArrayList.
    ZArrayMap(unsigned int capacity, int ownsMembers);
    ZArrayMap(ZArrayMap const&) = default;
    ZArrayMap& operator=(ZArrayMap const&) = default;

    // in slot order: do not sort
    ~ZArrayMap() override;
    [[nodiscard]] ZObject* clone() const override;
    void putEntry(ZObject* entry) override;
    [[nodiscard]] ZObject* getEntry(ZObject const* key) const override;
    void removeEntry(ZObject* key) override;
    [[nodiscard]] bool contains(ZObject const* key) const override;
    [[nodiscard]] unsigned int size() const override;
    [[nodiscard]] bool isEmpty() const override;
    void removeAll() override;
    void putAll(ZMap& other) override;
    void list(ZList& out) const override;

    /// Index of the first entry that `key->equals()` accepts; -1 when there is none.
    [[nodiscard]] int getIndex(ZObject const* key) const;
    /// As putEntry(), but an owning map takes `entry` itself over, unless it throws.
    void putEntryNoCopy(ZObject* entry);
};

/// A map with a fixed number of buckets, found by the entry's `hash()`. An object that is asked
/// with must hash like the entries that it equals; null hashes as 0. A crowded bucket is searched
/// through an index of its own, so that a map made too small finds its entries as fast.
class ZFC_API ZHashMap : public ZAbstractMap {
  public:
    /// One and a half times `size` buckets, at least 3, for all the map's life: they give the order
    /// of list(). Throws ZOutOfMemoryException (message 1), also for more than INT_MAX buckets.
    ZHashMap(unsigned int size, int ownsMembers);
    /// A copy has clones of the entries when `other` owns its own, else the same pointers.
    ZHashMap(ZHashMap const&) = default;
    ZHashMap& operator=(ZHashMap const& other);

    // in slot order: do not sort
    ~ZHashMap() override;
    [[nodiscard]] ZObject* clone() const override;
    void putEntry(ZObject* entry) override;
    [[nodiscard]] ZObject* getEntry(ZObject const* key) const override;
    void removeEntry(ZObject* key) override;
    [[nodiscard]] bool contains(ZObject const* key) const override;
    /// Counts bucket by bucket.
    [[nodiscard]] unsigned int size() const override;
    [[nodiscard]] bool isEmpty() const override;
    void removeAll() override;
    /// Bucket by bucket, each in the order of insertion.
    void list(ZList& out) const override;

    /// As putEntry(), but an owning map takes `entry` itself over, unless it throws.
    void putEntryNoCopy(ZObject* entry);

  private:
    friend class ZHashKeyMap;  // has a value beside each entry

    [[nodiscard]] zfc::containers::BucketTable& table() const;
    [[nodiscard]] zfc::containers::Cell const* find(ZObject const* key) const;
    void put(zfc::containers::Arrival& arrival, zfc::containers::Probe const& probe, int owns);
    void remove(ZObject const* key);
    void appendTo(ZList& out, ZObject* zfc::containers::Cell::*part) const;

    ZArray buckets;   // owns its one member, the zfc::containers::BucketTable
    int ownsMembers;  // non-zero when it clones and deletes its entries
};

/// Walks the entries that a map had when the iterator was made; later changes are not seen. The
/// entries themselves must stay.
class ZFC_API ZMapIterator : public ZAbstractIterator {
  public:
    /// Throws ZOutOfMemoryException (message 1).
    explicit ZMapIterator(ZMap const& map);
    ZMapIterator(ZMapIterator const&) = delete;
    ZMapIterator& operator=(ZMapIterator const&) = delete;

    // in slot order: do not sort
    ~ZMapIterator() override;
    [[nodiscard]] bool hasMore() override;
    ZObject* getNext() override;
    void reset() override;

  private:
    ZArrayList entries;      // the map's entries, not owned
    ZListIterator iterator;  // over `entries`
};

/// Walks an array map itself, in the order of insertion: changes are seen.
class ZFC_API ZArrayMapIterator : public ZListIterator {
  public:
    /// Before the first entry of `map`, which is not owned and outlives the iterator.
    explicit ZArrayMapIterator(ZArrayMap& map);
    ZArrayMapIterator(ZArrayMapIterator const&) = default;
    ZArrayMapIterator& operator=(ZArrayMapIterator const&) = default;

    // in slot order: do not sort
    ~ZArrayMapIterator() override;
    [[nodiscard]] ZObject* clone() const override;
};

#endif
