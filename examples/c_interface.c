/* Asks several questions at once, updates beside other programs, walks over a stanza. */
#include <stdio.h>

#include "Z/zproperties_c.h"

static int ask(ZPROP_stz_handle* conf) {
    /* [several] */
    int port = 0;
    char* host = NULL;
    char** listen = NULL;
    ZStzFileItem wanted[] = {
        {ZPROP_ITEM_INTEGER, "server", "port", 1, &port},  /* 1: may be absent */
        {ZPROP_ITEM_STRING, "server", "host", 0, &host},   /* required */
        {ZPROP_ITEM_LIST, "server", "listen", 1, &listen}, /* ends with a null pointer */
    };
    int const rc = zstzPropGetValues(conf, wanted, 3);
    if (rc == ZPROP_OK) printf("%s:%d, first on %s\n", host, port, listen[0]);
    zstzPropFreeValuesList(conf, wanted, 3);
    /* [/several] */
    return rc;
}

/* [update] */
static int countJobs(ZPROP_stz_handle* conf, void* data) {
    int rc = ZPROP_OK;
    unsigned int const done = zstzPropGetIntegerValue(conf, "jobs", "done", 0, &rc);
    if (rc == ZPROP_OK)
        rc = zstzPropSetIntegerValue(conf, "jobs", "done", done + *(unsigned int*)data);
    return rc; /* not 0: give up, nothing is stored */
}

static int update(ZPROP_stz_handle* conf) {
    unsigned int jobs = 3;
    return zstzPropUpdate(conf, 5000, countJobs, &jobs); /* waits 5 seconds at most */
}
/* [/update] */

static int walk(ZPROP_stz_handle* conf) {
    /* [walk] */
    ZPROP_iter_handle* keys = NULL;
    int rc = zstzPropIter_init(conf, "server", NULL, &keys); /* NULL: over the keys */
    while (rc == ZPROP_OK && zstzPropIter_next(keys, &rc)) {
        char const* const value = zstzPropIter_getValue(keys, &rc); /* its first value, or null */
        printf("%s = %s\n", zstzPropIter_getKey(keys, &rc), value != NULL ? value : "");
    }
    zstzPropIter_close(keys);
    /* [/walk] */
    return rc;
}

int main(void) {
    ZPROP_stz_handle* conf = NULL;
    int rc = zstzPropOpen(&conf, "app.conf", ZPROP_OPEN_WRITE);
    if (rc == ZPROP_OK) rc = ask(conf);
    if (rc == ZPROP_OK) rc = update(conf);
    if (rc == ZPROP_OK) rc = walk(conf);
    if (rc != ZPROP_OK) fprintf(stderr, "code %d: %s\n", rc, zstzPropLastError());
    zstzPropClose(conf);
    return rc == ZPROP_OK ? 0 : 1;
}
