/* Opens a stanza file, asks typed questions, changes a setting, stores the file.
 *
 *     settings_c FILE
 */
#include <stdio.h>
#include <stdlib.h>

#include "Z/zproperties_c.h"

static int showAndRaisePort(ZPROP_stz_handle* settings) {
    int rc = 0;
    char* const host = zstzPropGetStringValue(settings, "server", "host", 1, &rc);
    if (rc != 0) return rc;
    printf("%s:", host != NULL ? host : "");
    zstzPropFree(host);

    unsigned int const port = zstzPropGetIntegerValue(settings, "server", "port", 1, &rc);
    if (rc != 0) return rc;
    printf("%u\n", port);

    char** addresses = NULL;
    ZStzFileItem request = {ZPROP_ITEM_LIST, "server", "listen", 1, &addresses};
    rc = zstzPropGetValues(settings, &request, 1);
    if (rc != 0) return rc;
    for (char** address = addresses; *address != NULL; ++address)
        printf("listens on %s\n", *address);
    zstzPropFreeValuesList(settings, &request, 1);

    rc = zstzPropSetIntegerValue(settings, "server", "port", port + 1);
    return rc != 0 ? rc : zstzPropStore(settings, NULL);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: settings_c FILE\n");
        return 2;
    }
    ZPROP_stz_handle* settings = NULL;
    int rc = zstzPropOpen(&settings, argv[1], ZPROP_OPEN_WRITE);
    if (rc == 0) {
        rc = showAndRaisePort(settings);
        zstzPropClose(settings);
    }
    if (rc != 0) fprintf(stderr, "settings_c: %s: code %d\n", argv[1], rc);
    return rc == 0 ? 0 : 1;
}
