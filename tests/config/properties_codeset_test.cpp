// Properties where the local codeset is not UTF-8. A process has one local codeset from its first
// string on, so every test runs in a child, and the program itself makes no string.
#include <gtest/gtest.h>

#include <cstdlib>

#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/properties.h"

namespace {

using testsupport::inChild;
using testsupport::valueOf;

/// Whether `body` throws an E.
template <class E, class Body>
bool raises(Body body) {
    try {
        body();
    } catch (E const&) {
        return true;
    }
    return false;
}

TEST(PropertiesCodesetTest, convertsUTF8TextBothWaysAndRefusesWhatTheCodesetLacks) {
    int const status = inChild([] {
        setenv("LC_ALL", "de_DE.ISO8859-1", 1);
        ZStanzaFileProperties properties(1);
        properties.setValue("s", "k", ZUTF8String("\xc3\xbc"), 0);
        ZUTF8String out;
        properties.getValue("s", "k", out);
        if (!out.equals("\xc3\xbc")) return 1;
        ZUTF8String const euro("\xe2\x82\xac");
        ZUTF8ConstString const view("\xe2\x82\xac");
        ZArrayList values(1, 0);
        values.add(const_cast<ZUTF8String*>(&euro));
        using Refusal = ZFromUTF8Exception;
        if (!raises<Refusal>([&] { properties.setValue("s", "k", euro, 0); })) return 2;
        if (!raises<Refusal>([&] { properties.setValue("s", "k", view, 1); })) return 3;
        if (!raises<Refusal>([&] { properties.addValues("s", "k", values); })) return 4;
        return valueOf(properties, "s", "k") == "\xfc" ? 0 : 5;
    });
    EXPECT_EQ(status, 0);
}

TEST(PropertiesCodesetTest, leavesNoHalfOfAListBehindMalformedText) {
    int const status = inChild([] {
        setenv("LC_ALL", "ja_JP.eucJP", 1);
        ZStanzaFileProperties properties(1);
        properties.addValue("s", "k", "good");
        properties.addValue("s", "k", "bad \xff text");
        if (valueOf(properties, "s", "k") != "bad \xff text") return 1;
        using Refusal = ZToUTF8Exception;
        for (int const owned : {0, 1}) {
            ZArrayList values(1, owned);
            auto const get = [&] { properties.getValues("s", "k", values, zpropUTF8); };
            if (!raises<Refusal>(get) || values.size() != 0) return 2;
        }
        ZUTF8String out;
        return raises<Refusal>([&] { properties.getValue("s", "k", out); }) ? 0 : 3;
    });
    EXPECT_EQ(status, 0);
}

}  // namespace
