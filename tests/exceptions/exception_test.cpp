#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZKeyMap.h"
#include "Z/ZMessageParts.h"
#include "Z/ZObserve.h"
#include "Z/ZProcessLock.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/ZSharedLibrary.h"
#include "Z/ZUTF8String.h"
#include "support/objects.h"

using namespace testsupport;

namespace {

/// Of the exception made of these arguments: it is thrown and cloned as itself, and prints `text`.
template <class E, class... Args>
void expect(unsigned long number, std::string const& text, Args... args) {
    std::string name = typeid(E).name();  // the length, the name and a version tag
    name = name.substr(name.find('Z'), name.find('_') - name.find('Z'));
    // Kept: the subclasses of this one report its name.
    if (std::is_base_of_v<ZPropertiesInvalidValueException, E>)
        name = "ZPropertiesInvalidValueException";
    try {
        E(args...).throwException("src/Z/ZSample", 7);
        FAIL() << name << " is not thrown";
    } catch (ZException& thrown) {
        std::unique_ptr<ZObject> const copy(thrown.clone());
        auto& cloned = dynamic_cast<ZException&>(*copy);
        EXPECT_TRUE(typeid(thrown) == typeid(E) && typeid(cloned) == typeid(E)) << name;
        EXPECT_EQ(text.find("No default text") == 0 ? "" : text, std::string(thrown.text()));
        EXPECT_EQ("Exception: " + name + "\n File: \"src/Z/ZSample\" 7\n Error: " +
                      std::to_string(number) + "\n Thread: #\nNUM_MSGS = 60\n" + text,
                  errorOutputOf([&] { cloned.dumpException(); }));
    }
}

TEST(ExceptionTree, PrintsItsTextAndClonesAndThrowsAsItself) {
    std::string const noText = "No default text defined in ZMessage.cpp for the exception\n";
    std::string const badValue = "The configuration file f has an invalid ";
    std::string const qcsdir = getenv("QCSDIR");
    std::string const processLock = "An unexpected error was received when trying to ";
    expect<ZOutOfMemoryException>(1, "Memory allocation failure.");
    expect<ZInvalidPlatformException>(11, "This function is not supported on this platform.");
    expect<ZNotClonableException>(14, "Object is not cloneable.");
    expect<ZInvalidParameterException>(
        22, "A function or method was called with an invalid parameter.");
    expect<ZNoQCSEnvironmentException>(45, "The QCSDIR environment variable is not set.");
    expect<ZQCSMBLenException>(46, "The qcs_mblen() function returned -1.");
    expect<ZUnsupportedException>(48, "The operation is not supported.");
    expect<ZResourceException>(5, "Unexpected error from pthread_mutex_lock().  rc = 1.", 5, 1);
    expect<ZCreateResourceException>(3, "Unexpected error from pthread_mutex_init().  rc = 12.", 3,
                                     12);
    expect<ZLockResourceException>(33, processLock + "obtain a process lock.  rc = 9.", 33, 9);
    expect<ZUnlockResourceException>(34, processLock + "release a process lock.  rc = 9.", 34, 9);
    expect<ZReadResourceException>(35, "Read failed for a process lock.  rc = 5.", 35, 5);
    expect<ZWriteResourceException>(36, "Write failed for a process lock.  rc = 5.", 36, 5);
    expect<ZOpenResourceException>(
        37, "Create failed for a process lock.  rc = 2 and the lock file name is /x.", 37, 2, "/x");
    expect<ZCloseResourceException>(
        38, "Close failed for a process lock.  rc = 2 and the lock file name is /x.", 38, 2, "/x");
    expect<ZInvalidResourceStateException>(
        32, "An unexpected lock state was detected.  The current lock state is read.", "read");
    expect<ZAbstractNotImplementedException>(31, "The requested function is not implemented.",
                                             "what");
    // Kept: the values stay out of the report.
    expect<ZConverterException>(2, "iconv_open failed for codepage  to  conversion. errno = .", 2,
                                22, "A", "B");
    expect<ZCodesetException>(
        47, "Codeset handle create failed for codeset \"K\".  QCSDIR is \"" + qcsdir + '"', "K");
    expect<ZUnexpectedEndOfFile>(53, "Unexpected end of file encounted while reading f.", "f");
    expect<ZJavaPropertyParseException>(
        54, "Internal error encountered while loading Java property file f.", "f");
    expect<ZToUTF8Exception>(49, "Local codeset UTF-8 string could not be converted to UTF-8.");
    expect<ZFromUTF8Exception>(50,
                               "UTF-8 string could not be converted to the local codeset UTF-8.");
    expect<ZSharedLibraryLoadException>(51, "Shared library load/unload error (lib) 2.  why", "lib",
                                        "why", 2);
    expect<ZSharedLibraryResolveException>(52, "Shared library resolve error (lib:symbol) 2.  why",
                                           "lib", "symbol", "why", 2);
    expect<ZPropertiesMissingPropertyException>(
        28, "The configuration file f is missing the required attribute k in stanza .", "f",
        nullptr, "k");
    expect<ZPropertiesInvalidValueException>(39, badValue + "value v for key k in stanza s.", "f",
                                             "s", "k", "v");
    expect<ZPropertiesInvalidNumValueException>(
        40, badValue + "numeric value v for key k in stanza s.", "f", "s", "k", "v");
    expect<ZPropertiesInvalidBoolValueException>(
        41, badValue + "boolean value v for key k in stanza s.", "f", "s", "k", "v");
    expect<ZPropertiesIteratorException>(
        42, "The iterator for  configuration file f is in an invalid state for the operation", "f");
    expect<ZPropertiesIOException>(43,
                                   "Access failed for configuration file f.  The access function "
                                   "was fopen(r) and return code was 13",
                                   "f", "fopen(r)", 13);
    expect<ZPropertiesInvalidDataException>(
        44, "The configuration file \"f\" contains invalid data at line 3.\nData: \" bad\"", "f",
        " bad", 3);
    expect<ZPropertiesCompanionIOException>(
        55, "The companion file c of the configuration file f cannot be read: Why (code 2).", "c",
        "f", "Why", 22, 2);
    expect<ZPropertiesCompanionDataException>(
        56, "The companion file c of the configuration file f is damaged: it is cut off.", "c", "f",
        "it is cut off");
    expect<ZPropertiesRecoveryException>(
        57, "The recovery copy c of the configuration file f is ignored: Why.", 57, "c", "f",
        "Why");
    expect<ZPropertiesUnexpectedValueException>(
        59,
        "The configuration file f has the value v for key k in stanza s, where a size is expected.",
        "f", "s", "k", "v", "a size");
    // Numbers that callers choose: a report shows no insert that was not passed, and a
    // mismatched one in its own kind.
    expect<ZThreadException>(
        28, "The configuration file 11 is missing the required attribute  in stanza .", 28, 11);
    expect<ZThreadException>(0, noText, 0, 1);
    expect<ZThreadException>(999, noText, 999, 1);
}

TEST(ExceptionLocation, IsNullUntilGivenAndOnlyTheLatestIsKept) {
    ZThreadException e(17, 11);
    EXPECT_NE(errorOutputOf([&] { throw e; }).find(" File: \"(null)\" 0\n"), std::string::npos);
    e.addLocation("a", 1);
    e.addLocation("b", 2);
    char const* file = nullptr;
    int line = 0;
    EXPECT_EQ(e.location(5, file, line), e.locationCount());
    EXPECT_EQ(std::pair(std::string(file), line), std::pair(std::string("b"), 2));
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

TEST(ObjectRoot, OtherClassesEqualTheirClonesAndAreOrderedAmongEachOtherByAddress) {
    ZObject const plain;
    ZPropLine const line(ZPropLine::comment, "#a");
    ZObfuscatedItem const item("s", "k");
    ZBuffer const buffer("a");
    ZSequenceUpdate const update(1, 0);
    ZKeyEntry const entry(&plain, nullptr, 0);
    Voyeur const voyeur(nullptr);
    ZSharedLibrary const library;
    ZObject const* const objects[] = {&line, &item, &buffer, &update, &entry, &voyeur, &library};
    for (ZObject const* const object : objects) {
        std::unique_ptr<ZObject> const copy(object->clone());
        EXPECT_EQ(object->compare(*copy), 0);
        EXPECT_EQ(object->compare(plain), -plain.compare(*object));
    }
    EXPECT_NE(line.compare(ZPropLine(ZPropLine::header, "#a")), 0);
}

TEST(ObjectRoot, ExhaustionIsAnExceptionFromAFixedPlace) {
    volatile std::size_t const tooMuch = SIZE_MAX / 4 * 3;  // more than any object may have
    std::string const told =
        errorOutputOf([&] { ZObject::operator delete[](ZObject::operator new[](tooMuch)); });
    EXPECT_NE(told.find("Exception: ZOutOfMemoryException\n File: \"src/Z/ZObject\" 75\n"),
              std::string::npos);  // a sanitizer warns before it
    EXPECT_EQ(ZObject::operator new(tooMuch, std::nothrow), nullptr);
}

TEST(ObjectRoot, EveryFormOfNewIsAtHand) {
    struct alignas(128) Wide : ZObject {};
    for (int i = 0; i < 9; ++i) {
        std::unique_ptr<ZObject> const wide(i % 2 == 0 ? new Wide : new (std::nothrow) Wide);
        EXPECT_EQ(wide->hash() % 128, 0U);
    }
    std::unique_ptr<Wide[]> const row(new Wide[3]);
    EXPECT_EQ(row[1].hash() % 128, 0U);
    std::unique_ptr<ZObject> const one(new (std::nothrow) Number(1));
    EXPECT_EQ(*one, Number(1));
    EXPECT_EQ(ZObject::operator new[](8, row.get()), row.get());
}

constexpr char report[] =
    "Exception: ZThreadException\n File: \"src/Z/ZThread\" 12\n Error: 17\n Thread: #\n"
    "NUM_MSGS = 60\nUnexpected error from pthread_create().  rc = 11.";

void dumpReport() {
    ZThreadException e(17, 11);
    e.addLocation("src/Z/ZThread", 12);
    e.dumpException();
}

TEST(MessageService, MessageShowsAsManyTextsAsCountedAndKeptUtf8TextsAsEmptyLines) {
    ZLCString const a("a");
    ZUTF8String const secret("secret");
    auto const& service = *ZMessageService::messageService();
    std::string const head = "Error: 4\n File: \"(null)\" 3\n Thread: #\n";
    for (auto const& [count, tail] :
         {std::pair(-1, ""), std::pair(0, ""), std::pair(2, "Additional Information:\na\n\n"),
          std::pair(7, "Additional Information:\na\n\n\n\n\na\n")})  // there are only six
        EXPECT_EQ(head + tail, errorOutputOf([&, shown = count] {
                      service.outputMessage(nullptr, 3, 4, shown, &a, nullptr, nullptr, nullptr,
                                            nullptr, &a);
                  }));
    EXPECT_EQ(head + "Additional Information:\n\n\n", errorOutputOf([&] {
                  service.outputMessageUTF8(nullptr, 3, 4, 2, &secret, &secret, nullptr, nullptr,
                                            nullptr, nullptr);
              }));
}

TEST(MessageService, AnInstalledServiceGetsEveryReportUntilNullRestoresTheDefault) {
    Reports reports;  // installs itself
    ZThreadException e(17, 11);
    e.dumpException();
    e.print();
    EXPECT_EQ(std::vector(2, Report{"ZThreadException", 17, {}}), reports.take());
    ZMessageService::setMessageService(nullptr);
    EXPECT_EQ(report, errorOutputOf(dumpReport));
}

TEST(MessageService, RendersWhatItGets) {
    struct Rendering : Silence {
        void outputException(ZException& e) const override { e.print(); }
        void outputException(ZZException const* e, va_list args) const override {
            ZMessageParts const parts(*e, args);
            EXPECT_EQ(std::pair(37UL, 2), std::pair(parts.getNumber(), parts.getInsertCount()));
            EXPECT_EQ(parts.getInsertKind(0), ZZException::InsertKind::number);
            EXPECT_EQ(parts.getInsertNumber(0), 5);
            EXPECT_STREQ(parts.getInsertText(1), "/x");
            for (int const none : {-1, 2})
                EXPECT_THROW(static_cast<void>(parts.getInsertKind(none)),
                             ZInvalidParameterException);
            ZLCString const place(parts.getSource());
            told = place + ':' + ZLCString(parts.getLine()) + ' ' + parts.getText();
        }
        mutable std::string told;
    } const service;
    ZOpenResourceException e(37, 5, "/x");
    e.addLocation("f", 7);
    e.dumpException();
    EXPECT_EQ(service.told,
              "f:7 Create failed for a process lock.  rc = 5 and the lock file name is /x.");
}

/// As a class of a program's own hands its inserts over.
void expectParts(ZZException const* e, ...) {
    va_list inserts;
    va_start(inserts, e);
    ZMessageParts const parts(*e, inserts);
    va_end(inserts);
    EXPECT_EQ(parts.getInsertCount(), 2);
    EXPECT_EQ(parts.getInsertNumber(0), 5);
    EXPECT_STREQ(parts.getInsertText(1), "/x");
}

TEST(MessageService, KnowsInsertsThatNobodyAnnouncedByTheText) {
    ZOpenResourceException const e(37, 5, "/x");
    expectParts(&e, 5, "/x");
}

TEST(MessageService, IsToldWhatNobodyCatches) {
    auto const [out, err, status] = captureChild([]() noexcept -> int {
        zreportUncaught();
        zraise(ZThreadException(17, 11), "f", 1);
    });
    EXPECT_EQ(status, -SIGABRT);
    EXPECT_NE(err.find("Unexpected error from pthread_create().  rc = 11."), std::string::npos);
}

TEST(MessageService, AReportIsOneWriteToStandardErrorHoweverLong) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);  // which keeps writes apart
    ZLCString const text(std::string(30000, 'x').c_str());
    EXPECT_EQ(0, inChild([&] {
                  dup2(ends[1], STDERR_FILENO);
                  dumpReport();
                  ZMessageService::messageService()->outputMessage(
                      "f", 1, 2, 2, &text, &text, nullptr, nullptr, nullptr, nullptr);
                  ZOpenResourceException(37, 2, text.getChars()).dumpException();
                  return 0;
              }));
    close(ends[1]);
    std::string got(100000, '\0');
    for (std::size_t const least : {std::size_t{100}, std::size_t{60000}, std::size_t{30000}}) {
        auto const length = recv(ends[0], got.data(), got.size(), 0);
        ASSERT_GT(length, static_cast<ssize_t>(least));
        EXPECT_EQ(got[0], 'E');
    }
    EXPECT_EQ(recv(ends[0], got.data(), got.size(), 0), 0) << "nothing is left";
    close(ends[0]);
}

TEST(MessageService, ReportsWorkFromExitHandlersAndDoNotMixThreads) {
    std::string expected;
    for (int i = 0; i < 101; ++i)
        expected += report;
    EXPECT_EQ(expected, errorOutputOf([] {
                  auto const reportOften = [] {
                      for (int i = 0; i < 50; ++i)
                          dumpReport();
                  };
                  std::atexit(dumpReport);
                  std::thread other(reportOften);
                  reportOften();
                  other.join();
                  std::exit(0);
              }));
}

}  // namespace
