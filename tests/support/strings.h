/// What holds for every string.
#ifndef ZFC_TESTS_SUPPORT_STRINGS_H
#define ZFC_TESTS_SUPPORT_STRINGS_H

#include <gtest/gtest.h>

#include <string>

#include "Z/ZAbstractMutableString.h"

namespace testsupport {

/// The bytes of a string, those behind a NUL included.
inline std::string bytesOf(ZAbstractString const& string) {
    return {string.getChars(), string.getLength()};
}

/// Expects what every operation keeps true.
inline void checkString(ZAbstractMutableString const& string) {
    auto const* const object = reinterpret_cast<char const*>(&string);
    char const* const text = string.getChars();
    bool const isInside = text > object && text < object + sizeof string;
    EXPECT_EQ(text[string.getLength()], '\0');
    EXPECT_LE(string.getLength(), string.getCapacity());
    EXPECT_GE(string.getCapacity(), ZAbstractMutableString::getDefaultLength());
    EXPECT_EQ(isInside, string.getCapacity() == ZAbstractMutableString::getDefaultLength());
}

}  // namespace testsupport

#endif
