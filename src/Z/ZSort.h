/// The order in which a list is sorted.
#ifndef Z_ZSORT_H
#define Z_ZSORT_H

#include "Z/ztags.h"

#include "Z/zexport.h"

class ZDefaultSortCompare;
class ZObject;

/// A comparator for ZList::sort().
class ZFC_API ZSortCompare {
  public:
    /// Any value but `ascending` sorts in descending order.
    enum sortorder { descending = 0, ascending = 1 };

    // in slot order: do not sort
    virtual ~ZSortCompare();
    /// Negative, 0 or positive as `a` stands before, level with or behind `b` in ascending order.
    /// Neither is null.
    [[nodiscard]] virtual int sortCompare(ZObject const* a, ZObject const* b) const = 0;

    /// The one comparator by ZObject::compare(). Made on first use, lives as long as the process;
    /// may be asked for by several threads at once.
    [[nodiscard]] static ZSortCompare const& defaultSortCompare();

  protected:
    ZSortCompare() = default;
    ZSortCompare(ZSortCompare const&) = default;
    ZSortCompare& operator=(ZSortCompare const&) = default;

  private:
    static ZDefaultSortCompare const* dsc_;  // null before the first defaultSortCompare()
};

/// Orders objects by `a->compare(*b)`.
class ZFC_API ZDefaultSortCompare : public ZSortCompare {
  public:
    // in slot order: do not sort
    ~ZDefaultSortCompare() override;
    [[nodiscard]] int sortCompare(ZObject const* a, ZObject const* b) const override;
};

#endif
