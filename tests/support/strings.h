/// The string classes, test suites that run for each of them, and what holds for every string.
#ifndef ZFC_TESTS_SUPPORT_STRINGS_H
#define ZFC_TESTS_SUPPORT_STRINGS_H

#include <gtest/gtest.h>

#include <string>

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"

namespace testsupport {

using StringFamilies = testing::Types<ZLCString, ZUTF8String>;
using StringClasses = testing::Types<ZLCString, ZUTF8String, ZLCConstString, ZUTF8ConstString>;

/// The bytes of a string, those behind a NUL included.
inline std::string bytesOf(ZAbstractString const& string) {
    return {string.getChars(), string.getLength()};
}

/// Expects these bytes, and what every operation keeps true.
inline void expectString(ZAbstractMutableString const& string, std::string const& bytes) {
    auto const* const object = reinterpret_cast<char const*>(&string);
    char const* const text = string.getChars();
    bool const isInside = text > object && text < object + sizeof string;
    EXPECT_EQ(bytesOf(string), bytes);
    EXPECT_EQ(text[string.getLength()], '\0');
    EXPECT_LE(string.getLength(), string.getCapacity());
    EXPECT_GE(string.getCapacity(), ZAbstractMutableString::getDefaultLength());
    EXPECT_EQ(isInside, string.getCapacity() == ZAbstractMutableString::getDefaultLength());
}

}  // namespace testsupport

/// Every test of the suite runs for these classes. (The last comma: clang wants an argument for the
/// dots of the macro.)
#define STRING_SUITE(Suite, Classes)       \
    template <class String>                \
    class Suite : public testing::Test {}; \
    TYPED_TEST_SUITE(Suite, testsupport::Classes, )

#endif
