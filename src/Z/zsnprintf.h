/// Formatted output that is the same on every platform: numbered arguments, wide text in the local
/// codeset, and the length that the whole result needs.
///
/// A format is ordinary bytes and conversion specifications, as in ISO C and POSIX:
///
///     %[n$][flags][width][.precision][length]conversion
///
///     flags        blank # ' + - 0
///     width        digits, "*", or "*m$" in a specification that names its argument
///     precision    the same forms
///     length       h, l, ll (L and q are the same)
///     conversion   d i o u x X c s p e E f g G %
///                  C  one wide character, S  wide text, in the local codeset (ZWideChar, 16 bits)
///
/// Where this differs from ISO C:
/// - a "0" flag is ignored beside any precision, in floating conversions too; after a "0" flag a
///   second "0" begins the width;
/// - "." without digits is no precision;
/// - "#" gives octal numbers other than 0 one digit more than they have otherwise, a leading 0;
/// - "%p" prints "0x" and hexadecimal digits, nothing for a null pointer;
/// - a length before c, C, s, S, p or % has no meaning and no effect; "%lf" is an error, "%Lf" is
///   for a long double; there is no "hh", and no n, a, A or F conversion;
/// - "%%" takes flags, a width and a precision; the width counts;
/// - a null pointer is empty text for s and S.
///
/// A precision of s or S is the greatest number of bytes written, nothing is read beyond it. S
/// never writes part of a character, whether a precision or the end of the buffer cuts it.
///
/// Arguments are numbered from 1; a specification without a number takes the one behind the last
/// taken. Every number up to the highest that is named must be named. One argument may be used
/// several times: integers convert to the size asked for, an address may be text as well, any other
/// mixture is an error.
///
/// Rules that hold for all functions here: the result is the number of bytes of the whole text, its
/// NUL not counted, or -1. It is -1 for a null or malformed format, a width, precision or total
/// above INT_MAX, a wide character that the codeset lacks, and when memory is exhausted. Text is
/// read during the call only; nothing waits; nothing throws. The local codeset must be there:
/// without it the process ends as zgetLCSHandle() says.
#ifndef Z_ZSNPRINTF_H
#define Z_ZSNPRINTF_H

#include "Z/ztags.h"

#include <stdarg.h>

#include "Z/zexport.h"
#include "Z/zqcsutil.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Writes at most `size` bytes into `out`, the last of them a NUL; the result is what the whole
/// text needs, so the text was cut when it is not below `size`. A negative `size` counts as 0.
/// `out` may be null, then nothing is written. After a failure `out` holds some text,
/// NUL-terminated, or, when the format was bad, what it held before.
ZFC_API int zsnprintf(char* out, int size, char const* format, ...) ZFC_PRINTF(3, 4);
/// As zsnprintf(); the caller still ends `list`.
ZFC_API int zvsnprintf(char* out, int size, char const* format, va_list list) ZFC_PRINTF(3, 0);

/// Formats into a new block, which the caller frees with `free`, and stores it in `*result`; null
/// when the call fails. -1 also for a null `result`.
ZFC_API int zsprintf(char** result, char const* format, ...) ZFC_PRINTF(2, 3);
/// As zsprintf(); the caller still ends `list`. -1 also for a null `list`.
ZFC_API int zvsprintf(char** result, char const* format, va_list list) ZFC_PRINTF(2, 0);

/// One conversion specification. The words behind `end` are the engine's own.
typedef struct ZFormatSpec {
    char const* start;  ///< its "%"
    char const* end;    ///< behind its conversion character
    int argType;        ///< how its argument is fetched and rendered
    unsigned flags;     ///< the engine's own
    int argPos;         ///< number of the argument converted
    int width;          ///< the width, or the number of the argument that holds it
    int precision;      ///< the precision, or the number of the argument that holds it
} ZFormatSpec;

/// One fetched argument; the engine's own.
typedef struct ZFormatArg {
    int type;  ///< the engine's own
    union {
        long long integer;     ///< a whole number, or a character
        void* pointer;         ///< an address, or a text
        double real;           ///< a double
        long double longReal;  ///< a long double
        struct {
            short argClass;  ///< the kind of the argument
            short named;     ///< whether a conversion gives its number
        } use;               ///< before the argument is fetched: what its conversions want it to be
    } value;                 ///< what was fetched
} ZFormatArg;

enum {
    ZFORMAT_INLINE_SPECS = 10,  ///< specifications that need no heap
    ZFORMAT_INLINE_ARGS = 10    ///< argument slots that need no heap; number 0 is not used
};

/// A parsed format with its arguments. The caller provides it, uninitialised, and changes nothing
/// in it; it is neither copied nor moved, because it points into itself.
typedef struct ZFormatContext {
    ZFormatSpec inlineSpecs[ZFORMAT_INLINE_SPECS];  ///< used before the heap is
    ZFormatSpec* specs;                             ///< inlineSpecs or a heap block
    int specCount;                                  ///< how many there are
    ZFormatArg inlineArgs[ZFORMAT_INLINE_ARGS];     ///< used before the heap is
    ZFormatArg* args;                               ///< inlineArgs or a heap block
    int reserved;                                   ///< Layout: 0, nothing reads it
    char const* format;                             ///< as it was given
    ZCodesetHandle codeset;                         ///< what C and S convert to
    int reservedLast;                               ///< Layout: likewise
} ZFormatContext;

/// Reads `format` and fetches its arguments into `*ctx`, for zvsnprintf_render() as often as
/// wanted; C and S convert to `codeset`. `format` and what the arguments point at must live until
/// the last rendering. Returns 0, and zvsnprintf_done() is due; or -1, and nothing is.
ZFC_API int zvsnprintf_parse(ZFormatContext* ctx, ZCodesetHandle codeset, char const* format,
                             va_list list);
/// Writes a parsed format as zsnprintf() does.
ZFC_API int zvsnprintf_render(ZFormatContext const* ctx, char* out, int size);
/// Frees what parsing allocated. A parsed context may be done more than once.
ZFC_API void zvsnprintf_done(ZFormatContext* ctx);

#ifdef __cplusplus
}
#endif

#endif
