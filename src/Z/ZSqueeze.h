/// Compressing and expanding whole blocks, in the zlib stream format (RFC 1950).
#ifndef Z_ZSQUEEZE_H
#define Z_ZSQUEEZE_H

#include "Z/ztags.h"

#include "Z/zexport.h"

struct z_stream_s;  // zlib's stream record; a caller of the stream functions includes zlib.h

/// Compresses or expands a block in one call. The output is one complete zlib stream with nothing
/// before or behind it, so whoever expands it must know, or bound, its expanded length.
///
/// Lengths are bytes. Failures are negative zlib statuses: -5 the output does not fit or ends in
/// the middle of the input, or a block is above 4 GiB; -4 no memory; -3 the input is corrupt or
/// needs a dictionary; -2 a bad level or a null block. Nothing here throws or locks; objects hold
/// no stream between calls.
class ZFC_API ZSqueeze {
  public:
    ZSqueeze() = default;
    ZSqueeze(ZSqueeze const&) = default;
    ZSqueeze& operator=(ZSqueeze const&) = default;

    /// Names the input of squeeze() and unsqueeze(), which stays the caller's and must live until
    /// they have been called.
    void setSource(unsigned char* data, unsigned long length) noexcept;
    /// The level of compression: 0 none to 9 best, -1 zlib's default. Another is found out by
    /// squeeze().
    void setLevel(int newLevel) noexcept { level = newLevel; }

    /// Compresses (expands) the source into `dest`, which has room for `destLength` bytes. Returns
    /// the number of bytes written, or a negative status: -5 also for room above LONG_MAX, which on
    /// 32 bits is 2 GiB.
    [[nodiscard]] long squeeze(unsigned char* dest, unsigned long destLength) const noexcept;
    /// Expands the source; else as squeeze().
    [[nodiscard]] long unsqueeze(unsigned char* dest, unsigned long destLength) const noexcept;

    /// The same for a block given here. `*destLength` is the room before and, on success, the bytes
    /// written behind; a failure leaves it. Return 0 or a negative status.
    int compress(unsigned char* dest, unsigned long* destLength, unsigned char const* src,
                 unsigned long srcLength) const noexcept;
    /// The same for expanding.
    int uncompress(unsigned char* dest, unsigned long* destLength, unsigned char const* src,
                   unsigned long srcLength) const noexcept;

    ///@{
    /// zlib's stream functions of the same names, with their contracts and statuses. The four that
    /// end in _ are what the macros deflateInit() and so on of zlib.h expand to: `version` is
    /// ZLIB_VERSION, `recordSize` the size of the stream record.
    static char const* zlibVersion() noexcept;
    static int deflateInit_(z_stream_s* stream, int level, char const* version,
                            int recordSize) noexcept;
    static int deflateInit2_(z_stream_s* stream, int level, int method, int windowBits,
                             int memLevel, int strategy, char const* version,
                             int recordSize) noexcept;
    static int deflate(z_stream_s* stream, int flush) noexcept;
    static int deflateEnd(z_stream_s* stream) noexcept;
    static int deflateSetDictionary(z_stream_s* stream, unsigned char const* dictionary,
                                    unsigned int length) noexcept;
    static int deflateCopy(z_stream_s* dest, z_stream_s* source) noexcept;
    static int deflateReset(z_stream_s* stream) noexcept;
    static int deflateParams(z_stream_s* stream, int level, int strategy) noexcept;
    static int inflateInit_(z_stream_s* stream, char const* version, int recordSize) noexcept;
    static int inflateInit2_(z_stream_s* stream, int windowBits, char const* version,
                             int recordSize) noexcept;
    static int inflate(z_stream_s* stream, int flush) noexcept;
    static int inflateEnd(z_stream_s* stream) noexcept;
    static int inflateSetDictionary(z_stream_s* stream, unsigned char const* dictionary,
                                    unsigned int length) noexcept;
    static int inflateSync(z_stream_s* stream) noexcept;
    static int inflateSyncPoint(z_stream_s* stream) noexcept;
    static int inflateReset(z_stream_s* stream) noexcept;
    ///@}

  private:
    unsigned char* source = nullptr;  // the input, not owned; null until setSource()
    unsigned int sourceLength = 0;    // its bytes
    int level = -1;                   // level of compression
    [[maybe_unused]] int flag = 1;    // Layout: always 1, nothing reads it
};

#endif
