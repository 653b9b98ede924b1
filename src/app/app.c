/* What zfc::app (pkg-config: zfc-app) puts into a program beside the library: the codeset data
 * directory is found before the first static object of the program asks for it. A directory that is
 * not found is not this object's to report: the first string does, with the library's own message.
 */
#include "Z/zsetup.h"

static void setUp(void) { (void)zfc_setup(); }

/* Before all that a program can give a priority, which begins at 101. */
__attribute__((used, section(".init_array.00100"))) static void (*atStart)(void) = setUp;

/* What the link line asks the archive for, so that this object is in every program. */
extern char const ZFC_TAGGED(zfcApp);
__attribute__((visibility("hidden"))) char const ZFC_TAGGED(zfcApp) = 0;
