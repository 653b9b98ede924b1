/// Maps from one object to another.
#ifndef Z_ZKEYMAP_H
#define Z_ZKEYMAP_H

#include "Z/ztags.h"

#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

/// What a key-to-value map offers. Keys are found by the `hash()` and `equals()` of the object
/// asked with, and do not change while a map holds them; null is a key that equals null alone, and
/// a value may be null. Nothing locks.
class ZFC_API ZKeyMap {
  public:
    // in slot order: do not sort
    virtual ~ZKeyMap();
    /// Stores `value` under `key` and drops the pair that had an equal key. A copying map stores
    /// clones of both, so the caller keeps what it passed; any other stores the pointers. Throws
    /// ZNotClonableException (message 14) and ZOutOfMemoryException (message 1), and the map is
    /// then as it was.
    virtual void putEntry(ZObject const* key, ZObject const* value) = 0;
    /// The value under `key`, which stays the map's or its owner's; null when there is none.
    [[nodiscard]] virtual ZObject* getEntry(ZObject const* key) const = 0;
    /// Drops the pair of `key`, if there is one; a copying map deletes its key and value.
    virtual void removeEntry(ZObject const* key) = 0;
    /// Whether the map has the key.
    [[nodiscard]] virtual bool contains(ZObject const* key) const = 0;
    /// Number of pairs.
    [[nodiscard]] virtual unsigned int size() const = 0;
    /// Whether there is no pair.
    [[nodiscard]] virtual bool isEmpty() const = 0;
    /// Drops every pair, as removeEntry() does.
    virtual void removeAll() = 0;
    /// putEntry() for every pair of `other`. When one throws, those before it are stored.
    virtual void putAll(ZKeyMap const& other) = 0;
    /// Append every key, every value, to `out` with its add(), both in the same order. `out` is as
    /// it was when that throws.
    virtual void listKeys(ZList& out) const = 0;
    /// Likewise the values.
    virtual void listObjects(ZList& out) const = 0;

  protected:
    ZKeyMap() = default;
    ZKeyMap(ZKeyMap const&) = default;
    ZKeyMap& operator=(ZKeyMap const&) = default;
};

/// The part of a key-to-value map that needs no knowledge of its storage.
class ZFC_API ZAbstractKeyMap : public ZObject, public ZKeyMap {
  public:
    // in slot order: do not sort
    ~ZAbstractKeyMap() override;
    [[nodiscard]] bool isEmpty() const override;
    void putAll(ZKeyMap const& other) override;

  protected:
    ZAbstractKeyMap() = default;
    ZAbstractKeyMap(ZAbstractKeyMap const&) = default;
    ZAbstractKeyMap& operator=(ZAbstractKeyMap const&) = default;
};

/// A key and its value.
class ZFC_API ZKeyEntry : public ZObject {
  public:
    /// Holds clones of both when `copy` is not 0, else the pointers. Throws ZNotClonableException
    /// (message 14) and ZOutOfMemoryException (message 1).
    ZKeyEntry(ZObject const* key, ZObject const* value, int copy);
    /// Copies as the constructor does, by the flag of `other`; the cached hash goes along.
    ZKeyEntry(ZKeyEntry const& other);
    ZKeyEntry& operator=(ZKeyEntry const& other);

    // in slot order: do not sort
    ~ZKeyEntry() override;
    /// The key's hash, which it keeps for equals(); 0 for a null key.
    [[nodiscard]] unsigned long hash() const override;
    /// With an entry: the key's compare() with the other key, a null key before all others. With
    /// any other object: by address.
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override;
    /// Whether `other` is an entry whose key this key's equals() accepts. hash() must have been
    /// called on both of them or on neither: entries with different kept hashes are different.
    [[nodiscard]] bool equals(ZObject const& other) const override;

    /// Both stay the entry's, or their owner's.
    [[nodiscard]] ZObject* getKey() const { return key; }
    /// The value; see getKey().
    [[nodiscard]] ZObject* getValue() const { return value; }

  private:
    ZObject* key;                        // may be null; owned when `copy` is not 0
    ZObject* value;                      // likewise
    int copy;                            // non-zero: key and value are the entry's own clones
    mutable unsigned int hashValue = 0;  // Layout: 32 bits of the key's hash; 0 before hash()
};

/// A hash map whose entries are keys with a value each.
class ZFC_API ZHashKeyMap : public ZAbstractKeyMap {
  public:
    /// `size` as for ZHashMap; a `copy` that is not 0 makes a copying map.
    ZHashKeyMap(unsigned int size, int copy);
    /// A copy holds clones of the keys and values when `other` is a copying map, else the pointers.
    ZHashKeyMap(ZHashKeyMap const&) = default;
    ZHashKeyMap& operator=(ZHashKeyMap const& other);

    // in slot order: do not sort
    ~ZHashKeyMap() override;
    [[nodiscard]] ZObject* clone() const override;
    void putEntry(ZObject const* key, ZObject const* value) override;
    [[nodiscard]] ZObject* getEntry(ZObject const* key) const override;
    void removeEntry(ZObject const* key) override;
    [[nodiscard]] bool contains(ZObject const* key) const override;
    /// Counts bucket by bucket.
    [[nodiscard]] unsigned int size() const override;
    [[nodiscard]] bool isEmpty() const override;
    void removeAll() override;
    /// In the order of ZHashMap::list().
    void listKeys(ZList& out) const override;
    void listObjects(ZList& out) const override;

  private:
    ZHashMap map;  // the keys, and the values beside them
    int copy;      // non-zero: keys and values are cloned, and deleted
};

#endif
