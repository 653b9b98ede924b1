#include "Z/ZException.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "Z/ZMessage.h"
#include "support/processes.h"

namespace {

using testsupport::captureChild;

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
    std::unique_ptr<ZException> e;
    char const* text;
};

template <class E, class... Args>
std::unique_ptr<ZException> made(Args... args) {
    return std::make_unique<E>(args...);
}

TEST(ExceptionTree, PrintsItsTextAndClonesAndThrowsAsItself) {
    constexpr char rc11[] = "Unexpected error from pthread_create().  rc = 11.";
    constexpr char noText[] = "No default text defined in ZMessage.cpp for the exception\n";
    Row const rows[] = {
        {"ZOutOfMemoryException", 1, made<ZOutOfMemoryException>(), "Memory allocation failure."},
        {"ZInvalidPlatformException", 11, made<ZInvalidPlatformException>(),
         "This function is not supported on this platform."},
        {"ZNotClonableException", 14, made<ZNotClonableException>(), "Object is not cloneable."},
        {"ZInvalidParameterException", 22, made<ZInvalidParameterException>(),
         "A function or method was called with an invalid parameter."},
        {"ZNoQCSEnvironmentException", 45, made<ZNoQCSEnvironmentException>(),
         "The QCSDIR environment variable is not set."},
        {"ZQCSMBLenException", 46, made<ZQCSMBLenException>(),
         "The qcs_mblen() function returned -1."},
        {"ZUnsupportedException", 48, made<ZUnsupportedException>(),
         "The operation is not supported."},
        {"ZThreadException", 17, made<ZThreadException>(17, 11), rc11},
        {"ZConditionException", 9, made<ZConditionException>(9, -1),
         "Unexpected error from pthread_cond_wait().  rc = -1."},
        {"ZResourceException", 5, made<ZResourceException>(5, 1),
         "Unexpected error from pthread_mutex_lock().  rc = 1."},
        {"ZCreateResourceException", 3, made<ZCreateResourceException>(3, 12),
         "Unexpected error from pthread_mutex_init().  rc = 12."},
        {"ZLockResourceException", 33, made<ZLockResourceException>(33, 9),
         "An unexpected error was received when trying to obtain a process lock.  rc = 9."},
        {"ZUnlockResourceException", 34, made<ZUnlockResourceException>(34, 9),
         "An unexpected error was received when trying to release a process lock.  rc = 9."},
        {"ZReadResourceException", 35, made<ZReadResourceException>(35, 5),
         "Read failed for a process lock.  rc = 5."},
        {"ZWriteResourceException", 36, made<ZWriteResourceException>(36, 5),
         "Write failed for a process lock.  rc = 5."},
        {"ZOpenResourceException", 37, made<ZOpenResourceException>(37, 2, "/x/._zpla"),
         "Create failed for a process lock.  rc = 2 and the lock file name is /x/._zpla."},
        {"ZCloseResourceException", 38, made<ZCloseResourceException>(38, 2, "/x/._zpla"),
         "Close failed for a process lock.  rc = 2 and the lock file name is /x/._zpla."},
        {"ZInvalidResourceStateException", 32, made<ZInvalidResourceStateException>("read"),
         "An unexpected lock state was detected.  The current lock state is read."},
        {"ZAbstractNotImplementedException", 31, made<ZAbstractNotImplementedException>("what"),
         "The requested function is not implemented."},
        // Kept: the values stay out of the report.
        {"ZConverterException", 2, made<ZConverterException>(2, 22, "A", "B"),
         "iconv_open failed for codepage  to  conversion. errno = ."},
        {"ZUnexpectedEndOfFile", 53, made<ZUnexpectedEndOfFile>("f"),
         "Unexpected end of file encounted while reading f."},
        {"ZJavaPropertyParseException", 54, made<ZJavaPropertyParseException>("f"),
         "Internal error encountered while loading Java property file f."},
        {"ZToUTF8Exception", 49, made<ZToUTF8Exception>(),
         "Local codeset UTF-8 string could not be converted to UTF-8."},
        {"ZFromUTF8Exception", 50, made<ZFromUTF8Exception>(),
         "UTF-8 string could not be converted to the local codeset UTF-8."},
        {"ZSharedLibraryLoadException", 51, made<ZSharedLibraryLoadException>("libx", "no file", 2),
         "Shared library load/unload error (libx) 2.  no file"},
        {"ZSharedLibraryResolveException", 52,
         made<ZSharedLibraryResolveException>("libx", "sym", "no symbol", 3),
         "Shared library resolve error (libx:sym) 3.  no symbol"},
        {"ZPropertiesMissingPropertyException", 28,
         made<ZPropertiesMissingPropertyException>("f", "s", "k"),
         "The configuration file f is missing the required attribute k in stanza s."},
        {"ZPropertiesInvalidValueException", 39,
         made<ZPropertiesInvalidValueException>("f", "s", "k", "v"),
         "The configuration file f has an invalid value v for key k in stanza s."},
        // Kept: the two subclasses report their base's name.
        {"ZPropertiesInvalidValueException", 40,
         made<ZPropertiesInvalidNumValueException>("f", "s", "k", "v"),
         "The configuration file f has an invalid numeric value v for key k in stanza s."},
        {"ZPropertiesInvalidValueException", 41,
         made<ZPropertiesInvalidBoolValueException>("f", "s", "k", "v"),
         "The configuration file f has an invalid boolean value v for key k in stanza s."},
        {"ZPropertiesIteratorException", 42, made<ZPropertiesIteratorException>("f"),
         "The iterator for  configuration file f is in an invalid state for the operation"},
        {"ZPropertiesIOException", 43, made<ZPropertiesIOException>("f", "fopen(r)", 13),
         "Access failed for configuration file f.  The access function was fopen(r) and return "
         "code was 13"},
        {"ZPropertiesInvalidDataException", 44,
         made<ZPropertiesInvalidDataException>("f", " bad", 3),
         "The configuration file \"f\" contains invalid data at line 3.\nData: \" bad\""},
        // Numbers that callers choose: a report shows no insert that was not passed, and a
        // mismatched one in its own kind.
        {"ZThreadException", 28, made<ZThreadException>(28, 11),
         "The configuration file 11 is missing the required attribute  in stanza ."},
        {"ZOpenResourceException", 5, made<ZOpenResourceException>(5, 4, "f"),
         "Unexpected error from pthread_mutex_lock().  rc = 4."},
        {"ZThreadException", 23, made<ZThreadException>(23, 1), noText},
        {"ZThreadException", 0, made<ZThreadException>(0, 1), noText},
        {"ZThreadException", 55, made<ZThreadException>(55, 1), noText},
    };
    for (auto const& [name, number, e, text] : rows) {
        e->addLocation("src/Z/ZSample", 7);
        std::string const expected =
            std::string("Exception: ") + name +
            "\n File: \"src/Z/ZSample\" 7\n Error: " + std::to_string(number) +
            "\nNUM_MSGS = 55\n" + text;
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
            EXPECT_STREQ(thrown.who(), "src/Z/ZOther");
            EXPECT_EQ(thrown.where(), 9);
        }
    }
}

TEST(ExceptionLocation, IsNullUntilGivenAndOnlyTheLatestIsKept) {
    ZThreadException e(17, 11);
    EXPECT_EQ(e.who(), nullptr);
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

class Ranked : public ZObject {
  public:
    explicit Ranked(int value) : rank(value) {}
    [[nodiscard]] int compare(ZObject const& other) const override {
        return rank - dynamic_cast<Ranked const&>(other).rank;
    }
    int rank;
};

void expectOrder(ZObject const& low, ZObject const& alike, ZObject const& high) {
    EXPECT_TRUE(low == alike && low.equals(alike) && low <= alike && low >= alike);
    EXPECT_TRUE(low < high && high > low && low != high);
}

TEST(ObjectRoot, OrdersByAddressOrAnOverriddenCompare) {
    Plain const row[2];
    expectOrder(row[0], row[0], row[1]);
    EXPECT_EQ(row[0].compare(row[1]), -1);
    EXPECT_EQ(row[1].compare(row[0]), 1);
    EXPECT_EQ(row[0].clone(), nullptr);
    EXPECT_NE(row[0].hash(), row[1].hash());
    expectOrder(Ranked(1), Ranked(1), Ranked(2));
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
