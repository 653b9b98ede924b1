/// The Adler-32 checksum of RFC 1950.
#ifndef Z_ZADLER32_H
#define Z_ZADLER32_H

#include "Z/ztags.h"

#include "Z/zexport.h"

/// The Adler-32 checksum, by zlib.
class ZFC_API ZAdler32 {
  public:
    /// The checksum `adler` continued over `length` bytes. A checksum begins with 1, which is also
    /// the answer for null `data`; a length of 0 gives `adler` back. Never throws.
    [[nodiscard]] static unsigned long adler32(unsigned long adler, unsigned char const* data,
                                               unsigned int length) noexcept;
};

#endif
