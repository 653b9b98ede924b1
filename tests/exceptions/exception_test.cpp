#include "Z/ZException.h"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>
#include <utility>

#include "support/objects.h"
#include "support/reports.h"

using namespace testsupport;

namespace {

/// The name of a class, without the version tag.
std::string nameOf(ZException const& e) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> const tagged(
        abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, &status), &std::free);
    std::string const name(tagged.get());
    return name.substr(0, name.find('_'));
}

template <class E, class... Args>
std::unique_ptr<ZException> made(Args... args) {
    return std::make_unique<E>(args...);
}

TEST(ExceptionTree, PrintsItsTextAndClonesAndThrowsAsItself) {
    std::string const noText = "No default text defined in ZMessage.cpp for the exception\n";
    std::string const badValue = "The configuration file f has an invalid ";
    std::string const processLock = "An unexpected error was received when trying to ";
    struct {
        unsigned long number;
        std::unique_ptr<ZException> e;
        std::string text;
    } const rows[] = {
        {1, made<ZOutOfMemoryException>(), "Memory allocation failure."},
        {11, made<ZInvalidPlatformException>(), "This function is not supported on this platform."},
        {14, made<ZNotClonableException>(), "Object is not cloneable."},
        {22, made<ZInvalidParameterException>(),
         "A function or method was called with an invalid parameter."},
        {45, made<ZNoQCSEnvironmentException>(), "The QCSDIR environment variable is not set."},
        {46, made<ZQCSMBLenException>(), "The qcs_mblen() function returned -1."},
        {48, made<ZUnsupportedException>(), "The operation is not supported."},
        {17, made<ZThreadException>(17, 11), "Unexpected error from pthread_create().  rc = 11."},
        {5, made<ZResourceException>(5, 1), "Unexpected error from pthread_mutex_lock().  rc = 1."},
        {3, made<ZCreateResourceException>(3, 12),
         "Unexpected error from pthread_mutex_init().  rc = 12."},
        {33, made<ZLockResourceException>(33, 9), processLock + "obtain a process lock.  rc = 9."},
        {34, made<ZUnlockResourceException>(34, 9),
         processLock + "release a process lock.  rc = 9."},
        {35, made<ZReadResourceException>(35, 5), "Read failed for a process lock.  rc = 5."},
        {36, made<ZWriteResourceException>(36, 5), "Write failed for a process lock.  rc = 5."},
        {37, made<ZOpenResourceException>(37, 2, "/x"),
         "Create failed for a process lock.  rc = 2 and the lock file name is /x."},
        {38, made<ZCloseResourceException>(38, 2, "/x"),
         "Close failed for a process lock.  rc = 2 and the lock file name is /x."},
        {32, made<ZInvalidResourceStateException>("read"),
         "An unexpected lock state was detected.  The current lock state is read."},
        {31, made<ZAbstractNotImplementedException>("what"),
         "The requested function is not implemented."},
        // Kept: the values stay out of the report.
        {2, made<ZConverterException>(2, 22, "A", "B"),
         "iconv_open failed for codepage  to  conversion. errno = ."},
        {47, made<ZCodesetException>("KLINGON"),
         "Codeset handle create failed for codeset \"KLINGON\".  QCSDIR is \"" +
             std::string(getenv("QCSDIR")) + "\""},
        {53, made<ZUnexpectedEndOfFile>("f"), "Unexpected end of file encounted while reading f."},
        {54, made<ZJavaPropertyParseException>("f"),
         "Internal error encountered while loading Java property file f."},
        {49, made<ZToUTF8Exception>(),
         "Local codeset UTF-8 string could not be converted to UTF-8."},
        {50, made<ZFromUTF8Exception>(),
         "UTF-8 string could not be converted to the local codeset UTF-8."},
        {28, made<ZPropertiesMissingPropertyException>("f", nullptr, "k"),
         "The configuration file f is missing the required attribute k in stanza ."},
        {39, made<ZPropertiesInvalidValueException>("f", "s", "k", "v"),
         badValue + "value v for key k in stanza s."},
        {40, made<ZPropertiesInvalidNumValueException>("f", "s", "k", "v"),
         badValue + "numeric value v for key k in stanza s."},
        {41, made<ZPropertiesInvalidBoolValueException>("f", "s", "k", "v"),
         badValue + "boolean value v for key k in stanza s."},
        {42, made<ZPropertiesIteratorException>("f"),
         "The iterator for  configuration file f is in an invalid state for the operation"},
        {43, made<ZPropertiesIOException>("f", "fopen(r)", 13),
         "Access failed for configuration file f.  The access function was fopen(r) and return "
         "code was 13"},
        {44, made<ZPropertiesInvalidDataException>("f", " bad", 3),
         "The configuration file \"f\" contains invalid data at line 3.\nData: \" bad\""},
        {6, made<ZSharedLibraryException>(6, "ZSharedLibraryException", "libx", "no file", 2),
         "Unexpected error from pthread_mutex_unlock().  rc = 2."},
        // Numbers that callers choose: a report shows no insert that was not passed, and a
        // mismatched one in its own kind.
        {28, made<ZThreadException>(28, 11),
         "The configuration file 11 is missing the required attribute  in stanza ."},
        {0, made<ZThreadException>(0, 1), noText},
        {55, made<ZThreadException>(55, 1), noText},
    };
    for (auto const& [number, e, text] : rows) {
        // Kept: both subclasses of this one report its name.
        bool const isValue = dynamic_cast<ZPropertiesInvalidValueException*>(e.get()) != nullptr;
        std::string const name = isValue ? "ZPropertiesInvalidValueException" : nameOf(*e);
        try {
            e->throwException("src/Z/ZSample", 7);
            FAIL() << "did not throw";
        } catch (ZException& thrown) {
            std::unique_ptr<ZObject> const copy(thrown.clone());
            auto& cloned = dynamic_cast<ZException&>(*copy);
            EXPECT_EQ(nameOf(thrown), nameOf(*e));
            EXPECT_EQ(nameOf(cloned), nameOf(*e));
            EXPECT_EQ("Exception: " + name + "\n File: \"src/Z/ZSample\" 7\n Error: " +
                          std::to_string(number) + "\n Thread: #\nNUM_MSGS = 55\n" + text,
                      errorOutputOf([&] { cloned.dumpException(); }));
        }
    }
}

TEST(ExceptionLocation, IsNullUntilGivenAndOnlyTheLatestIsKept) {
    ZThreadException e(17, 11);
    EXPECT_NE(errorOutputOf([&] { throw e; }).find(" File: \"(null)\" 0\n"), std::string::npos);
    e.addLocation("a", 1);
    e.addLocation("b", 2);
    char const* file = nullptr;
    int line = 0;
    EXPECT_EQ(e.location(5, file, line), 1);
    EXPECT_EQ(std::pair(std::string(file), line), std::pair(std::string("b"), 2));
    EXPECT_EQ(e.locationCount(), 1);
}

void expectOrder(ZObject const& low, ZObject const& alike, ZObject const& high) {
    EXPECT_TRUE(low == alike && low.equals(alike) && low <= alike && low >= alike);
    EXPECT_TRUE(low < high && high > low && low != high);
}

TEST(ObjectRoot, OrdersByAddressOrAnOverriddenCompare) {
    ZObject row[2];
    expectOrder(row[0], row[0], row[1]);
    EXPECT_EQ(row[0].compare(row[1]), -1);
    EXPECT_EQ(row[1].compare(row[0]), 1);
    EXPECT_EQ(row[0].clone(), nullptr);
    EXPECT_NE(row[0].hash(), row[1].hash());
    expectOrder(Number(1), Number(1), Number(2));
}

TEST(ObjectRoot, ExhaustionIsAnExceptionFromAFixedPlace) {
    volatile std::size_t const tooMuch = SIZE_MAX / 4 * 3;  // more than any object may have
    std::string const told =
        errorOutputOf([&] { ZObject::operator delete[](ZObject::operator new[](tooMuch)); });
    EXPECT_EQ(told.find("Exception: ZOutOfMemoryException\n File: \"src/Z/ZObject\" 75\n"), 0U);
}

}  // namespace
