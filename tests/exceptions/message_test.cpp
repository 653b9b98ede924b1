#include "Z/ZMessage.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZUTF8String.h"
#include "support/processes.h"
#include "support/reports.h"

namespace {

using testsupport::captureChild;

/// What `body` writes to standard error, with "#" for the numbers of threads.
std::string errorOutputOf(std::function<void()> const& body) {
    auto const captured = captureChild([&body] {
        body();
        return 0;
    });
    EXPECT_EQ(captured.status, 0);
    return std::regex_replace(captured.err, std::regex(" Thread: -?\\d+\n"), " Thread: #\n");
}

constexpr char report[] =
    "Exception: ZThreadException\n File: \"src/Z/ZThread\" 12\n Error: 17\n Thread: #\n"
    "NUM_MSGS = 55\nUnexpected error from pthread_create().  rc = 11.";

void dumpReport() {
    ZThreadException e(17, 11);
    e.addLocation("src/Z/ZThread", 12);
    e.dumpException();
}

/// Notes number and insert of a report and lets the default service write it.
class NotingService : public testsupport::Reports {
  public:
    void outputException(ZException& e) const override { e.print(); }
    void outputException(ZZException const* e, va_list args) const override {
        va_list own;
        va_copy(own, args);
        noted = {e->getCode(), va_arg(own, int)};
        va_end(own);
        defaultMessageService()->outputException(e, args);
    }

    mutable std::pair<unsigned long, int> noted;
};

TEST(MessageService, MessageShowsAsManyTextsAsCounted) {
    ZLCString const a("a");
    ZLCString const b("b");
    struct {
        int count;
        char const* tail;
    } const rows[] = {
        {-1, ""},
        {0, ""},
        {2, "Additional Information:\na\nb\n"},
        {6, "Additional Information:\na\nb\n\n\n\na\n"},
        {7, "Additional Information:\na\nb\n\n\n\na\n"},  // there are only six
    };
    for (auto const& row : rows) {
        auto const text = errorOutputOf([&] {
            ZMessageService::messageService()->outputMessage("src/Z/ZLock", 3, 4, row.count, &a, &b,
                                                             nullptr, nullptr, nullptr, &a);
        });
        EXPECT_EQ(text, std::string("Error: 4\n File: \"src/Z/ZLock\" 3\n Thread: #\n") + row.tail);
    }
}

TEST(MessageService, KeptUtf8TextsBecomeEmptyLines) {
    ZUTF8String const shown("secret");
    auto const text = errorOutputOf([&] {
        ZMessageService::messageService()->outputMessageUTF8(nullptr, 3, 4, 2, &shown, &shown,
                                                             nullptr, nullptr, nullptr, nullptr);
    });
    EXPECT_EQ(text, "Error: 4\n File: \"(null)\" 3\n Thread: #\nAdditional Information:\n\n\n");
}

TEST(MessageService, AnInstalledServiceGetsEveryReportUntilNullRestoresTheDefault) {
    auto const text = errorOutputOf([] {
        NotingService const service;  // installs itself
        dumpReport();
        if (service.noted != std::pair(17UL, 11)) abort();
        ZMessageService::setMessageService(nullptr);
        if (ZMessageService::messageService() != ZMessageService::defaultMessageService()) abort();
    });
    EXPECT_EQ(text, report);
}

TEST(MessageService, ReportsWorkFromExitHandlersAndDoNotMixThreads) {
    EXPECT_EQ(errorOutputOf([] {
                  std::atexit(dumpReport);
                  std::exit(0);
              }),
              report);
    auto const text = errorOutputOf([] {
        auto const reportOften = [] {
            for (int i = 0; i < 50; ++i)
                dumpReport();
        };
        std::thread other(reportOften);
        reportOften();
        other.join();
    });
    std::string expected;
    for (int i = 0; i < 100; ++i)
        expected += report;
    EXPECT_EQ(text, expected);
}

}  // namespace
