#include "Z/ZException.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <string>

#include "Z/ZMessage.h"
#include "support/processes.h"

namespace {

using testsupport::captureChild;
using testsupport::inChild;

/// The report of `e` on standard error, without its thread line, whose number differs by run.
std::string reportOf(ZException& e) {
    auto const captured = captureChild([&e] {
        e.dumpException();
        return 0;
    });
    EXPECT_EQ(captured.status, 0);
    std::string text = captured.err;
    auto const begin = text.find(" Thread: ");
    EXPECT_NE(begin, std::string::npos) << text;
    return text.erase(begin, text.find('\n', begin) + 1 - begin);
}

struct Row {
    char const* name;
    unsigned long number;
    std::function<ZException*()> make;
    char const* text;
};

std::ostream& operator<<(std::ostream& out, Row const& row) { return out << row.name; }

template <class E, class... Args>
std::function<ZException*()> making(Args... args) {
    return [=]() -> ZException* { return new E(args...); };
}

class ExceptionTree : public testing::TestWithParam<Row> {};

TEST_P(ExceptionTree, PrintsItsTextAndClonesAndThrowsAsItself) {
    Row const& row = GetParam();
    std::unique_ptr<ZException> const e(row.make());
    e->addLocation("src/Z/ZSample", 7);
    std::string const expected =
        std::string("Exception: ") + row.name +
        "\n File: \"src/Z/ZSample\" 7\n Error: " + std::to_string(row.number) +
        "\nNUM_MSGS = 55\n" + row.text;
    EXPECT_EQ(reportOf(*e), expected);

    std::unique_ptr<ZObject> const copy(e->clone());
    auto& cloned = dynamic_cast<ZException&>(*copy);
    const ZException& original = *e;
    EXPECT_EQ(typeid(cloned), typeid(original));
    EXPECT_EQ(reportOf(cloned), expected);

    try {
        e->throwException("src/Z/ZOther", 9);
        FAIL() << "did not throw";
    } catch (ZException& thrown) {
        EXPECT_EQ(typeid(thrown), typeid(original));
        EXPECT_NE(&thrown, e.get());
        EXPECT_STREQ(thrown.who(), "src/Z/ZOther");
        EXPECT_EQ(thrown.where(), 9);
    }
}

constexpr char rc11[] = "Unexpected error from pthread_create().  rc = 11.";

INSTANTIATE_TEST_SUITE_P(
    Rows, ExceptionTree,
    testing::Values(
        Row{"ZOutOfMemoryException", 1, making<ZOutOfMemoryException>(),
            "Memory allocation failure."},
        Row{"ZInvalidPlatformException", 11, making<ZInvalidPlatformException>(),
            "This function is not supported on this platform."},
        Row{"ZNotClonableException", 14, making<ZNotClonableException>(),
            "Object is not cloneable."},
        Row{"ZInvalidParameterException", 22, making<ZInvalidParameterException>(),
            "A function or method was called with an invalid parameter."},
        Row{"ZNoQCSEnvironmentException", 45, making<ZNoQCSEnvironmentException>(),
            "The QCSDIR environment variable is not set."},
        Row{"ZQCSMBLenException", 46, making<ZQCSMBLenException>(),
            "The qcs_mblen() function returned -1."},
        Row{"ZUnsupportedException", 48, making<ZUnsupportedException>(),
            "The operation is not supported."},
        Row{"ZThreadException", 17, making<ZThreadException>(17, 11), rc11},
        Row{"ZConditionException", 9, making<ZConditionException>(9, -1),
            "Unexpected error from pthread_cond_wait().  rc = -1."},
        Row{"ZResourceException", 5, making<ZResourceException>(5, 1),
            "Unexpected error from pthread_mutex_lock().  rc = 1."},
        Row{"ZCreateResourceException", 3, making<ZCreateResourceException>(3, 12),
            "Unexpected error from pthread_mutex_init().  rc = 12."},
        Row{"ZLockResourceException", 33, making<ZLockResourceException>(33, 9),
            "An unexpected error was received when trying to obtain a process lock.  rc = 9."},
        Row{"ZUnlockResourceException", 34, making<ZUnlockResourceException>(34, 9),
            "An unexpected error was received when trying to release a process lock.  rc = 9."},
        Row{"ZReadResourceException", 35, making<ZReadResourceException>(35, 5),
            "Read failed for a process lock.  rc = 5."},
        Row{"ZWriteResourceException", 36, making<ZWriteResourceException>(36, 5),
            "Write failed for a process lock.  rc = 5."},
        Row{"ZOpenResourceException", 37, making<ZOpenResourceException>(37, 2, "/x/._zpla"),
            "Create failed for a process lock.  rc = 2 and the lock file name is /x/._zpla."},
        Row{"ZCloseResourceException", 38, making<ZCloseResourceException>(38, 2, "/x/._zpla"),
            "Close failed for a process lock.  rc = 2 and the lock file name is /x/._zpla."},
        Row{"ZInvalidResourceStateException", 32, making<ZInvalidResourceStateException>("read"),
            "An unexpected lock state was detected.  The current lock state is read."},
        Row{"ZAbstractNotImplementedException", 31,
            making<ZAbstractNotImplementedException>("what"),
            "The requested function is not implemented."},
        // Kept: the values stay out of the report.
        Row{"ZConverterException", 2, making<ZConverterException>(2, 22, "A", "B"),
            "iconv_open failed for codepage  to  conversion. errno = ."},
        Row{"ZUnexpectedEndOfFile", 53, making<ZUnexpectedEndOfFile>("f"),
            "Unexpected end of file encounted while reading f."},
        Row{"ZJavaPropertyParseException", 54, making<ZJavaPropertyParseException>("f"),
            "Internal error encountered while loading Java property file f."},
        Row{"ZToUTF8Exception", 49, making<ZToUTF8Exception>(),
            "Local codeset UTF-8 string could not be converted to UTF-8."},
        Row{"ZFromUTF8Exception", 50, making<ZFromUTF8Exception>(),
            "UTF-8 string could not be converted to the local codeset UTF-8."},
        Row{"ZSharedLibraryLoadException", 51,
            making<ZSharedLibraryLoadException>("libx", "no file", 2),
            "Shared library load/unload error (libx) 2.  no file"},
        Row{"ZSharedLibraryResolveException", 52,
            making<ZSharedLibraryResolveException>("libx", "sym", "no symbol", 3),
            "Shared library resolve error (libx:sym) 3.  no symbol"},
        Row{"ZPropertiesMissingPropertyException", 28,
            making<ZPropertiesMissingPropertyException>("f", "s", "k"),
            "The configuration file f is missing the required attribute k in stanza s."},
        Row{"ZPropertiesInvalidValueException", 39,
            making<ZPropertiesInvalidValueException>("f", "s", "k", "v"),
            "The configuration file f has an invalid value v for key k in stanza s."},
        // Kept: the two subclasses report their base's name.
        Row{"ZPropertiesInvalidValueException", 40,
            making<ZPropertiesInvalidNumValueException>("f", "s", "k", "v"),
            "The configuration file f has an invalid numeric value v for key k in stanza s."},
        Row{"ZPropertiesInvalidValueException", 41,
            making<ZPropertiesInvalidBoolValueException>("f", "s", "k", "v"),
            "The configuration file f has an invalid boolean value v for key k in stanza s."},
        Row{"ZPropertiesIteratorException", 42, making<ZPropertiesIteratorException>("f"),
            "The iterator for  configuration file f is in an invalid state for the operation"},
        Row{"ZPropertiesIOException", 43, making<ZPropertiesIOException>("f", "fopen(r)", 13),
            "Access failed for configuration file f.  The access function was fopen(r) and return "
            "code was 13"},
        Row{"ZPropertiesInvalidDataException", 44,
            making<ZPropertiesInvalidDataException>("f", " bad", 3),
            "The configuration file \"f\" contains invalid data at line 3.\nData: \" bad\""},
        // Numbers that callers choose: a report shows no insert that was not passed, and a
        // mismatched one in its own kind.
        Row{"ZThreadException", 28, making<ZThreadException>(28, 11),
            "The configuration file 11 is missing the required attribute  in stanza ."},
        Row{"ZOpenResourceException", 5, making<ZOpenResourceException>(5, 4, "f"),
            "Unexpected error from pthread_mutex_lock().  rc = 4."},
        Row{"ZThreadException", 23, making<ZThreadException>(23, 1),
            "No default text defined in ZMessage.cpp for the exception\n"},
        Row{"ZThreadException", 55, making<ZThreadException>(55, 1),
            "No default text defined in ZMessage.cpp for the exception\n"},
        Row{"ZThreadException", 0, making<ZThreadException>(0, 1),
            "No default text defined in ZMessage.cpp for the exception\n"}));

TEST(ExceptionLocation, IsNullUntilGivenAndOnlyTheLatestIsKept) {
    ZThreadException e(17, 11);
    EXPECT_EQ(e.who(), nullptr);
    EXPECT_EQ(e.where(), 0);
    EXPECT_NE(reportOf(e).find(" File: \"(null)\" 0\n"), std::string::npos);

    e.addLocation("a", 1);
    e.addLocation("b", 2);
    char const* file = nullptr;
    int line = 0;
    EXPECT_EQ(e.location(5, file, line), 1);
    EXPECT_STREQ(file, "b");
    EXPECT_EQ(line, 2);
    EXPECT_EQ(e.locationCount(), 1);
}

TEST(ExceptionText, IsCopiedAndNullIsEmpty) {
    std::string file = "conf";
    ZPropertiesInvalidValueException const e(file.c_str(), nullptr, "k", "v");
    file = "gone";
    EXPECT_STREQ(e.propFile(), "conf");
    EXPECT_STREQ(e.category(), "");
    EXPECT_STREQ(e.key(), "k");
    EXPECT_STREQ(e.value(), "v");
}

TEST(ExceptionText, CodesetReportShowsTheDataDirectory) {
    auto const captured = captureChild([] {
        setenv("QCSDIR", "/data/sets", 1);
        ZCodesetException e("KLINGON");
        e.print();
        return 0;
    });
    EXPECT_NE(captured.err.find("\"KLINGON\".  QCSDIR is \"/data/sets\""), std::string::npos)
        << captured.err;
}

class Plain : public ZObject {};

TEST(ObjectRoot, OrdersByAddressAndIsEqualToItselfAlone) {
    Plain const row[2];
    EXPECT_EQ(row[0].compare(row[0]), 0);
    EXPECT_EQ(row[0].compare(row[1]), -1);
    EXPECT_EQ(row[1].compare(row[0]), 1);
    EXPECT_TRUE(row[0].equals(row[0]) && row[0] == row[0] && row[0] <= row[0] && row[0] >= row[0]);
    EXPECT_TRUE(row[0] != row[1] && row[0] < row[1] && row[1] > row[0]);
    EXPECT_EQ(row[0].clone(), nullptr);
    EXPECT_NE(row[0].hash(), row[1].hash());
}

class Ranked : public ZObject {
  public:
    explicit Ranked(int value) : rank(value) {}
    [[nodiscard]] int compare(ZObject const& other) const override {
        return rank - dynamic_cast<Ranked const&>(other).rank;
    }

  private:
    int rank;
};

TEST(ObjectRoot, OperatorsFollowAnOverriddenCompare) {
    Ranked const low(1);
    Ranked const alike(1);
    Ranked const high(2);
    EXPECT_TRUE(low == alike && low.equals(alike) && low <= alike && low >= alike);
    EXPECT_TRUE(low < high && high > low && low != high);
}

TEST(ObjectRoot, ExhaustionIsAnExceptionFromAFixedPlace) {
    volatile std::size_t const tooMuch = SIZE_MAX / 4 * 3;  // more than any object may have
    try {
        auto* const block = Plain::operator new[](tooMuch);
        Plain::operator delete[](block);
        FAIL() << "got the memory";
    } catch (ZOutOfMemoryException& e) {
        EXPECT_STREQ(e.who(), "src/Z/ZObject");
        EXPECT_EQ(e.where(), 75);
    }
}

}  // namespace
