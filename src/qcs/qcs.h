/// The codeset layer: everything the library knows about character sets.
///
/// Codesets and locales are known by 32-bit handles; 0 is none. A codeset is compiled into tables
/// when its handle is made, so no later call enters iconv, and a handle may be used from several
/// threads at once. Text is bytes in the codeset of the handle and ends at its NUL: no function
/// reads behind the terminating NUL, whatever length it is told. A wide character is one UTF-16
/// code unit; a character outside the Basic Multilingual Plane has none, but is measured, searched
/// and converted whole. No function throws, and none loops on a malformed or cut-off character.
#ifndef QCS_QCS_H
#define QCS_QCS_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int qcs_cs_handle;
typedef unsigned int qcs_loc_handle;
typedef unsigned short qcs_wchar;

/// Names the codeset data directory, whose file "aliases" may add names of codesets and locales.
/// Files there are read when a name is looked up; a missing directory or file is no error. In
/// set-user-id programs nothing is read. Null is ignored.
void qcs_set_dir(const char* dir);

/// Name of the locale that the environment asks for (LC_ALL, LC_CTYPE, LANG; "C" when none is
/// usable), and name of its codeset. 0 on success, -1 when it does not fit `size` bytes.
int qcs_os_lang_name(char* buffer, unsigned int size);
int qcs_os_cs_name(char* buffer, unsigned int size);
/// The canonical spelling of a locale name ("de_DE.utf8" gives "de_DE.UTF-8"). 0 on success.
int qcs_canonical_loc(const char* name, char* out, unsigned int size);

/// A locale or codeset by name; 0 when there is none of that name. The same codeset gives the same
/// handle. Freeing 0 or an unknown handle does nothing; a handle is freed as often as it was made.
qcs_loc_handle qcs_loc_new(const char* name);
qcs_cs_handle qcs_cs_new(const char* name);
void qcs_cs_free(qcs_cs_handle cs);

/// Whole-text conversion: bytes written, -1 when the input is malformed, cut off or has a character
/// that the target lacks, or when `outLen` bytes do not hold the result. A NUL converts to NUL.
int qcs_to_utf8(qcs_cs_handle cs, const char* in, unsigned int inLen, char* out, unsigned int outLen);
int qcs_from_utf8(qcs_cs_handle cs, const char* in, unsigned int inLen, char* out,
                  unsigned int outLen);

/// Greatest bytes of one character; 1 for an unknown handle.
int qcs_mb_max(qcs_cs_handle cs);
/// Length of the character at `p`, which has `n` bytes left: 0 at NUL or `n` 0, -1 if invalid.
int qcs_mblen(qcs_cs_handle cs, const char* p, unsigned int n);
/// One character to wide: its length, 0 at NUL, -1 if invalid or without wide form.
int qcs_mbtowc(qcs_cs_handle cs, qcs_wchar* wide, const char* p, unsigned int n);
/// One wide character to bytes (`out` has room for qcs_mb_max bytes, at least 8): bytes written, -1
/// when the codeset lacks it or it is a surrogate.
int qcs_wctomb(qcs_cs_handle cs, char* out, qcs_wchar wide);

int qcs_iswupper(qcs_wchar wide);
int qcs_iswlower(qcs_wchar wide);
int qcs_iswspace(qcs_wchar wide);
int qcs_iswdigit(qcs_wchar wide);
int qcs_iswalpha(qcs_wchar wide);
int qcs_iswalnum(qcs_wchar wide);

/// The ISO C functions of the same stem over whole characters. Null text is empty text.
char* qcs_strchr(qcs_cs_handle cs, const char* s, int wide);
char* qcs_strrchr(qcs_cs_handle cs, const char* s, int wide);
char* qcs_strstr(qcs_cs_handle cs, const char* s, const char* sub);
char* qcs_strpbrk(qcs_cs_handle cs, const char* s, const char* set);
unsigned int qcs_strspn(qcs_cs_handle cs, const char* s, const char* set);
unsigned int qcs_strcspn(qcs_cs_handle cs, const char* s, const char* set);
char* qcs_strtok(qcs_cs_handle cs, char* s, const char* delims, char** state);
char* qcs_strncat(qcs_cs_handle cs, char* dst, const char* src, unsigned int n);
char* qcs_strncpy(qcs_cs_handle cs, char* dst, const char* src, unsigned int n);
int qcs_stricmp(qcs_cs_handle cs, qcs_loc_handle loc, const char* a, const char* b);
int qcs_strnicmp(qcs_cs_handle cs, qcs_loc_handle loc, const char* a, const char* b,
                 unsigned int n);
char* qcs_strupper(qcs_cs_handle cs, qcs_loc_handle loc, char* s);
char* qcs_strlower(qcs_cs_handle cs, qcs_loc_handle loc, char* s);
char* qcs_strptime(qcs_cs_handle cs, qcs_loc_handle loc, const char* s, const char* format,
                   struct tm* tm);

#ifdef __cplusplus
}
#endif

#endif
