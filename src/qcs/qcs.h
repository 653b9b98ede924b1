/// The codeset layer: everything the library knows about character sets.
///
/// Codesets and locales are known by 32-bit handles; 0 is none. A codeset is compiled into tables
/// when its handle is made, so that per-character calls look into these tables alone, and a handle
/// may be used from several threads at once. Served are UTF-8 and every codeset of the system's
/// iconv in which the bytes below 0x80 are whole characters and mean what they mean in ASCII
/// (backslash, tilde and unused control characters excepted); the others, UTF-16 and the shifting
/// ISO-2022 family among them, cannot stand in NUL-terminated text and have no handle.
///
/// Rules for all functions: text is bytes in the codeset of the handle and ends at its NUL; nothing
/// behind the NUL is read, whatever length is told. Null text is empty text. A wide character is
/// one UTF-16 code unit; a character outside the Basic Multilingual Plane has none, but is
/// measured, searched and converted whole. UTF-8 is strict: overlong forms, surrogates and values
/// above U+10FFFF are malformed. With a handle that is none, measuring and converting fail,
/// searching finds nothing, and comparison and copying are by bytes. No function throws.
#ifndef QCS_QCS_H
#define QCS_QCS_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int qcs_cs_handle;
typedef unsigned int qcs_loc_handle;
typedef unsigned short qcs_wchar;

/// Takes the layer's one lock, maybe once more, and gives it back. While a thread has it, others
/// that make handles or look names up wait, and nothing else of the layer does.
void qcs_lock(void);
void qcs_unlock(void);
/// As qcs_lock(), for a fork: no table is half changed in the child, where qcs_unlock() frees the
/// lock as in the parent.
void qcs_before_fork(void);

/// Names the codeset data directory, whose file "aliases" may add names of codesets and locales.
/// It is read when a name is looked up next; a missing directory or file is no error. In
/// set-user-id programs it is not read. Null is ignored.
void qcs_set_dir(char const* dir);

/// Whether there was a fault in the alias file when it was read last; each is told once. `*line` is
/// the number of the first line of another form, whose beginning goes to `text`, or 0 when the file
/// is too large or cannot be read: then it counts as empty. Texts end at a NUL within their sizes.
int qcs_alias_fault(char* path, unsigned int pathSize, char* text, unsigned int textSize,
                    int* line);

/// Name of the locale that the environment asks for: the first of LC_ALL, LC_CTYPE and LANG that is
/// set and not empty; "C" when there is none or it is no locale name (letters, digits and "-_.:",
/// and a modifier of these after "@"). 0 on success, -1 when it does not fit `size` bytes.
int qcs_os_lang_name(char* buffer, unsigned int size);
/// Name of that locale's codeset: the system's own answer where it has the locale, else the codeset
/// named in the locale's name, else "US-ASCII". 0 on success, -1 when it does not fit.
int qcs_os_cs_name(char* buffer, unsigned int size);
/// The canonical spelling of a locale name ("de_DE.utf8" gives "de_DE.UTF-8"). 0 on success, -1
/// when it is no locale name or does not fit `size` bytes.
int qcs_canonical_loc(char const* name, char* out, unsigned int size);

/// A locale by name; 0 when the system has none of that name. The same name gives the same handle;
/// it lives as long as the process.
qcs_loc_handle qcs_loc_new(char const* name);
/// A codeset by name; 0 when there is none of that name. Letter case and punctuation do not matter.
/// The same codeset gives the same handle.
qcs_cs_handle qcs_cs_new(char const* name);
/// Gives back what one qcs_cs_new() gave; when all have been, the handle is none until the codeset
/// is asked for again. Freeing none does nothing. The tables are kept for the next asker.
void qcs_cs_free(qcs_cs_handle cs);

/// Whole-text conversion: bytes written, -1 when the input is malformed, cut off or has a character
/// that the target lacks, or when `outLen` bytes do not hold the result (`out` then holds part of
/// it). At most `inLen` bytes are read; a NUL among them is converted and ends the text.
int qcs_to_utf8(qcs_cs_handle cs, char const* in, unsigned int inLen, char* out,
                unsigned int outLen);
int qcs_from_utf8(qcs_cs_handle cs, char const* in, unsigned int inLen, char* out,
                  unsigned int outLen);

/// Where such a conversion stops: the offset of the first character that is malformed, cut off or
/// lacking in the target; -1 when there is none, so that it is the room that lacks.
long qcs_to_utf8_stop(qcs_cs_handle cs, char const* in, unsigned int inLen);
long qcs_from_utf8_stop(qcs_cs_handle cs, char const* in, unsigned int inLen);

/// Greatest bytes of one character; 1 for a handle that is none.
int qcs_mb_max(qcs_cs_handle cs);
/// Length of the character at `p`, which has `n` bytes left: 0 at NUL or `n` 0, -1 if malformed.
int qcs_mblen(qcs_cs_handle cs, char const* p, unsigned int n);
/// One character to wide: its length, 0 at NUL or `n` 0, -1 if malformed or without wide form.
int qcs_mbtowc(qcs_cs_handle cs, qcs_wchar* wide, char const* p, unsigned int n);
/// One wide character to bytes (`out` has room for 8): bytes written, -1 when the codeset lacks it
/// or it is a surrogate. 0 gives one NUL.
int qcs_wctomb(qcs_cs_handle cs, char* out, qcs_wchar wide);

/// Classes are those of the C.UTF-8 locale, whatever locales are installed.
int qcs_iswupper(qcs_wchar wide);
int qcs_iswlower(qcs_wchar wide);
int qcs_iswspace(qcs_wchar wide);
int qcs_iswdigit(qcs_wchar wide);
int qcs_iswalpha(qcs_wchar wide);
int qcs_iswalnum(qcs_wchar wide);

// The functions below walk whole characters: nothing is found inside one. A walk ends at a
// malformed character, with two exceptions: a byte that a single-byte codeset does not define is
// walked over as a character equal to itself alone, and what is copied, compared or tokenized is
// taken by bytes from there on, so that no text is lost or taken for another.

/// Number of characters.
unsigned int qcs_strcount(qcs_cs_handle cs, char const* s);
/// The ISO C functions of the same stem. `wide` is a wide character; 0 finds the end of the text.
char* qcs_strchr(qcs_cs_handle cs, char const* s, int wide);
char* qcs_strrchr(qcs_cs_handle cs, char const* s, int wide);
char* qcs_strstr(qcs_cs_handle cs, char const* s, char const* sub);
char* qcs_strpbrk(qcs_cs_handle cs, char const* s, char const* set);
unsigned int qcs_strspn(qcs_cs_handle cs, char const* s, char const* set);
unsigned int qcs_strcspn(qcs_cs_handle cs, char const* s, char const* set);
/// As POSIX strtok_r.
char* qcs_strtok(qcs_cs_handle cs, char* s, char const* delims, char** state);
/// As in ISO C, `n` counting bytes, but a character that would not go in whole is left out.
/// qcs_strncat() writes a NUL behind the text; qcs_strncpy() writes exactly `n` bytes, NULs behind
/// the text, so there is no NUL when the text takes all of them. `dst` and `src` do not overlap.
char* qcs_strncat(qcs_cs_handle cs, char* dst, char const* src, unsigned int n);
char* qcs_strncpy(qcs_cs_handle cs, char* dst, char const* src, unsigned int n);
/// Comparison by characters without regard to case; `n` counts bytes of either text. Case is that
/// of the C.UTF-8 locale in every locale.
int qcs_stricmp(qcs_cs_handle cs, qcs_loc_handle loc, char const* a, char const* b);
int qcs_strnicmp(qcs_cs_handle cs, qcs_loc_handle loc, char const* a, char const* b,
                 unsigned int n);
/// Case mapping in place; a character whose other case has another byte length stays. Returns `s`.
char* qcs_strupper(qcs_cs_handle cs, qcs_loc_handle loc, char* s);
char* qcs_strlower(qcs_cs_handle cs, qcs_loc_handle loc, char* s);
/// As POSIX strptime, with the names of the locale; with those of C when `loc` is none.
char* qcs_strptime(qcs_cs_handle cs, qcs_loc_handle loc, char const* s, char const* format,
                   struct tm* tm);

#ifdef __cplusplus
}
#endif

#endif
