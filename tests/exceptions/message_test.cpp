#include "Z/ZMessage.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZUTF8String.h"
#include "support/reports.h"

using namespace testsupport;

namespace {

constexpr char report[] =
    "Exception: ZThreadException\n File: \"src/Z/ZThread\" 12\n Error: 17\n Thread: #\n"
    "NUM_MSGS = 55\nUnexpected error from pthread_create().  rc = 11.";

void dumpReport() {
    ZThreadException e(17, 11);
    e.addLocation("src/Z/ZThread", 12);
    e.dumpException();
}

/// Notes number and insert of a report.
class NotingService : public Silence {
  public:
    void outputException(ZException& e) const override { e.print(); }
    void outputException(ZZException const* e, va_list args) const override {
        noted = {e->getCode(), va_arg(args, int)};
    }

    mutable std::pair<unsigned long, int> noted;
};

TEST(MessageService, MessageShowsAsManyTextsAsCountedAndKeptUtf8TextsAsEmptyLines) {
    ZLCString const a("a");
    ZUTF8String const secret("secret");
    auto const& service = *ZMessageService::messageService();
    std::string const head = "Error: 4\n File: \"(null)\" 3\n Thread: #\n";
    for (auto const& [count, tail] :
         {std::pair(-1, ""), std::pair(2, "Additional Information:\na\n\n"),
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
    NotingService service;  // installs itself
    EXPECT_EQ("", errorOutputOf(dumpReport));
    dumpReport();
    EXPECT_EQ(std::pair(17UL, 11), service.noted);
    ZMessageService::setMessageService(nullptr);
    EXPECT_EQ(report, errorOutputOf(dumpReport));
}

TEST(MessageService, ReportsWorkFromExitHandlersAndDoNotMixThreads) {
    auto const reportOften = [] {
        for (int i = 0; i < 50; ++i)
            dumpReport();
    };
    std::string expected = report;
    for (int i = 0; i < 100; ++i)
        expected += report;
    EXPECT_EQ(expected, errorOutputOf([&] {
                  std::atexit(dumpReport);
                  std::thread other(reportOften);
                  reportOften();
                  other.join();
                  std::exit(0);
              }));
}

}  // namespace
