/// A fixed row of slots for objects.
#ifndef Z_ZARRAY_H
#define Z_ZARRAY_H

#include "Z/ztags.h"

#include <memory>

#include "Z/ZObject.h"
#include "Z/zexport.h"
#include "Z/zfree.h"

/// What an array offers.
///
/// An owning array keeps clones of what it is given and deletes what it drops; any other keeps and
/// drops the caller's pointers. A slot may hold null, which matches null alone when searched for.
/// An operation that throws leaves the array as it was. Nothing locks.
class ZFC_API ZArrayInterface {
  public:
    // in slot order: do not sort
    virtual ~ZArrayInterface();
    /// Number of slots.
    [[nodiscard]] virtual unsigned int size() const = 0;
    /// Non-zero when the members belong to the array.
    [[nodiscard]] virtual int ownsMembers() const = 0;

    // Each of these throws ZInvalidParameterException (message 22) for an index at or beyond
    // size().

    /// The object in slot `i`, which stays the array's or its owner's; null for an empty slot.
    [[nodiscard]] virtual ZObject* get(unsigned int i) const = 0;
    /// Puts `obj` (null too) into slot `i`, its clone when the array owns its members, and deletes
    /// what an owning array had there. Throws ZNotClonableException (message 14) when `obj` has no
    /// clone.
    virtual void set(unsigned int i, ZObject* obj) = 0;
    /// As set(), but an owning array takes `obj` itself over, unless it throws.
    virtual void setNoCopy(unsigned int i, ZObject* obj) = 0;
    /// Empties slot `i`; an owning array deletes what was there.
    virtual void remove(unsigned int i) = 0;
    /// Exchanges two slots.
    virtual void swap(unsigned int i, unsigned int j) = 0;

    /// Empties every slot, as remove() does.
    virtual void removeAll() = 0;
    /// Whether indexOf() finds `obj`.
    [[nodiscard]] virtual bool contains(ZObject const* obj) const = 0;
    /// The first slot (lastIndexOf: the last) whose object `obj->equals()` accepts; -1 when there
    /// is none.
    [[nodiscard]] virtual int indexOf(ZObject const* obj) const = 0;
    /// The same for the last.
    [[nodiscard]] virtual int lastIndexOf(ZObject const* obj) const = 0;

  protected:
    ZArrayInterface() = default;
    ZArrayInterface(ZArrayInterface const&) = default;
    ZArrayInterface& operator=(ZArrayInterface const&) = default;
};

/// The part of an array that needs no knowledge of its storage.
class ZFC_API ZAbstractArray : public ZObject, public ZArrayInterface {
  public:
    // in slot order: do not sort
    ~ZAbstractArray() override;
    void set(unsigned int i, ZObject* obj) override;
    void removeAll() override;
    [[nodiscard]] bool contains(ZObject const* obj) const override;

  protected:
    ZAbstractArray() = default;
    ZAbstractArray(ZAbstractArray const&) = default;
    ZAbstractArray& operator=(ZAbstractArray const&) = default;
};

/// An array that never grows or shrinks.
class ZFC_API ZArray : public ZAbstractArray {
  public:
    /// `length` empty slots, 1 for a length of 0. Throws ZOutOfMemoryException (message 1), also
    /// for a length above INT_MAX, which no index could tell.
    ZArray(unsigned int length, int ownsMembers);
    /// A copy has clones of the members when `other` owns its own, else the same pointers. Throws
    /// ZNotClonableException (message 14) and ZOutOfMemoryException (message 1).
    ZArray(ZArray const& other);
    ZArray& operator=(ZArray const& other);

    // in slot order: do not sort
    ~ZArray() override;
    [[nodiscard]] ZObject* clone() const override;
    [[nodiscard]] unsigned int size() const override { return length; }
    [[nodiscard]] int ownsMembers() const override { return ownsMembers_; }
    [[nodiscard]] ZObject* get(unsigned int i) const override;
    void setNoCopy(unsigned int i, ZObject* obj) override;
    void remove(unsigned int i) override;
    void swap(unsigned int i, unsigned int j) override;
    [[nodiscard]] int indexOf(ZObject const* obj) const override;
    [[nodiscard]] int lastIndexOf(ZObject const* obj) const override;

  private:
    friend class ZHashMap;  // whose indexes need no check

    std::unique_ptr<ZObject*[], ZFree> data;  // the slots; null in an empty one
    int ownsMembers_;                         // non-zero: members are cloned and deleted
    unsigned int length;                      // number of slots, 1 to INT_MAX
};

#endif
