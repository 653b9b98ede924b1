#include "Z/ZSort.h"

#include <pthread.h>

#include <new>

#include "Z/ZObject.h"

ZDefaultSortCompare const* ZSortCompare::dsc_ = nullptr;

ZSortCompare::~ZSortCompare() = default;
ZDefaultSortCompare::~ZDefaultSortCompare() = default;

ZSortCompare const& ZSortCompare::defaultSortCompare() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        // Never destroyed, so that lists can be sorted in static destructors.
        alignas(ZDefaultSortCompare) static unsigned char place[sizeof(ZDefaultSortCompare)];
        dsc_ = new (place) ZDefaultSortCompare;
    });
    return *dsc_;
}

int ZDefaultSortCompare::sortCompare(ZObject const* a, ZObject const* b) const {
    return a->compare(*b);
}
