/// The sorting of lists.
#ifndef Z_CONTAINERS_LIST_SORT_H
#define Z_CONTAINERS_LIST_SORT_H

#include "Z/ZObject.h"
#include "Z/ZSort.h"

/// Sorts what `Members` gives by `get(i)` and exchanges by `swap(i, j)`: quicksort, heapsort where
/// quicksort degenerates, and insertion sort for small parts.
///
/// Members move by exchange alone, and no loop leaves its bounds to the comparator: one that
/// contradicts itself or throws can spoil the order, but not lose a member, leave the range or go
/// on for ever. No member is kept from one comparison to the next, and null, what `get` gives
/// beyond the end, is not compared: so a comparator may change the list it sorts.
template <class Members>
class ZListSort {
  public:
    ZListSort(Members sorted, ZSortCompare const& comparator, ZSortCompare::sortorder order)
        : members(sorted), cmp(comparator), ascending(order == ZSortCompare::ascending) {}

    /// Sorts the range from `lo` up to but not including `hi`; null members go to its end.
    void operator()(unsigned int lo, unsigned int hi) {
        hi = gather(lo, hi);
        if (isSorted(lo, hi)) return;
        quick(lo, hi, 2 * bitWidth(hi - lo));  // twice what halving takes
    }

  private:
    struct Parts {
        unsigned int leftEnd, rightBegin;
        unsigned int passes;  // over the range
    };

    static constexpr unsigned int smallPart = 12;   // up to there, insertion compares less
    static constexpr unsigned int largePart = 128;  // from there on more samples pay

    static unsigned int bitWidth(unsigned int n) {
        unsigned int bits = 0;
        for (; n != 0; n /= 2)
            ++bits;
        return bits;
    }

    [[nodiscard]] bool before(ZObject const* a, ZObject const* b) const {
        int const result = compared(a, b);
        return ascending ? result < 0 : result > 0;
    }
    [[nodiscard]] bool behind(ZObject const* a, ZObject const* b) const {
        int const result = compared(a, b);
        return ascending ? result > 0 : result < 0;
    }
    [[nodiscard]] int compared(ZObject const* a, ZObject const* b) const {
        return a != nullptr && b != nullptr ? cmp.sortCompare(a, b) : 0;
    }

    /// Moves null members to the end, keeps the order of the others, and returns their end.
    unsigned int gather(unsigned int lo, unsigned int hi) {
        for (unsigned int i = lo; i < hi; ++i) {
            if (members.get(i) != nullptr) members.swap(i, lo++);
        }
        return lo;
    }

    /// Whether all members are in order, which those that were the other way round are then. Tells
    /// at the first member that is not in line with those before.
    bool isSorted(unsigned int lo, unsigned int hi) {
        unsigned int end = lo + 1;
        while (end < hi && !behind(members.get(end - 1), members.get(end)))
            ++end;
        if (end >= hi) return true;
        if (end > lo + 1) return false;
        while (end < hi && behind(members.get(end - 1), members.get(end)))
            ++end;
        if (end < hi) return false;
        while (lo < --hi)
            members.swap(lo++, hi);
        return true;
    }

    /// `passes` bounds how often a member is compared with a pivot. The smaller part is the one
    /// that recurs, so that the stack stays at log2 n calls.
    void quick(unsigned int lo, unsigned int hi, unsigned int passes) {
        while (hi - lo > smallPart) {
            if (passes < 2) return heap(lo, hi);  // partition() may take two
            Parts const parts = partition(lo, hi);
            passes -= parts.passes;
            if (parts.leftEnd - lo < hi - parts.rightBegin) {
                quick(lo, parts.leftEnd, passes);
                lo = parts.rightBegin;
            } else {
                quick(parts.rightBegin, hi, passes);
                hi = parts.leftEnd;
            }
        }
        insertion(lo, hi);
    }

    /// Brings a member near the median of the range to its middle, where the pivot is taken from:
    /// the median of three, or of three such medians, spares up to a fifth of all comparisons.
    void bringMedian(unsigned int lo, unsigned int hi) {
        // Not (lo + hi) / 2, which wraps.
        unsigned int const middle = lo + (hi - lo) / 2;
        unsigned int const last = hi - 1;
        if (hi - lo < largePart) return order(lo, middle, last);
        unsigned int const step = (hi - lo) / 8;
        order(lo, lo + step, lo + 2 * step);
        order(middle - step, middle, middle + step);
        order(last - 2 * step, last - step, last);
        order(lo + step, middle, last - step);
    }

    /// Sorts three members in their places.
    void order(unsigned int a, unsigned int b, unsigned int c) {
        if (behind(members.get(a), members.get(b))) members.swap(a, b);
        if (!behind(members.get(b), members.get(c))) return;
        members.swap(b, c);
        if (behind(members.get(a), members.get(b))) members.swap(a, b);
    }

    /// The member in the middle is the pivot. A left part that came out small is taken as a sign of
    /// many members level with the pivot; a second pass puts these between the parts.
    Parts partition(unsigned int lo, unsigned int hi) {
        bringMedian(lo, hi);
        // To the front, out of the reach of split(): the others are compared with it while they
        // move.
        members.swap(lo, lo + (hi - lo) / 2);
        auto const pivot = [this, lo] { return members.get(lo); };
        unsigned int const end =
            split(lo + 1, hi, [&](ZObject const* member) { return before(member, pivot()); });
        members.swap(lo, end - 1);
        if (end - lo > (hi - lo) / 8) return {end - 1, end, 1};
        auto const moved = [this, end] { return members.get(end - 1); };
        return {end - 1,
                split(end, hi, [&](ZObject const* member) { return !behind(member, moved()); }), 2};
    }

    /// Moves the members that `isLeft` accepts before the others and returns their end. Exchanging
    /// every time costs less than a branch that no processor can predict.
    template <class Test>
    unsigned int split(unsigned int lo, unsigned int hi, Test isLeft) {
        unsigned int end = lo;
        for (unsigned int i = lo; i < hi; ++i) {
            unsigned int const left = isLeft(members.get(i));
            members.swap(i, end);
            end += left;
        }
        return end;
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
