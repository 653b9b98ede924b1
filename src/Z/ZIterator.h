/// Walking over the members of a container or the parts of a string.
#ifndef Z_ZITERATOR_H
#define Z_ZITERATOR_H

#include "Z/ztags.h"

#include "Z/ZObject.h"
#include "Z/zexport.h"

/// What every iterator offers. The source outlives the iterator; neither locks.
class ZFC_API ZIterator {
  public:
    // in slot order: do not sort
    virtual ~ZIterator();
    /// Moves on to the next member that `target.equals()` accepts and returns it, not owned by the
    /// caller; null when no member is left that it accepts. Null members are passed over.
    [[nodiscard]] virtual ZObject* findNext(ZObject const& target) = 0;
    /// Whether getNext() has another member to give. May move over what lies between members.
    [[nodiscard]] virtual bool hasMore() = 0;
    /// The next member, not owned by the caller; null when there is none.
    virtual ZObject* getNext() = 0;
    /// Back to the beginning.
    virtual void reset() = 0;

  protected:
    ZIterator() = default;
    ZIterator(ZIterator const&) = default;
    ZIterator& operator=(ZIterator const&) = default;
};

/// The part of an iterator that needs no knowledge of its source.
class ZFC_API ZAbstractIterator : public ZObject, public ZIterator {
  public:
    // in slot order: do not sort
    ~ZAbstractIterator() override;
    [[nodiscard]] ZObject* findNext(ZObject const& target) override;

  protected:
    ZAbstractIterator() = default;
    ZAbstractIterator(ZAbstractIterator const&) = default;
    ZAbstractIterator& operator=(ZAbstractIterator const&) = default;
};

#endif
