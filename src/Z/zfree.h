/// The deleter of blocks that come from malloc, calloc or realloc.
#ifndef Z_ZFREE_H
#define Z_ZFREE_H

#include "Z/ztags.h"

#include <cstdlib>

/// For `std::unique_ptr<T, ZFree>`, which stays one pointer wide.
struct ZFree {
    /// Frees the block; null is left alone.
    void operator()(void* block) const noexcept { std::free(block); }
};

#endif
