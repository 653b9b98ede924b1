/* Opens app.conf, asks for a number, changes it and stores the file. */
#include <stdio.h>

#include "Z/zproperties_c.h"

int main(void) {
    ZPROP_stz_handle* conf = NULL;
    int rc = zstzPropOpen(&conf, "app.conf", ZPROP_OPEN_WRITE);
    if (rc == ZPROP_OK) {
        unsigned int const port = zstzPropGetIntegerValue(conf, "server", "port", 1, &rc);
        if (rc == ZPROP_OK) rc = zstzPropSetIntegerValue(conf, "server", "port", port + 1);
        if (rc == ZPROP_OK) rc = zstzPropStore(conf, NULL); /* NULL: the file that was opened */
        if (rc == ZPROP_OK) printf("the port was %u\n", port);
        zstzPropClose(conf);
    }
    if (rc != ZPROP_OK) fprintf(stderr, "code %d: %s\n", rc, zstzPropLastError());
    return rc == ZPROP_OK ? 0 : 1;
}
