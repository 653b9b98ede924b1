/// The sorting of lists.
#ifndef Z_ZLIST_SORT_H
#define Z_ZLIST_SORT_H

#include "Z/ZObject.h"
#include "Z/ZSort.h"

/// Sorts what `Members` gives by `get(i)` and exchanges by `swap(i, j)`: quicksort, heapsort where
/// quicksort degenerates, and insertion sort for small parts.
///
/// Members move by exchange alone, and each cursor checks its bound: a comparator that contradicts
/// itself or throws can spoil the order, but not lose a member, leave the range or go on for ever.
template <class Members>
class ZListSort {
  public:
    ZListSort(Members sorted, ZSortCompare const& comparator, ZSortCompare::sortorder order)
        : members(sorted), cmp(comparator), ascending(order == ZSortCompare::ascending) {}

    /// Sorts the range from `lo` up to but not including `hi`; null members go to its end.
    void operator()(unsigned int lo, unsigned int hi) {
        hi = gather(lo, hi);
        quick(lo, hi, 2 * bitWidth(hi - lo));
    }

  private:
    struct Parts {
        unsigned int leftEnd, rightBegin;
    };

    static constexpr unsigned int smallPart = 12;  // below that, insertion compares less

    static unsigned int bitWidth(unsigned int n) {
        unsigned int bits = 0;
        for (; n != 0; n /= 2)
            ++bits;
        return bits;
    }

    [[nodiscard]] bool before(ZObject const* a, ZObject const* b) const {
        int const result = cmp.sortCompare(a, b);
        return ascending ? result < 0 : result > 0;
    }
    [[nodiscard]] bool behind(ZObject const* a, ZObject const* b) const {
        int const result = cmp.sortCompare(a, b);
        return ascending ? result > 0 : result < 0;
    }

    /// Moves null members to the end, keeps the order of the others, and returns their end.
    unsigned int gather(unsigned int lo, unsigned int hi) {
        for (unsigned int i = lo; i < hi; ++i) {
            if (members.get(i) != nullptr) members.swap(i, lo++);
        }
        return lo;
    }

    /// `rounds` bounds the partitions of a member. The smaller part is the one that recurs, so that
    /// the stack stays at log2 n calls.
    void quick(unsigned int lo, unsigned int hi, unsigned int rounds) {
        for (; hi - lo > smallPart; --rounds) {
            if (rounds == 0) return heap(lo, hi);
            Parts const parts = partition(lo, hi);
            if (parts.leftEnd - lo < hi - parts.rightBegin) {
                quick(lo, parts.leftEnd, rounds - 1);
                lo = parts.rightBegin;
            } else {
                quick(parts.rightBegin, hi, rounds - 1);
                hi = parts.leftEnd;
            }
        }
        insertion(lo, hi);
    }

    /// The right cursor stands one behind the member that it looks at.
    Parts partition(unsigned int lo, unsigned int hi) {
        ZObject const* const pivot = members.get(lo + (hi - lo) / 2);
        unsigned int left = lo;
        unsigned int right = hi;
        while (left < right) {
            while (left < hi && before(members.get(left), pivot))
                ++left;
            while (right > lo && behind(members.get(right - 1), pivot))
                --right;
            if (left < right) members.swap(left++, --right);
        }
        return {right, left};
    }

    void insertion(unsigned int lo, unsigned int hi) {
        for (unsigned int i = lo; i < hi; ++i) {
            for (unsigned int j = i; j > lo && behind(members.get(j - 1), members.get(j)); --j)
                members.swap(j - 1, j);
        }
    }

    void heap(unsigned int lo, unsigned int hi) {
        unsigned int const count = hi - lo;
        for (unsigned int root = count / 2; root-- > 0;)
            siftDown(lo, root, count);
        for (unsigned int end = count; end-- > 1;) {
            members.swap(lo, lo + end);
            siftDown(lo, 0, end);
        }
    }

    void siftDown(unsigned int lo, unsigned int root, unsigned int count) {
        for (unsigned int child = 2 * root + 1; child < count; child = 2 * root + 1) {
            if (child + 1 < count && before(members.get(lo + child), members.get(lo + child + 1)))
                ++child;
            if (!before(members.get(lo + root), members.get(lo + child))) return;
            members.swap(lo + root, lo + child);
            root = child;
        }
    }

    Members members;
    ZSortCompare const& cmp;
    bool const ascending;
};

#endif
