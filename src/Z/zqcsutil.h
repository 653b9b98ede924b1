/// The process's codesets, and the codeset-aware string and character functions.
///
/// Every process has two codesets: its local one, named by the environment (`LC_ALL`, `LC_CTYPE`,
/// `LANG`), and UTF-8. They are set up once, on first use, which also makes the environment's
/// locale the C library's (`setlocale(LC_ALL, "")`), and are then read without locks from any
/// thread. The environment variable `QCSDIR` must name the codeset data directory; without it, and
/// when the local codeset is not known, the handle getters print the reason and abort, the name
/// getters print it and return null. A file "aliases" of that directory that is too large or has a
/// line of another form is reported (messages 43 and 44), and the rest of it used. A message
/// service that works with strings while such a report is made gets handles that are none.
///
/// Rules that hold for all functions here: text is NUL-terminated bytes in the codeset of the
/// handle, null text is empty text, lengths are bytes, nothing is read behind the terminating NUL
/// whatever length is given, nothing is retained after the call, and no function throws. With a
/// handle that is none, measuring fails, searching finds nothing, and comparison and copying are by
/// bytes.
///
/// The string functions walk whole characters: nothing is found inside one. A walk ends at a
/// malformed character, with two exceptions: a byte that a single-byte codeset does not define is
/// a character equal to itself alone, and what is copied, compared or tokenized is taken by bytes
/// from there on, so that no text is lost or taken for another.
#ifndef Z_ZQCSUTIL_H
#define Z_ZQCSUTIL_H

#include "Z/ztags.h"

#include <time.h>

#include "Z/zexport.h"

/// A codeset: a 32-bit number on both word sizes; 0 is none.
typedef unsigned int ZCodesetHandle;
/// A wide character: one UTF-16 code unit. Characters outside the Basic Multilingual Plane have no
/// wide form.
typedef unsigned short ZWideChar;

#ifdef __cplusplus
extern "C" {
#endif

/// The handle of the local codeset. Aborts, after a report, when there is none.
ZFC_API ZCodesetHandle zgetLCSHandle(void);
/// The handle of UTF-8. Aborts, after a report, when there is none.
ZFC_API ZCodesetHandle zgetUTF8Handle(void);
/// The local codeset's name; the library's own text, for the process's life. Null, after a report,
/// when the codesets could not be set up.
ZFC_API char const* zgetLocalCodesetName(void);
/// The canonical name of the process's locale; as zgetLocalCodesetName() otherwise.
ZFC_API char const* zgetlocale(void);
/// Names the codeset data directory, in whose file "aliases" names of codesets and locales may be
/// added; it goes before `QCSDIR`. Null does nothing.
ZFC_API void zset_cs_dir(char const* dir);

/// Converts at most `inLen` bytes of local text to UTF-8; a NUL among them is converted and ends
/// the text. Returns the bytes written into `out`, -1 when the text is malformed or does not fit
/// `outLen`, 0 when a pointer is null or a length is 0.
ZFC_API int zlcs_to_utf8(char const* in, unsigned int inLen, char* out, unsigned int outLen);
/// The way back: as zlcs_to_utf8(), -1 also for a character that the local codeset lacks.
ZFC_API int zlcs_from_utf8(char const* in, unsigned int inLen, char* out, unsigned int outLen);

/// The greatest number of bytes that a character of the local codeset takes; at least 1.
ZFC_API int zlcs_mb_max(void);
/// Length in bytes of the character at `p`, which has `n` bytes left: 0 at NUL (or `n` 0), -1 when
/// it is malformed or cut off. In a single-byte local codeset every byte but NUL is a character.
ZFC_API int zmblen(ZCodesetHandle cs, char const* p, unsigned int n);
/// Number of characters of `s` up to its end or its first malformed character.
ZFC_API int zstrcount(ZCodesetHandle cs, char const* s);
/// Decodes the character at `p` into `*wide`; its length in bytes, 0 at NUL, -1 when it is
/// malformed or has no wide form.
ZFC_API int zmbtowc(ZCodesetHandle cs, ZWideChar* wide, char const* p, unsigned int n);
/// The length in bytes of the character at `p`, which has `n` bytes left, when it is white space
/// (alphabetic); else 0.
ZFC_API int zisspace(ZCodesetHandle cs, char const* p, unsigned int n);
/// The same for letters of any alphabet.
ZFC_API int zisalpha(ZCodesetHandle cs, char const* p, unsigned int n);

///@{
/// Classification of one wide character: non-zero when it is of the class. Classes and case are
/// Unicode's as the C.UTF-8 locale has them, whatever the process's locale is.
ZFC_API int ziswupper(ZWideChar wide);
ZFC_API int ziswlower(ZWideChar wide);
ZFC_API int ziswspace(ZWideChar wide);
ZFC_API int ziswdigit(ZWideChar wide);
ZFC_API int ziswalpha(ZWideChar wide);
ZFC_API int ziswalnum(ZWideChar wide);
///@}

///@{
/// The standard functions of the same stem (ISO C). `c` is a wide character; 0 finds the end.
ZFC_API char* zstrchr(ZCodesetHandle cs, char const* s, int c);
ZFC_API char* zstrrchr(ZCodesetHandle cs, char const* s, int c);
ZFC_API char* zstrstr(ZCodesetHandle cs, char const* s, char const* sub);
ZFC_API char* zstrpbrk(ZCodesetHandle cs, char const* s, char const* set);
///@}
/// Bytes of the leading run of characters that are (zstrspn) or are not (zstrcspn) in `set`.
ZFC_API unsigned int zstrspn(ZCodesetHandle cs, char const* s, char const* set);
/// Characters that are not in the set.
ZFC_API unsigned int zstrcspn(ZCodesetHandle cs, char const* s, char const* set);
/// As POSIX strtok_r: writes into `s`; `*state` carries the place between calls. Null `s` goes on
/// from there.
ZFC_API char* zstrtok(ZCodesetHandle cs, char* s, char const* delims, char** state);
/// Appends (copies) at most `n` bytes of `src`, leaving out a character that would not go in whole.
/// zstrncat() writes a NUL behind the text. zstrncpy() writes exactly `n` bytes, NULs behind the
/// text: as in ISO C there is none when the text takes them all. `dst` and `src` do not overlap.
ZFC_API char* zstrncat(ZCodesetHandle cs, char* dst, char const* src, unsigned int n);
/// Copies; see above.
ZFC_API char* zstrncpy(ZCodesetHandle cs, char* dst, char const* src, unsigned int n);
/// Comparison without regard to case: negative, 0 or positive. `n` is bytes of either text.
ZFC_API int zstricmp(ZCodesetHandle cs, char const* a, char const* b);
/// At most `n` bytes of either text.
ZFC_API int zstrnicmp(ZCodesetHandle cs, char const* a, char const* b, unsigned int n);
/// Case mapping in place; a character whose other case has another byte length stays. Returns `s`.
ZFC_API char* zstrupper(ZCodesetHandle cs, char* s);
/// Into lower case.
ZFC_API char* zstrlower(ZCodesetHandle cs, char* s);
/// As POSIX strptime with the names of the process's locale; null when `s` does not match.
ZFC_API char* zstrptime(ZCodesetHandle cs, char const* s, char const* format, struct tm* tm);

#ifdef __cplusplus
}
#endif

#endif
