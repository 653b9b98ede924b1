/// What holds for every string, and bodies that run in a process of another locale.
#ifndef ZFC_TESTS_SUPPORT_STRINGS_H
#define ZFC_TESTS_SUPPORT_STRINGS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "Z/ZAbstractMutableString.h"
#include "support/processes.h"

namespace testsupport {

/// The bytes of a string, those behind a NUL included.
inline std::string bytesOf(const ZAbstractString& string) {
    return {string.getChars(), string.getLength()};
}

/// Expects what every operation keeps true.
inline void checkString(const ZAbstractMutableString& string) {
    auto const* const object = reinterpret_cast<const char*>(&string);
    const char* const text = string.getChars();
    bool const isInside = text > object && text < object + sizeof string;
    EXPECT_EQ(text[string.getLength()], '\0');
    EXPECT_LE(string.getLength(), string.getCapacity());
    EXPECT_GE(string.getCapacity(), ZAbstractMutableString::getDefaultLength());
    EXPECT_EQ(isInside, string.getCapacity() == ZAbstractMutableString::getDefaultLength());
}

/// Runs expectations in a child whose environment names `locale`; true when all held. The library
/// takes its codeset from the environment once, so this process must not have used it before.
[[nodiscard]] inline bool holdsUnder(const char* locale, const std::function<void()>& body) {
    return inChild([&] {
               setenv("LC_ALL", locale, 1);
               body();
               return testing::Test::HasFailure() ? 1 : 0;
           }) == 0;
}

}  // namespace testsupport

#endif
