/// What the library reports during a test.
#ifndef ZFC_TESTS_SUPPORT_REPORTS_H
#define ZFC_TESTS_SUPPORT_REPORTS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZMessage.h"
#include "support/processes.h"

namespace testsupport {

/// One report: a message, or an exception by its name.
struct Report {
    std::string what;  ///< source of a message; class name of an exception
    int number;
    std::vector<std::string> inserts;  ///< of a message

    bool operator==(Report const& other) const {
        return what == other.what && number == other.number && inserts == other.inserts;
    }
    bool operator!=(Report const& other) const { return !(*this == other); }
};

inline std::ostream& operator<<(std::ostream& out, Report const& report) {
    out << report.what << ' ' << report.number;
    for (auto const& insert : report.inserts)
        out << " \"" << insert << '"';
    return out;
}

/// The message service while it lives: drops all reports, without a lock or memory of its own.
class Silence : public ZMessageService {
  public:
    Silence() : before(messageService()) { setMessageService(this); }
    ~Silence() { setMessageService(before); }
    Silence(Silence const&) = delete;
    Silence& operator=(Silence const&) = delete;

    void outputMessage(char const*, int, int, int, ZLCString const*, ZLCString const*,
                       ZLCString const*, ZLCString const*, ZLCString const*,
                       ZLCString const*) const override {}
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*) const override {}
    void outputException(ZException&) const override {}
    void outputException(ZZException const*, va_list) const override {}

  private:
    ZMessageService const* before;
};

/// As Silence, but keeps reports of all threads.
class Reports : public Silence {
  public:
    /// All reports since the last call.
    [[nodiscard]] std::vector<Report> take() {
        std::lock_guard const guard(mutex);
        return std::exchange(kept, {});
    }

    void outputMessage(char const* file, int, int number, int count, ZLCString const* s1,
                       ZLCString const* s2, ZLCString const* s3, ZLCString const* s4,
                       ZLCString const* s5, ZLCString const* s6) const override {
        std::array<ZLCString const*, 6> const texts{s1, s2, s3, s4, s5, s6};
        Report report{file, number, {}};
        for (int i = 0; i < std::min(count, 6); ++i)
            report.inserts.emplace_back(texts.at(static_cast<std::size_t>(i))->getChars());
        keep(std::move(report));
    }
    void outputException(ZException& e) const override {
        keep({e.getName(), static_cast<int>(e.getCode()), {}});
    }
    void outputException(ZZException const* e, va_list) const override {
        keep({e->getName(), static_cast<int>(e->getCode()), {}});
    }

  private:
    void keep(Report report) const {
        std::lock_guard const guard(mutex);
        kept.push_back(std::move(report));
    }

    mutable std::mutex mutex;
    mutable std::vector<Report> kept;
};

/// What `body` writes to standard error, the report of an exception that it throws included; "#"
/// stands for the numbers of threads.
template <class Body>
[[nodiscard]] std::string errorOutputOf(Body const& body) {
    auto const captured = captureChild([&body] {
        try {
            body();
        } catch (ZException& e) {
            e.dumpException();
        }
        return 0;
    });
    EXPECT_EQ(captured.status, 0);
    std::string text = captured.err;
    std::string const before = " Thread: ";
    for (auto at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
        at += before.size();
        text.replace(at, text.find_first_not_of("-0123456789", at) - at, "#");
    }
    return text;
}

/// Runs `body` and gives name and number of the exception of the library that it throws, and the
/// system's code where it has one; an empty name when it throws none.
template <class Body>
[[nodiscard]] Report thrownBy(Body const& body) {
    try {
        body();
    } catch (ZException const& e) {
        Report report{e.getName(), static_cast<int>(e.getCode()), {}};
        if (auto const* const state = dynamic_cast<ZInvalidResourceStateException const*>(&e))
            report.inserts.emplace_back(state->value());
        if (auto const* const resource = dynamic_cast<ZResourceException const*>(&e))
            report.inserts.push_back(std::to_string(resource->resourceRc()));
        if (auto const* const thread = dynamic_cast<ZThreadException const*>(&e))
            report.inserts.push_back(std::to_string(thread->threadRc()));
        if (auto const* const condition = dynamic_cast<ZConditionException const*>(&e))
            report.inserts.push_back(std::to_string(condition->conditionRc()));
        return report;
    }
    return {"", 0, {}};
}

}  // namespace testsupport

#endif
