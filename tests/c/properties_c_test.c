/* The C interface to stanza files, used by C. */
#define _POSIX_C_SOURCE 200809L /* mkstemp, in strict C11 */

#include "Z/zproperties_c.h"
#include "Z/zversion.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;
static char path[] = "/tmp/properties-c-XXXXXX";
static ZPROP_stz_handle* handle; /* of the test's file */
static int rc;

static void fail(char const* what, int line) {
    fprintf(stderr, "%s:%d: %s\n", __FILE__, line, what);
    ++failures;
}
#define CHECK(condition) ((condition) ? (void)0 : fail(#condition, __LINE__))
#define CHECK_ANSWER(call, answer, code) CHECK((call) == (answer) && rc == (code))
#define CHECK_TEXT(text, expected) CHECK((text) != NULL && strcmp((text), (expected)) == 0)

static void check_file(char const* expected) {
    char bytes[1024] = "";
    FILE* file = fopen(path, "r");
    if (file == NULL) exit(99);
    bytes[fread(bytes, 1, sizeof bytes - 1, file)] = '\0';
    fclose(file);
    CHECK_TEXT(bytes, expected);
}

static char const sample[] =
    "# about\n[net]\nport = 0x50\nhost = a\nhost = b\nempty =\nword = maybe\nfast = Yes\n";

static void test_opening(void) {
    CHECK_TEXT(zstzPropLastError(), "");
    CHECK_TEXT(zfcVersion(), "6.1.1");
    CHECK(zfcFunction("zstzPropOpen") == (void (*)(void))zstzPropOpen);
    CHECK(zfcFunction("zstzPropNone") == NULL && zfcFunction(NULL) == NULL);
    ZPROP_stz_handle* opened = (ZPROP_stz_handle*)sample;
    CHECK(zstzPropOpen(&opened, path, (ZPROPOpenMode)3) == ZPROP_INVALID_ARGUMENT);
    CHECK(opened == NULL);
    CHECK(strstr(zstzPropLastError(), "An argument is null"));
    CHECK(zstzPropOpen(&opened, NULL, ZPROP_OPEN_READ) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropOpen(NULL, path, ZPROP_OPEN_READ) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropClose(NULL) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropOpen(&opened, "/no/such/file", ZPROP_OPEN_WRITE) == ZPROP_IO_ERROR);
}

static void test_reading(void) {
    char* text = NULL;
    char block[16] = "abcdefg";
    CHECK(zstzPropExists(handle, "net", "port", NULL) == 1);
    CHECK_ANSWER(zstzPropExists(handle, "net", NULL, &rc), 1, ZPROP_OK);
    CHECK_ANSWER(zstzPropExists(handle, "net", "none", &rc), 0, ZPROP_OK);
    CHECK_ANSWER(zstzPropNumStanzas(handle, &rc), 1, ZPROP_OK);
    CHECK_ANSWER(zstzPropNumKeys(handle, "net", &rc), 5, ZPROP_OK);
    CHECK_ANSWER(zstzPropNumValues(handle, "net", "host", &rc), 2, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetIntegerValue(handle, "net", "port", 1, &rc), 80, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetIntegerValue(handle, "net", "word", 1, &rc), 0, ZPROP_INVALID_VALUE);
    CHECK_ANSWER(zstzPropGetBooleanValue(handle, "net", "fast", 0, &rc), 1, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetBooleanValue(handle, "net", "word", 0, &rc), 0, ZPROP_INVALID_VALUE);
    CHECK_ANSWER(zstzPropGetBooleanValue(handle, "net", "none", 1, &rc), 0, ZPROP_MISSING_KEY);
    CHECK_ANSWER(zstzPropGetStringValue(handle, "net", "empty", 0, &rc), NULL, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetStringValue(handle, "net", "empty", 1, &rc), NULL, ZPROP_MISSING_KEY);

    text = zstzPropGetStringValue(handle, "net", "host", 1, &rc);
    CHECK_TEXT(text, "b");
    zstzPropFree(text);
    zstzPropFree(NULL);
    zstzPropFree(block + 8);
    CHECK_TEXT(block, "abcdefg");
}

static void test_request_lists(void) {
    int port = -1;
    int fast = -1;
    char* host = NULL;
    char* none = (char*)sample;
    char** hosts = NULL;
    char** no_hosts = NULL;
    ZStzFileItem items[] = {
        {ZPROP_ITEM_INTEGER, "net", "port", 0, &port},
        {ZPROP_ITEM_BOOLEAN, "net", "fast", 0, &fast},
        {ZPROP_ITEM_STRING, "net", "host", 0, &host},
        {ZPROP_ITEM_STRING, "net", "none", 1, &none},
        {ZPROP_ITEM_LIST, "net", "host", 0, &hosts},
        {ZPROP_ITEM_LIST, "net", "none", 1, &no_hosts},
    };
    CHECK(zstzPropGetValues(handle, items, 6) == ZPROP_OK);
    CHECK(port == 80 && fast == 1 && none == NULL);
    CHECK_TEXT(host, "b");
    CHECK_TEXT(hosts[0], "a");
    CHECK_TEXT(hosts[1], "b");
    CHECK(hosts[2] == NULL && no_hosts != NULL && no_hosts[0] == NULL);
    zstzPropFreeValuesList(NULL, items, 6);
    zstzPropFreeValuesList(handle, NULL, 6);
    CHECK(host != NULL);
    zstzPropFreeValuesList(handle, items, 6);
    CHECK(host == NULL && hosts == NULL && no_hosts == NULL && port == 80);
    zstzPropFreeValuesList(handle, items, 6);

    items[3].optional = 2; /* anything but 1 makes it required */
    hosts = (char**)&sample;
    CHECK(zstzPropGetValues(handle, items, 6) == ZPROP_MISSING_KEY);
    CHECK(none == NULL && hosts == NULL);
    CHECK_TEXT(host, "b");
    zstzPropFreeValuesList(handle, items, 6);
    items[0].key = "word";
    CHECK(zstzPropGetValues(handle, items, 6) == ZPROP_INVALID_VALUE);
    items[0].type = 5;
    CHECK(zstzPropGetValues(handle, items, 6) == ZPROP_INVALID_ARGUMENT);
    items[0].type = ZPROP_ITEM_STRING;
    items[0].result = NULL;
    CHECK(zstzPropGetValues(handle, items, 6) == ZPROP_INVALID_ARGUMENT);
    zstzPropFreeValuesList(handle, items, 6); /* without a place for the first */
    CHECK(zstzPropGetValues(handle, NULL, 1) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropGetValues(handle, items, -1) == ZPROP_INVALID_ARGUMENT);
}

static void test_editing(void) {
    CHECK(zstzPropSetStringValue(handle, "net", "host", "h") == ZPROP_OK);
    CHECK(zstzPropSetStringValue(handle, "net", "bare", NULL) == ZPROP_OK);
    CHECK(zstzPropSetIntegerValue(handle, "net", "port", 4294967295u) == ZPROP_OK);
    CHECK(zstzPropSetBooleanValue(handle, "net", "fast", -1) == ZPROP_OK);
    CHECK(zstzPropRemoveKey(handle, "net", "gone") == ZPROP_OK);
    CHECK(zstzPropRemoveStanza(handle, "old") == ZPROP_OK);
    CHECK(zstzPropAddFileComment(handle, "top") == ZPROP_OK);
    CHECK(zstzPropAddStanzaComment(handle, "net", "#all") == ZPROP_OK);
    CHECK(zstzPropAddLineComment(handle, "net", "host", "one") == ZPROP_OK);

    CHECK(zstzPropSetStringValue(handle, "a]", "k", "v") == ZPROP_EDIT_ERROR);

    CHECK(zstzPropStore(handle, NULL) == ZPROP_OK);
    CHECK(zstzPropStore(handle, "/no/such/directory/file") == ZPROP_IO_ERROR);
    check_file("#top\n[net]\n#all\nport = 4294967295\n#one\nhost = h\nbare =\nfast = yes\n");
}

static int set_port(ZPROP_stz_handle* edited, void* answer) {
    CHECK(edited == handle);
    CHECK(zstzPropStore(edited, NULL) == ZPROP_IO_ERROR); /* it will be, when this returns */
    CHECK(zstzPropUpdate(edited, 0, set_port, answer) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropSetIntegerValue(edited, "net", "port", 80) == ZPROP_OK);
    return *(int*)answer;
}

static void test_updating(void) {
    int answer = 7;
    CHECK(zstzPropUpdate(handle, 0, NULL, NULL) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropUpdate(handle, 0, set_port, &answer) == ZPROP_EDIT_ERROR);
    CHECK_ANSWER(zstzPropExists(handle, "net", "port", &rc), 0, ZPROP_OK);
    check_file("[net]\nhost = h\n");
    answer = 0;
    CHECK(zstzPropUpdate(handle, 0, set_port, &answer) == ZPROP_OK);
    check_file("[net]\nhost = h\nport = 80\n");
    CHECK(zstzPropSetStringValue(handle, "net", "host", "x") == ZPROP_OK);
    CHECK(zstzPropUpdate(handle, 0, set_port, &answer) == ZPROP_INVALID_ARGUMENT);
}

static void test_walking_keys(void) {
    ZPROP_iter_handle* keys = NULL;
    CHECK(zstzPropIter_init(handle, "net", NULL, &keys) == ZPROP_OK);
    CHECK_ANSWER(zstzPropIter_getKey(keys, &rc), NULL, ZPROP_ITERATOR_ERROR);
    CHECK_ANSWER(zstzPropIter_numKeys(keys, &rc), 2, ZPROP_OK);
    CHECK_ANSWER(zstzPropIter_numValues(keys, &rc), 0, ZPROP_ITERATOR_ERROR);
    CHECK(zstzPropIter_addValue(keys, "v") == ZPROP_ITERATOR_ERROR);
    CHECK(zstzPropIter_chgValue(keys, "v") == ZPROP_ITERATOR_ERROR);
    CHECK(zstzPropIter_rmvValue(keys) == ZPROP_ITERATOR_ERROR);
    CHECK(zstzPropIter_next(keys, NULL) == 1);
    CHECK_TEXT(zstzPropIter_getKey(keys, &rc), "host");
    char const* const first = zstzPropIter_getValue(keys, &rc);
    CHECK(zstzPropSetStringValue(handle, "net", "host", "c") == ZPROP_OK);
    CHECK_TEXT(zstzPropIter_getValue(keys, &rc), "c");
    CHECK_TEXT(first, "a"); /* until the iterator moves */
    CHECK_ANSWER(zstzPropIter_next(keys, &rc), 1, ZPROP_OK);
    CHECK_ANSWER(zstzPropIter_getValue(keys, &rc), NULL, ZPROP_OK);
    CHECK_ANSWER(zstzPropIter_next(keys, &rc), 0, ZPROP_OK);
    CHECK(zstzPropIter_close(keys) == ZPROP_OK);
}

static void test_walking_values(void) {
    ZPROP_iter_handle* values = NULL;
    CHECK(zstzPropIter_init(handle, "s", "k", &values) == ZPROP_OK);
    CHECK_TEXT(zstzPropIter_getKey(values, &rc), "k");
    CHECK_ANSWER(zstzPropIter_getValue(values, &rc), NULL, ZPROP_ITERATOR_ERROR);
    CHECK_ANSWER(zstzPropIter_numKeys(values, &rc), 1, ZPROP_OK);
    CHECK_ANSWER(zstzPropIter_next(values, &rc), 1, ZPROP_OK);
    CHECK(zstzPropIter_rmvValue(values) == ZPROP_OK);
    CHECK(zstzPropIter_rmvValue(values) == ZPROP_ITERATOR_ERROR);
    CHECK_ANSWER(zstzPropIter_next(values, &rc), 1, ZPROP_OK);
    char const* const old = zstzPropIter_getValue(values, &rc);
    CHECK(zstzPropIter_chgValue(values, "two") == ZPROP_OK);
    CHECK_TEXT(old, "2");
    CHECK(zstzPropIter_chgValue(values, "a\nb") == ZPROP_EDIT_ERROR);
    CHECK(zstzPropIter_chgValue(values, NULL) == ZPROP_INVALID_ARGUMENT);
    CHECK_TEXT(zstzPropIter_getValue(values, &rc), "two");
    CHECK(zstzPropIter_addValue(values, "4") == ZPROP_OK);
    CHECK_ANSWER(zstzPropIter_numValues(values, &rc), 3, ZPROP_OK);
    CHECK(zstzPropIter_close(values) == ZPROP_OK);
    CHECK(zstzPropStore(handle, path) == ZPROP_OK);
    check_file("[s]\nk = two\nk = 3\nk = 4\n");
}

static void test_numbers_names_and_reasons(void) {
    char** names = NULL;
    ZPROP_stz_handle* made = NULL;
    CHECK(zstzPropSetInteger64Value(handle, "net", "big", -9000000000LL) == ZPROP_OK);
    CHECK(zstzPropSetDoubleValue(handle, "net", "real", 0.1) == ZPROP_OK);
    CHECK(zstzPropSetDoubleValue(handle, "net", "real", 1e308 * 10) == ZPROP_EDIT_ERROR);
    CHECK_ANSWER(zstzPropGetInteger64Value(handle, "net", "big", 1, &rc), -9000000000LL, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetDoubleValue(handle, "net", "real", 1, &rc), 0.1, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetDoubleValue(handle, "net", "none", 0, &rc), 0, ZPROP_OK);
    CHECK_ANSWER(zstzPropGetDoubleValue(handle, "net", "none", 1, &rc), 0, ZPROP_MISSING_KEY);
    CHECK_ANSWER(zstzPropGetInteger64Value(handle, "net", "real", 0, &rc), 0, ZPROP_INVALID_VALUE);
    CHECK(strstr(zstzPropLastError(), "has the value 0.1 for key real in stanza net, where") &&
          strstr(zstzPropLastError(), " (src/Z/"));
    names = zstzPropGetStanzaNames(handle, &rc);
    CHECK(rc == ZPROP_OK && strcmp(names[0], "old") == 0 && strcmp(names[1], "net") == 0);
    CHECK(names[2] == NULL);
    zstzPropFreeNames(names);
    names = zstzPropGetKeyNames(handle, "net", NULL);
    CHECK(strcmp(names[0], "port") == 0 && strcmp(names[2], "real") == 0 && names[3] == NULL);
    zstzPropFreeNames(names);
    names = zstzPropGetKeyNames(handle, "none", NULL);
    CHECK(names[0] == NULL);
    zstzPropFreeNames(names);
    zstzPropFreeNames(NULL);

    CHECK(zstzPropCreate(&made, NULL) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropCreate(NULL, path) == ZPROP_INVALID_ARGUMENT);
    CHECK(zstzPropCreate(&made, path) == ZPROP_IO_ERROR && made == NULL);
    CHECK(strstr(zstzPropLastError(), path) && strstr(zstzPropLastError(), "code was 17"));
    unlink(path);
    CHECK(zstzPropCreate(&made, path) == ZPROP_OK);
    CHECK(zstzPropSetStringValue(made, "s", "k", "v") == ZPROP_OK);
    CHECK(zstzPropStore(made, NULL) == ZPROP_OK && zstzPropClose(made) == ZPROP_OK);
    check_file("[s]\nk = v\n");
}

/* Which of h(andle), s(tanza), k(ey), t(ext) and i(terator) a call cannot do without. */
#define CHECK_EDIT(needs, call) \
    CHECK(((call) == ZPROP_INVALID_ARGUMENT) == (strchr(needs, *missing) != NULL))
#define CHECK_QUESTION(needs, call) CHECK_EDIT(needs, (call) == 0 ? rc : ZPROP_OK)

static void test_missing_arguments(void) {
    for (char const* missing = "hskti"; *missing != '\0'; ++missing) {
        ZPROP_stz_handle* const from = *missing == 'h' ? NULL : handle;
        char const* const stanza = *missing == 's' ? NULL : "s";
        char const* const key = *missing == 'k' ? NULL : "k";
        char const* const text = *missing == 't' ? NULL : "t";
        ZPROP_iter_handle* walk = NULL;
        CHECK_QUESTION("hs", zstzPropExists(from, stanza, key, &rc));
        CHECK_QUESTION("h", zstzPropNumStanzas(from, &rc));
        CHECK_QUESTION("hs", zstzPropNumKeys(from, stanza, &rc));
        CHECK_QUESTION("hsk", zstzPropNumValues(from, stanza, key, &rc));
        CHECK_QUESTION("hsk", zstzPropGetStringValue(from, stanza, key, 0, &rc));
        CHECK_QUESTION("hsk", zstzPropGetIntegerValue(from, stanza, key, 0, &rc));
        CHECK_QUESTION("hsk", zstzPropGetBooleanValue(from, stanza, key, 0, &rc));
        CHECK_QUESTION("hsk", zstzPropGetDoubleValue(from, stanza, key, 0, &rc));
        CHECK_EDIT("hsk", zstzPropSetStringValue(from, stanza, key, NULL));
        CHECK_EDIT("hsk", zstzPropSetInteger64Value(from, stanza, key, 1));
        CHECK_EDIT("hsk", zstzPropSetDoubleValue(from, stanza, key, 1));
        CHECK_QUESTION("hsk", zstzPropGetInteger64Value(from, stanza, key, 1, &rc));
        char** names = zstzPropGetStanzaNames(from, &rc);
        CHECK_QUESTION("h", names);
        zstzPropFreeNames(names);
        names = zstzPropGetKeyNames(from, stanza, &rc);
        CHECK_QUESTION("hs", names);
        zstzPropFreeNames(names);
        CHECK_EDIT("hsk", zstzPropSetIntegerValue(from, stanza, key, 1));
        CHECK_EDIT("hsk", zstzPropSetBooleanValue(from, stanza, key, 1));
        CHECK_EDIT("ht", zstzPropAddFileComment(from, text));
        CHECK_EDIT("hst", zstzPropAddStanzaComment(from, stanza, text));
        CHECK_EDIT("hskt", zstzPropAddLineComment(from, stanza, key, text));
        CHECK_EDIT("hsi", zstzPropIter_init(from, stanza, "k", *missing == 'i' ? NULL : &walk));
        CHECK_QUESTION("hsi", zstzPropIter_next(walk, &rc));
        CHECK_EDIT("hsti", zstzPropIter_chgValue(walk, text));
        CHECK_EDIT("hsti", zstzPropIter_addValue(walk, text));
        CHECK_EDIT("hsi", zstzPropIter_close(walk));
        CHECK_EDIT("h", zstzPropGetValues(from, NULL, 0));
        CHECK_EDIT("h", zstzPropStore(from, NULL));
        CHECK_EDIT("hsk", zstzPropRemoveKey(from, stanza, key));
        CHECK_EDIT("hs", zstzPropRemoveStanza(from, stanza));
    }
}

/* Runs a test with a file of these bytes, which it may store. */
static void with_file(char const* bytes, void (*test)(void)) {
    FILE* file = fopen(path, "w");
    if (file == NULL || fputs(bytes, file) < 0 || fclose(file) != 0) exit(99);
    CHECK(zstzPropOpen(&handle, path, ZPROP_OPEN_READ) == ZPROP_OK && handle != NULL);
    rc = -1;
    test();
    CHECK(zstzPropClose(handle) == ZPROP_OK);
}

int main(void) {
    int const fd = mkstemp(path);
    if (fd == -1) return 99;
    close(fd);
    test_opening();
    with_file(sample, test_reading);
    with_file(sample, test_request_lists);
    with_file("[old]\nk = 1\n[net]\nport = 1\ngone = x\n", test_editing);
    with_file("[net]\nhost = h\n", test_updating);
    with_file("[net]\nhost = a\nhost = b\nempty =\n", test_walking_keys);
    with_file("[s]\nk = 1\nk = 2\nk = 3\n", test_walking_values);
    with_file("[old]\n[net]\nport = 1\n", test_numbers_names_and_reasons);
    with_file("", test_missing_arguments);
    unlink(path);
    return failures == 0 ? 0 : 1;
}
