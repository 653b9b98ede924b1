#include <gtest/gtest.h>

#include "support/processes.h"

// Asked for at start by the sanitizers' run time, which finds them by name. Their allocators answer
// null to what is too much, as the C library's does, because the library has to.
extern "C" {
__attribute__((visibility("default"))) char const* __asan_default_options() {
    return "strict_string_checks=1:detect_stack_use_after_return=1:allocator_may_return_null=1";
}
__attribute__((visibility("default"))) char const* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
__attribute__((visibility("default"))) char const* __ubsan_default_options() {
    return "print_stacktrace=1";
}
}

int main(int argc, char** argv) {
    testsupport::setEnvironment();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
