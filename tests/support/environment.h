/// The environment that the tests run in.
#ifndef ZFC_TESTS_SUPPORT_ENVIRONMENT_H
#define ZFC_TESTS_SUPPORT_ENVIRONMENT_H

namespace testsupport {

/// Sets what is not set yet, so that a program started by hand sees the same environment as one
/// started by CTest. For the first lines of main().
void setEnvironment();

}  // namespace testsupport

#endif
