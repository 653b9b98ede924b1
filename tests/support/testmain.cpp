#include <gtest/gtest.h>

#include <cstdlib>

/// A test program started by hand sees the same environment as one started by CTest.
int main(int argc, char** argv) {
    setenv("QCSDIR", ZFC_TEST_QCSDIR, 0);
    setenv("LC_ALL", "C.UTF-8", 0);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
