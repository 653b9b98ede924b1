// What the compiler takes, where a string would be read as the address of its text, as a flag, as
// another family's text, or outlived by what walks it.
#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <string>
#include <type_traits>
#include <utility>

#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"

namespace {

enum Flag { flag };
using Byte = unsigned char;

struct Row {
    char const* expression;
    bool isRight, compiles;
};

template <class Test>
bool compiles(Test /*test*/) {
    return std::is_invocable_v<Test, ZLCString&, ZUTF8String&, ZLCConstString&, ZUTF8ConstString&,
                               ZAbstractString const&, ZAbstractMutableString&>;
}

// `l` and `u` own text in the local codeset and in UTF-8, `lv` and `uv` are views of such, `a` is
// any string and `m` any that owns its text. What does not compile is no error but false, since all
// depends on their types.
// clang-format off
#define ROW(right, ...)                                                                    \
    Row {#__VA_ARGS__, right,                                                              \
         compiles([]([[maybe_unused]] auto& l, [[maybe_unused]] auto& u,                   \
                     [[maybe_unused]] auto& lv, [[maybe_unused]] auto& uv,                 \
                     [[maybe_unused]] auto& a, [[maybe_unused]] auto& m)                   \
                      -> decltype(static_cast<void>(__VA_ARGS__)) {})}
// clang-format on
#define RIGHT(...) ROW(true, __VA_ARGS__)
#define REFUSED(...) ROW(false, __VA_ARGS__)
#define LOCAL std::decay_t<decltype(l)>
#define VIEW std::decay_t<decltype(lv)>

Row const rows[] = {
    // Sums
    RIGHT(l + '/'), RIGHT(u + '/'), RIGHT(lv + '/'), RIGHT(uv + '/'), RIGHT(LOCAL("x") + '/'),
    RIGHT(l + "x"), RIGHT(l + l), RIGHT(l + lv), REFUSED(l + u), REFUSED(m + '/'), REFUSED('/' + l),
    REFUSED(l + 5), REFUSED(l + 5L), REFUSED(l + 0), REFUSED(l + flag), REFUSED(l + true),
    REFUSED(l + L'x'), REFUSED(lv + 5U), REFUSED(a + 5), REFUSED(LOCAL("x") + 5), REFUSED(5 + l),
    REFUSED(l - 1), REFUSED(l - l), REFUSED(l - "x"), RIGHT(l += 'x'), RIGHT(l += Byte('x')),
    RIGHT(m += 'x'), RIGHT(l += "x"), RIGHT(l += l), REFUSED(l += 5), REFUSED(m += 5),
    REFUSED(u += 5U), REFUSED(l += flag), REFUSED(l += true), REFUSED(l += 1.5), REFUSED(l += L'x'),
    RIGHT(l.append('x')), RIGHT(l.append("x", 1)), REFUSED(l.append(5)), REFUSED(u.append(true)),
    // Flags and numbers
    REFUSED(!l), REFUSED(l ? 1 : 0), REFUSED(lv && true), REFUSED(a || false), REFUSED(bool(u)),
    REFUSED(l == 0), REFUSED(0 == l), REFUSED(u != 0), REFUSED(0 != uv), REFUSED(l < 0),
    REFUSED(0 > a), REFUSED(lv >= 0), REFUSED(0 <= u), REFUSED(l == NULL), REFUSED(l == 'x'),
    REFUSED(l == 5), RIGHT(l == "x"), RIGHT("x" == l), RIGHT(l < "x"), RIGHT(l == u),
    RIGHT(l == lv), RIGHT(lv == uv), RIGHT(a == l), RIGHT(l < u), RIGHT(l == nullptr), RIGHT(l = 5),
    RIGHT(l = 0), RIGHT(l = 'x'), RIGHT(l = nullptr), REFUSED(l = 1.5), REFUSED(lv = 5),
    // The text itself
    RIGHT(l[0]), RIGHT(l[1U]), RIGHT(*l), RIGHT(std::cout << l), RIGHT(std::string(lv.getChars())),
    // The other family
    RIGHT(l = u), RIGHT(l = uv), RIGHT(l = a), RIGHT(LOCAL(u)), RIGHT(LOCAL(a)), RIGHT(LOCAL(u, 3)),
    RIGHT(LOCAL(l, 3)), RIGHT(LOCAL("x", 3)), RIGHT(VIEW(l)), REFUSED(VIEW(u)), REFUSED(VIEW(uv)),
    REFUSED(VIEW(a)), REFUSED(l.compareignorecase(u)),
    // Walks
    RIGHT(ZStringIterator(l, l)), RIGHT(ZStringIterator(lv, l)), RIGHT(ZStringIterator(u, u)),
    RIGHT(ZStringIterator(std::as_const(uv), u)), REFUSED(ZStringIterator(u, l)),
    REFUSED(ZStringIterator(uv, l)), REFUSED(ZStringIterator(l, u)),
    REFUSED(ZStringIterator(lv, u)), REFUSED(ZStringIterator(LOCAL("x"), l)),
    REFUSED(ZStringIterator(VIEW("x"), l)),
    REFUSED(ZStringIterator(std::move(std::as_const(l)), l)), REFUSED(ZStringIterator("x", l)),
    REFUSED(ZStringIterator(a, l)), REFUSED(ZStringIterator(l + "x", l)),
    RIGHT(ZStringTokenizer(l, l)), RIGHT(ZStringTokenizer(a, m)), RIGHT(ZStringTokenizer(lv, l, u)),
    RIGHT(ZStringTokenizer(l, l, LOCAL("x"))), REFUSED(ZStringTokenizer(LOCAL("x"), l)),
    REFUSED(ZStringTokenizer(VIEW("x"), l)), REFUSED(ZStringTokenizer(l + "x", l, l))};

TEST(StringExpressionTest, CompilesWhereItDoesWhatItLooksLike) {
    for (Row const& row : rows)
        EXPECT_EQ(row.isRight, row.compiles) << row.expression;
}

TEST(StringExpressionTest, SumsOfCharactersAndTextsOfTheOtherFamily) {
    ZLCString const local("a");
    EXPECT_STREQ(local + '/' + "b" + '/', "a/b/");
    EXPECT_STREQ(ZLCConstString("a") + '/' + 'b', "a/b");
    EXPECT_STREQ((ZUTF8ConstString("a") + '/') + (ZUTF8String("a") + '/'), "a/a/");
    EXPECT_STREQ(ZLCString(ZUTF8String("abc"), 2), "ab");
}

}  // namespace
