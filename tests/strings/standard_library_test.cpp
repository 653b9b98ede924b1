// The library beside the standard one.
#include "Z/zstd.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <sstream>
#include <unordered_map>

#include "Z/ZFileLock.h"
#include "Z/ZLayeredProperties.h"
#include "Z/ZTypedValues.h"
#include "support/objects.h"
#include "support/processes.h"
#include "support/threads.h"

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
    EXPECT_TRUE(string > std::string_view(text) && string >= zfc::view(string) &&
                zfc::view(string) <= string && std::string_view("h") >= string &&
                std::string_view("h") > string && string <= std::string_view("h"));
    auto longer = string + std::string_view("x") + std::string("y");
    longer += std::string_view(text).substr(0, 1);
    EXPECT_EQ(zfc::view(longer), text + "exyg");
    EXPECT_THROW(longer += std::string_view("a\0b", 3), ZInvalidParameterException);
    EXPECT_EQ(zfc::view(longer += std::string_view()), text + "exyg");
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
    ZHashKeyMap pairs(3, 1);
    ZArray array(3, 0);
    std::set<ZObject*> walked;
    for (ZObject* const entry : static_cast<ZMap const&>(map)) {
        pairs.putEntry(entry, list.get(1));
        array.setNoCopy(static_cast<unsigned int>(walked.size()), entry);
        walked.insert(entry);
    }
    EXPECT_EQ(walked.size(), 3U);
    for (ZObject* const slot : array)
        walked.erase(slot);
    EXPECT_TRUE(walked.empty());
    int sum = 0;
    for (auto const [key, value] : pairs) {
        sum += dynamic_cast<Number&>(*key).value * 10 + dynamic_cast<Number&>(*value).value;
        pairs.removeAll();
        break;
    }
    EXPECT_EQ(sum % 10, 1);
    for (auto const& pair : pairs)
        ADD_FAILURE() << pair.key;
    for (ZObject* const member : static_cast<ZList const&>(list))
        sum += dynamic_cast<Number&>(*member).value - 1;
    EXPECT_EQ(sum % 10, 1);
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
    EXPECT_EQ(zfc::milliseconds<unsigned int>(1h * 24 * 365), UINT_MAX);
    EXPECT_EQ(zfc::milliseconds<unsigned int>(1500us), 2U);
    EXPECT_EQ(zfc::seconds(1001ms) + zfc::seconds(3min) + zfc::seconds(-1ms), 182);
    timespec const later = zfc::timespecOf(steady_clock::time_point(1500ms + 7ns));
    EXPECT_EQ(later.tv_sec * 1000000000LL + later.tv_nsec, 1500000007);
    EXPECT_EQ(zfc::timespecOf(system_clock::time_point(-1s)).tv_sec, 0);
    ZCondition condition;
    std::unique_lock guard(condition);
    int timedOut = 0;
    condition.waitUntil(zfc::timespecOf(steady_clock::now() + 1ms), timedOut);
    EXPECT_EQ(timedOut, 1);
}

/// Whether another thread gets the lock, for reading or for writing.
template <class Lock>
std::string othersGet(Lock& lock) {
    std::string got;
    onThread([&] {
        if (std::shared_lock reading(lock, std::try_to_lock); reading) got += "r";
        if (std::unique_lock writing(lock, std::try_to_lock); writing) got += "w";
    });
    return got;
}

template <class Lock>
void expectGuards(Lock& lock) {
    zfc::Timed timed(lock);
    for (int i = 0; i < 2; ++i) {
        {
            std::shared_lock const reading(lock);
            EXPECT_EQ(othersGet(lock), "r");
            onThread([&] { EXPECT_FALSE(std::unique_lock(timed, 1ms)); });
        }
        {
            std::unique_lock const writing(timed, 5s);
            EXPECT_EQ(othersGet(timed), "");
            onThread([&] { EXPECT_FALSE(std::shared_lock(timed, steady_clock::now() - 1s)); });
        }
        EXPECT_EQ(othersGet(timed), "rw");
    }
}

TEST(StandardLibraryTest, guardsTakeEveryLock) {
    TempDir const dir;
    ZReadWriteLock threads;
    ZUnixProcessReadWriteFileLock processes("lock", zfc::FileName(dir.path()));
    ZStubProcessReadWriteLock stub("stub");
    expectGuards(threads);
    expectGuards(processes);
    expectGuards(stub);
    ZLock plain;
    zfc::Timed timed(plain);
    std::scoped_lock const all(plain, threads, processes, stub);
    EXPECT_TRUE(std::unique_lock(timed, 1ms));
    onThread([&] { EXPECT_FALSE(std::unique_lock(timed, 1ms)); });
    EXPECT_EQ(othersGet(processes) + othersGet(stub), "");
}

TEST(StandardLibraryTest, pathsNameFiles) {
    TempDir const dir;
    std::filesystem::path const path = std::filesystem::path(dir.path()) / "gr\xC3\xBCn.conf";
    ZStanzaFileProperties settings(1);
    zfc::set(settings, "s", "k", std::string_view("value").substr(0, 3));
    settings.store(zfc::FileName(path));
    EXPECT_EQ(zfc::pathOf(settings.getFileName()), path);
    ZLayeredProperties layers;
    layers.addFile(zfc::FileName(path));
    layers.load();
    EXPECT_EQ(zfc::get<std::string>(layers, "s", "k"), "val");
    EXPECT_EQ(zfc::pathOf(layers.getOrigin("s", "k")), path);
    for (auto const& none : {std::string(), std::string("a\0b", 3)})
        EXPECT_THROW(static_cast<void>(zfc::FileName(none)), ZInvalidParameterException);
}

}  // namespace
