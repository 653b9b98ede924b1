#include "Z/ZMessage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "Z/ZException.h"
#include "Z/ZUTF8String.h"
#include "support/processes.h"

namespace {

using testsupport::captureChild;
using testsupport::inChild;

std::string errorOutputOf(const std::function<void()>& body) {
    auto const captured = captureChild([&body] {
        body();
        return 0;
    });
    EXPECT_EQ(captured.status, 0);
    return captured.err;
}

int lines(std::string const& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

/// Remembers what it was asked to show.
class RecordingService : public ZMessageService {
  public:
    void outputMessage(char const*, int, int number, int, ZLCString const*, ZLCString const*,
                       ZLCString const*, ZLCString const*, ZLCString const*,
                       ZLCString const*) const override {
        shownNumber = number;
    }
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*) const override {}
    void outputException(ZException& e) const override { e.print(); }
    void outputException(ZZException const* e, va_list args) const override {
        shownNumber = static_cast<int>(e->getCode());
        va_list own;
        va_copy(own, args);
        insert = va_arg(own, int);
        va_end(own);
        defaultMessageService()->outputException(e, args);
    }

    mutable int shownNumber = 0;
    mutable int insert = 0;
};

TEST(MessageService, ExceptionReportIsSixLinesWithoutAFinalNewline) {
    auto const text = errorOutputOf([] {
        ZThreadException e(17, 11);
        e.addLocation("src/Z/ZThread", 12);
        e.dumpException();
    });
    EXPECT_EQ(lines(text), 5);
    EXPECT_EQ(
        text.rfind("Exception: ZThreadException\n File: \"src/Z/ZThread\" 12\n Error: 17\n", 0),
        0U);
    EXPECT_NE(text.find("NUM_MSGS = 55\nUnexpected error from pthread_create().  rc = 11."),
              std::string::npos);
}

TEST(MessageService, MessageShowsAsManyTextsAsCounted) {
    ZLCString const a("a");
    ZLCString const b("b");
    struct {
        int count;
        char const* tail;
    } const rows[] = {
        {-1, ""},
        {0, ""},
        {1, "Additional Information:\na\n"},
        {2, "Additional Information:\na\nb\n"},
        {6, "Additional Information:\na\nb\n\n\n\na\n"},
        {7, "Additional Information:\na\nb\n\n\n\na\n"},  // there are only six
    };
    for (auto const& row : rows) {
        auto const text = errorOutputOf([&] {
            ZMessageService::messageService()->outputMessage("src/Z/ZLock", 3, 4, row.count, &a, &b,
                                                             nullptr, nullptr, nullptr, &a);
        });
        EXPECT_EQ(text.rfind("Error: 4\n File: \"src/Z/ZLock\" 3\n Thread: ", 0), 0U) << text;
        auto const thread = text.find(" Thread: ");
        EXPECT_EQ(text.substr(text.find('\n', thread) + 1), row.tail) << row.count;
    }
}

TEST(MessageService, Utf8TextsBecomeEmptyLines) {
    ZUTF8String const shown("secret");
    auto const text = errorOutputOf([&] {
        ZMessageService::messageService()->outputMessageUTF8(nullptr, 3, 4, 2, &shown, &shown,
                                                             nullptr, nullptr, nullptr, nullptr);
    });
    EXPECT_EQ(text.rfind("Error: 4\n File: \"(null)\" 3\n", 0), 0U) << text;
    EXPECT_EQ(text.substr(text.find("Additional")), "Additional Information:\n\n\n");
}

TEST(MessageService, AnInstalledServiceGetsEveryReportUntilNullRestoresTheDefault) {
    RecordingService service;
    auto const text = errorOutputOf([&service] {
        ZThreadException e(5, 35);
        ZMessageService::setMessageService(&service);
        e.dumpException();
        if (service.shownNumber != 5 || service.insert != 35) abort();
        ZMessageService::setMessageService(nullptr);
        if (ZMessageService::messageService() != ZMessageService::defaultMessageService()) abort();
    });
    EXPECT_NE(text.find("pthread_mutex_lock().  rc = 35."), std::string::npos) << text;
}

TEST(MessageService, ReportsWorkFromExitHandlersAndDoNotMixThreads) {
    EXPECT_EQ(inChild([] {
                  std::atexit([] {
                      ZThreadException e(5, 1);
                      e.dumpException();
                  });
                  std::exit(0);
                  return 1;
              }),
              0);

    auto const text = errorOutputOf([] {
        auto const reportOften = [] {
            ZThreadException e(5, 1);
            for (int i = 0; i < 50; ++i)
                e.dumpException();
        };
        std::thread other(reportOften);
        reportOften();
        other.join();
    });
    int whole = 0;
    for (std::size_t at = text.find("Exception: "); at != std::string::npos; ++whole) {
        auto const next = text.find("Exception: ", at + 1);
        EXPECT_EQ(lines(text.substr(at, next - at)), 5) << text.substr(at, next - at);
        at = next;
    }
    EXPECT_EQ(whole, 100);
}

}  // namespace
