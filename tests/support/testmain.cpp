#include <gtest/gtest.h>

#include <cstdlib>

// Asked for at start by the sanitizers' run time, which finds them by name. Their allocators answer
// null to what is too much, as the C library's does, because the library has to.
extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options() {
    return "strict_string_checks=1:detect_stack_use_after_return=1:allocator_may_return_null=1";
}
__attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
__attribute__((visibility("default"))) const char* __ubsan_default_options() {
    return "print_stacktrace=1";
}
}

/// A test program started by hand sees the same environment as one started by CTest.
int main(int argc, char** argv) {
    setenv("QCSDIR", ZFC_TEST_QCSDIR, 0);
    setenv("LC_ALL", "C.UTF-8", 0);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
