// The library beside the standard one.
#include "Z/zstd.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <unordered_map>

#include "Z/ZKeyMap.h"
#include "support/objects.h"

namespace {

using namespace testsupport;
using namespace std::chrono;

template <class String>
void expectStandard() {
    std::string const text = "gr\xC3\xBC\xC3\x9F";
    auto const string = zfc::stringOf<String>(text + "e");
    EXPECT_EQ(zfc::view(string), text + "e");
    EXPECT_TRUE(string == std::string_view(text + "e") && std::string_view(text) != string);
    EXPECT_TRUE(std::string_view(text) < string && string < std::string_view("h"));
    EXPECT_TRUE(zfc::stringOf<String>("").isEmpty());
    EXPECT_THROW(static_cast<void>(zfc::stringOf<String>(std::string_view("a\0b", 3))),
                 ZInvalidParameterException);

    std::stringstream stream;
    stream << std::setw(8) << string << ' ' << String("x");
    EXPECT_EQ(stream.str(), " " + text + "e x");
    String first, second, none("kept");
    stream >> first >> second;
    EXPECT_TRUE(first == string && second == String("x"));
    EXPECT_FALSE(stream >> none);
    EXPECT_EQ(none, String("kept"));

    std::unordered_map<String, int> const known{{string, 1}, {String("x"), 2}};
    EXPECT_EQ(known.at(first) * 10 + known.at(second), 12);

    zfc::Characters characters(string);
    for (int i = 0; i < 2; ++i) {
        std::string joined;
        for (std::string_view const c : characters)
            joined.append(c).append("|");
        EXPECT_EQ(joined, "g|r|\xC3\xBC|\xC3\x9F|e|");
    }
    String const bad("a\xFF");
    EXPECT_THROW(for (std::string_view c
                      : zfc::Characters(bad)) static_cast<void>(c),
                 ZQCSMBLenException);
}

TEST(StandardLibraryTest, stringsGoToAndFromViewsStreamsAndHashes) {
    expectStandard<ZLCString>();
    expectStandard<ZUTF8String>();
}

TEST(StandardLibraryTest, walksContainersAsTheyWere) {
    ZArrayList list(1, 1);
    ZHashMap map(3, 1);
    ZArrayMap both(1, 1);
    for (int i = 0; i < 3; ++i) {
        Number number(i);
        list.add(&number);
        map.putEntry(&number);
        both.putEntry(&number);
    }
    auto const sumOf = [](auto& container) {
        int sum = 0;
        for (ZObject* const member : zfc::membersOf(container)) {
            sum = sum * 10 + dynamic_cast<Number&>(*member).value;
            container.removeAll();
            break;
        }
        return sum + static_cast<int>(container.size());
    };
    for (ZObject* const member : zfc::membersOf(static_cast<ZList const&>(list)))
        EXPECT_TRUE(map.contains(member) && both.contains(member));
    EXPECT_EQ(sumOf(list) + sumOf(both), 0);
    EXPECT_EQ(zfc::membersOf(map).size(), 3U);
}

TEST(StandardLibraryTest, exceptionsAreOnesOfTheStandardLibrary) {
    EXPECT_EQ(zfc::translate([] { return 5; }), 5);
    try {
        zfc::translate([] { zraise(ZThreadException(17, 11), "a/source", 12); });
        FAIL() << "nothing was thrown";
    } catch (zfc::Error const& e) {
        EXPECT_STREQ(e.what(), "Unexpected error from pthread_create().  rc = 11.");
        EXPECT_EQ(std::string(e.file()) + std::to_string(e.line()), "a/source12");
        EXPECT_EQ(e.number(), 17U);
        EXPECT_THROW(std::rethrow_if_nested(e), ZThreadException);
    }
    EXPECT_THROW(zfc::translate([] { throw 5; }), int);
}

TEST(StandardLibraryTest, limitsAreNeverShorterThanWhatWasAskedFor) {
    EXPECT_EQ(zfc::milliseconds(1500us), 2);
    EXPECT_EQ(zfc::milliseconds(2s), 2000);
    EXPECT_EQ(zfc::milliseconds(duration<double>(0.0001)), 1);
    EXPECT_EQ(zfc::milliseconds(-1h), 0);
    EXPECT_EQ(zfc::milliseconds(hours::max()), std::numeric_limits<long>::max());
    EXPECT_EQ(zfc::milliseconds(duration<double>(1e300)), std::numeric_limits<long>::max());
}

}  // namespace
