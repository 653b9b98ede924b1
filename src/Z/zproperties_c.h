/// Stanza files for C programs: open, ask, edit, walk, store.
///
/// Rules that hold for every function:
///
/// - No exception leaves a function; each failure is one of the codes of ZPROPReturnCode. A
///   function that returns something else stores its code through `rc`, which may be null when the
///   caller does not want it, and returns 0 or null beside a code other than ZPROP_OK. Cancelling
///   the thread (pthread_cancel) goes through. But the first call ends the process, after a report,
///   when `QCSDIR` is not set or the environment's locale names a codeset that is not known;
///   zfc_setup() sets the one, and zgetLocalCodesetName(), asked before, is null in both cases.
/// - A null pointer where text, a handle or an address is required, and a handle that is closed or
///   foreign, is ZPROP_INVALID_ARGUMENT and nothing happens. Handles are recognised by words in
///   their memory: never pass a pointer to something that is no handle. Other text that
///   is not taken (an empty name, a value that would not read back from the file) is
///   ZPROP_EDIT_ERROR for an edit, ZPROP_IO_ERROR for opening, else ZPROP_INVALID_ARGUMENT.
/// - A `const char*` argument is text in the local codeset, read during the call only.
/// - A handle is released with its own close function, a text from zstzPropGetStringValue() with
///   zstzPropFree(), the answers of zstzPropGetValues() with zstzPropFreeValuesList(). Texts from
///   an iterator belong to the iterator.
/// - Threads may share a handle of a file, but not one of an iterator. An iterator uses its file's
///   handle: close it first.
/// - Nothing but zstzPropUpdate() waits for another process. A file that another one holds locked
///   cannot be opened or stored just now (ZPROP_IO_ERROR): try again.
#ifndef Z_ZPROPERTIES_C_H
#define Z_ZPROPERTIES_C_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/// An open stanza file.
typedef struct ZPROP_stz_handle ZPROP_stz_handle;
/// A walk over the keys of a stanza, or over the values of a key.
typedef struct ZPROP_iter_handle ZPROP_iter_handle;

/// What a caller opens a file for. Kept with the handle; edits and stores work in either mode.
typedef enum ZPROPOpenMode { ZPROP_OPEN_READ = 1, ZPROP_OPEN_WRITE = 2 } ZPROPOpenMode;

/// What every function answers, directly or through `rc`.
typedef enum ZPROPReturnCode {
    ZPROP_OK = 0,
    ZPROP_IO_ERROR = 51,       ///< opening, storing or reading failed
    ZPROP_EDIT_ERROR = 52,     ///< an edit was refused; nothing changed
    ZPROP_INVALID_VALUE = 53,  ///< the value is not of the requested type
    ZPROP_MISSING_KEY = 54,    ///< a required key is absent, or has no value
    ZPROP_INVALID_ARGUMENT =
        55,                    ///< null or empty where something is required, a bad handle or mode
    ZPROP_ITERATOR_ERROR = 57  ///< no current entry, or not an operation of this iterator
} ZPROPReturnCode;

/// What a request of zstzPropGetValues() asks for.
typedef enum ZPROPItemType {
    ZPROP_ITEM_BOOLEAN = 1,
    ZPROP_ITEM_INTEGER = 2,
    ZPROP_ITEM_STRING = 3,
    ZPROP_ITEM_LIST = 4
} ZPROPItemType;

/// One request of zstzPropGetValues().
typedef struct ZStzFileItem {
    int type;            ///< a ZPROPItemType
    char const* stanza;  ///< required
    char const* key;     ///< required
    int optional;        ///< 1: the key may be absent; anything else: it is required
    /// Where the answer goes; required. ZPROP_ITEM_BOOLEAN: an `int`, 1 or 0; absent 0.
    /// ZPROP_ITEM_INTEGER: an `int` of the number's 32 bits; absent 0. ZPROP_ITEM_STRING: a
    /// `char*`; empty or absent null. ZPROP_ITEM_LIST: a `char**`, an array that ends with null;
    /// absent an array of no text.
    void* result;
} ZStzFileItem;

// -------------------------------------------------------------------------------------- failures

/// What went wrong in this thread's last call that failed: the reason in words, and in parentheses
/// the library's source and line, but for an argument that is bad by itself. Never null; empty
/// before the first failure. Calls that succeed leave it; it lives until the next failure, and as
/// long as the thread.
ZFC_API char const* zstzPropLastError(void);

// --------------------------------------------------------------------------------------- files

/// Opens `file` and reads it whole, keeping its comments for a later store. On success `*handle` is
/// the caller's, to be closed with zstzPropClose(); else it is null. `mode` is one of
/// ZPROPOpenMode. ZPROP_IO_ERROR: the file is not there, not readable, locked, or not a valid
/// stanza file.
ZFC_API int zstzPropOpen(ZPROP_stz_handle** handle, char const* file, ZPROPOpenMode mode);
/// Makes an empty file and opens it for writing, as zstzPropOpen() does. ZPROP_IO_ERROR: there is a
/// file of this name, which stays as it is, or none can be made.
ZFC_API int zstzPropCreate(ZPROP_stz_handle** handle, char const* file);
/// Releases the handle; edits that were not stored are lost.
ZFC_API int zstzPropClose(ZPROP_stz_handle* handle);
/// Writes all edits to `file`, or with null to the file that was opened, and flushes it to the
/// device; a relative name is followed from the directory that is current now. ZPROP_IO_ERROR: the
/// file holds the old values or the new ones, never a part of them, and the edits are kept, so that
/// the call can be repeated.
ZFC_API int zstzPropStore(ZPROP_stz_handle* handle, char const* file);

/// Edits the file of `handle`, which is the one given to zstzPropUpdate(), as `data` is. 0 when the
/// edits are to be stored; any other number gives up.
typedef int (*ZPROPUpdate)(ZPROP_stz_handle* handle, void* data);
/// Edits the file that was opened so that no change by another program is lost: waits for its lock,
/// up to `milliseconds`, reads it when it has changed, calls `edit`, stores, releases the lock.
/// Other threads wait for the handle meanwhile. `edit` may be called again, with the values read
/// anew, when somebody puts another file in place without the lock; it must not close the handle,
/// and cannot store or update it.
///
/// Whatever the code, but ZPROP_OK, nothing is stored and the handle has no edits; what was read
/// stays. ZPROP_IO_ERROR: the lock could not be had in time, or reading or storing failed; a store
/// that failed at its very end may be in the file, whole.
/// ZPROP_EDIT_ERROR: `edit` gave up, or threw where it is C++. ZPROP_INVALID_ARGUMENT: `edit` is
/// null, or the handle has edits that are not stored, which it keeps; `edit` was not called.
ZFC_API int zstzPropUpdate(ZPROP_stz_handle* handle, unsigned int milliseconds, ZPROPUpdate edit,
                           void* data);

// ------------------------------------------------------------------------------------- reading

/// 1 when the key, or with a null `key` the stanza, is present, else 0.
ZFC_API int zstzPropExists(ZPROP_stz_handle* handle, char const* stanza, char const* key, int* rc);
/// Number of stanzas.
ZFC_API int zstzPropNumStanzas(ZPROP_stz_handle* handle, int* rc);
/// Number of keys of the stanza; 0 when it is absent.
ZFC_API int zstzPropNumKeys(ZPROP_stz_handle* handle, char const* stanza, int* rc);
/// Number of values of the key; 0 when it is absent.
ZFC_API int zstzPropNumValues(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                              int* rc);
/// The key's last value: the caller's, to be released with zstzPropFree(). Null when the key is
/// absent or has no value, with ZPROP_MISSING_KEY when `required` is not 0.
ZFC_API char* zstzPropGetStringValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                     int required, int* rc);
/// The key's last value as a number, read as 32-bit strtoul() with base 0 does: "010" is 8; 0 when
/// it is absent. ZPROP_INVALID_VALUE: it is no number. ZPROP_MISSING_KEY: as above.
ZFC_API unsigned int zstzPropGetIntegerValue(ZPROP_stz_handle* handle, char const* stanza,
                                             char const* key, int required, int* rc);
/// 1 when the key's last value is yes, y, true, t or 1, in any case of letters; 0 when it is no, n,
/// false, f or 0, or is absent. ZPROP_INVALID_VALUE: it is another word. ZPROP_MISSING_KEY: as
/// above.
ZFC_API int zstzPropGetBooleanValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                    int required, int* rc);
/// The key's last value as a number of 64 bits, decimal ("010" is 10), or hexadecimal behind "0x";
/// 0 when it is absent. ZPROP_INVALID_VALUE: it is no whole number, or beyond 64 bits.
/// ZPROP_MISSING_KEY: as above.
ZFC_API long long zstzPropGetInteger64Value(ZPROP_stz_handle* handle, char const* stanza,
                                            char const* key, int required, int* rc);
/// The same as a real number: decimal, with a point in every locale, finite.
ZFC_API double zstzPropGetDoubleValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                      int required, int* rc);
/// The names of the stanzas in file order, and of a stanza's keys, none for one that is absent: an
/// array that ends with null, the caller's, to be released with zstzPropFreeNames().
ZFC_API char** zstzPropGetStanzaNames(ZPROP_stz_handle* handle, int* rc);
/// The names of a stanza's keys in file order, else as above.
ZFC_API char** zstzPropGetKeyNames(ZPROP_stz_handle* handle, char const* stanza, int* rc);
/// Null is left alone.
ZFC_API void zstzPropFreeNames(char** names);
/// Answers `count` requests in their order, with no change of the file's values between them.
/// ZPROP_MISSING_KEY, ZPROP_INVALID_VALUE, ZPROP_INVALID_ARGUMENT (also an unknown type or no place
/// for the answer): the requests before the failing one have their answers; texts and lists of the
/// others are null, so that zstzPropFreeValuesList() may be called in any case.
ZFC_API int zstzPropGetValues(ZPROP_stz_handle* handle, ZStzFileItem* items, int count);
/// Frees the texts and lists among the answers and sets them to null; the others are left alone.
/// With a bad handle or count nothing happens.
ZFC_API void zstzPropFreeValuesList(ZPROP_stz_handle* handle, ZStzFileItem* items, int count);
/// Frees a text from zstzPropGetStringValue(). Null, and a text that did not come from there, is
/// left alone; four bytes in front of it are read.
ZFC_API void zstzPropFree(char* text);

// ------------------------------------------------------------------------------------- editing
// ZPROP_EDIT_ERROR of each: a name or value that would not read back from the file, or a stanza or
// key that must exist and does not; nothing changed.

/// Replaces all values of the key by `value`; stanza and key are created when absent. Null or empty
/// text leaves the key without a value. Blanks at the ends of `value` are lost by the file: the
/// next reader does not see them, and of blanks alone it sees no value.
ZFC_API int zstzPropSetStringValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                   char const* value);
/// The same with the number in decimal.
ZFC_API int zstzPropSetIntegerValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                    unsigned int value);
/// The same with "yes" for a value other than 0, else "no".
ZFC_API int zstzPropSetBooleanValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                    int value);
/// The same with the number in decimal; what is not finite is ZPROP_EDIT_ERROR.
ZFC_API int zstzPropSetInteger64Value(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                      long long value);
/// The same for a real number; what is not finite is ZPROP_EDIT_ERROR.
ZFC_API int zstzPropSetDoubleValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                   double value);
/// Removes the key with all its values; one that is absent changes nothing.
ZFC_API int zstzPropRemoveKey(ZPROP_stz_handle* handle, char const* stanza, char const* key);
/// Removes the stanza with all its lines; one that is absent changes nothing.
ZFC_API int zstzPropRemoveStanza(ZPROP_stz_handle* handle, char const* stanza);
/// Adds a comment behind those that open the file. In each comment a missing "#" is put in front.
ZFC_API int zstzPropAddFileComment(ZPROP_stz_handle* handle, char const* text);
/// Adds a comment below the stanza's header and the comments there. The stanza must exist.
ZFC_API int zstzPropAddStanzaComment(ZPROP_stz_handle* handle, char const* stanza,
                                     char const* text);
/// Adds a comment directly above the key's line. The key must exist.
ZFC_API int zstzPropAddLineComment(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                   char const* text);

// ----------------------------------------------------------------------------------- iterating
// An iterator stands before its first entry until zstzPropIter_next() is called. It walks what was
// there when it was made: keys and values that others add later are not seen.

/// With a key an iterator over its values, with a null key one over the keys of the stanza; an
/// absent stanza or key has none. On success `*iterator` is the caller's, to be closed with
/// zstzPropIter_close(); else it is null.
ZFC_API int zstzPropIter_init(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                              ZPROP_iter_handle** iterator);
/// Moves to the next entry: 1, or 0 when there is none.
ZFC_API int zstzPropIter_next(ZPROP_iter_handle* iterator, int* rc);
/// The current key's name; of an iterator over values the name of its key. Valid until the iterator
/// moves or is closed. ZPROP_ITERATOR_ERROR: no current key.
ZFC_API char const* zstzPropIter_getKey(ZPROP_iter_handle* iterator, int* rc);
/// The current value; of an iterator over keys the first value of the current key, null when it has
/// none. Valid until the iterator moves or is closed, whatever is edited. ZPROP_ITERATOR_ERROR: no
/// current entry.
ZFC_API char const* zstzPropIter_getValue(ZPROP_iter_handle* iterator, int* rc);
/// Number of keys in the stanza; 1 for an iterator over values.
ZFC_API int zstzPropIter_numKeys(ZPROP_iter_handle* iterator, int* rc);
/// Number of values of the key. ZPROP_ITERATOR_ERROR: an iterator over keys, as below.
ZFC_API int zstzPropIter_numValues(ZPROP_iter_handle* iterator, int* rc);
/// Adds a value behind the key's others; the walk will come to it. Empty text is ZPROP_EDIT_ERROR.
ZFC_API int zstzPropIter_addValue(ZPROP_iter_handle* iterator, char const* value);
/// Replaces the current value. ZPROP_ITERATOR_ERROR: no current value, or the key's values were
/// changed by somebody else.
ZFC_API int zstzPropIter_chgValue(ZPROP_iter_handle* iterator, char const* value);
/// Removes the current value; zstzPropIter_next() moves to the one behind it.
ZFC_API int zstzPropIter_rmvValue(ZPROP_iter_handle* iterator);
/// Releases the iterator.
ZFC_API int zstzPropIter_close(ZPROP_iter_handle* iterator);

#ifdef __cplusplus
}
#endif

#endif
