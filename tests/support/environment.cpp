#include "support/environment.h"

#include <cstdlib>

namespace testsupport {

void setEnvironment() {
    setenv("QCSDIR", ZFC_TEST_QCSDIR, 0);
    setenv("LC_ALL", "C.UTF-8", 0);
}

}  // namespace testsupport
