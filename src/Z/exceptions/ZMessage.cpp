#include "Z/ZMessage.h"

#include <pthread.h>
#include <stdio.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/exceptions/messages.h"
#include "Z/exceptions/report.h"

namespace {

pthread_once_t initOnce = PTHREAD_ONCE_INIT;

/// Keeps the lines of one report together while several threads report.
class ReportStream {
  public:
    // The lock is recursive: the calls in between take it again.
    ReportStream() { flockfile(stderr); }
    ~ReportStream() { funlockfile(stderr); }
    ReportStream(ReportStream const&) = delete;
    ReportStream& operator=(ReportStream const&) = delete;
};

char const* shown(char const* text) { return text == nullptr ? "(null)" : text; }

void printThread() {
    auto const id = static_cast<int>(static_cast<std::uintptr_t>(pthread_self()));
    fprintf(stderr, " Thread: %d\n", id);
}

/// Writes one insert of a report, in its own kind; nothing when no more was passed.
class InsertWriter {
  public:
    InsertWriter(ZReportInserts const* passed, va_list values) : inserts(passed) {
        // A copy: ISO C leaves the caller's list useless once va_arg() has been applied to it in
        // here.
        va_copy(args, values);
    }
    ~InsertWriter() { va_end(args); }
    InsertWriter(InsertWriter const&) = delete;
    InsertWriter& operator=(InsertWriter const&) = delete;

    void writeNext(ZZException::InsertKind wanted) {
        if (inserts != nullptr && next == inserts->count) return;
        auto const kind = inserts == nullptr ? wanted : inserts->kinds[next];
        ++next;
        if (kind == ZZException::InsertKind::number)
            fprintf(stderr, "%d", va_arg(args, int));
        else
            fputs(shown(va_arg(args, char const*)), stderr);
    }

  private:
    ZReportInserts const* inserts;  // null: the caller vouches for the text's own placeholders
    int next = 0;
    va_list args;
};

void printText(char const* text, InsertWriter& inserts) {
    // Not by vfprintf(): an exception class may bring fewer inserts, or others, than its text
    // names.
    for (; *text != '\0'; ++text) {
        if (*text != '%') {
            fputc(*text, stderr);
            continue;
        }
        ++text;  // the table holds "%s" and "%d" alone
        inserts.writeNext(*text == 'd' ? ZZException::InsertKind::number
                                       : ZZException::InsertKind::text);
    }
}

}  // namespace

std::atomic<ZMessageService const*> ZMessageService::ms_{nullptr};
std::atomic<ZMessageService const*> ZMessageService::dms_{nullptr};

void ZMessageService::init() {
    pthread_once(&initOnce, [] {
        // Never destroyed: destructors report at the very end of the process too.
        ZMessageService const* const service = new ZDefaultMessageService;
        dms_.store(service, std::memory_order_release);
        ms_.store(service, std::memory_order_release);
    });
}

ZMessageService const* ZMessageService::defaultMessageService() {
    if (dms_.load(std::memory_order_acquire) == nullptr) init();
    return dms_.load(std::memory_order_acquire);
}

ZMessageService const* ZMessageService::messageService() {
    if (ms_.load(std::memory_order_acquire) == nullptr) init();
    return ms_.load(std::memory_order_acquire);
}

void ZMessageService::setMessageService(ZMessageService const* service) {
    // First, even where it is not needed: an init() behind the store would put the default back.
    ZMessageService const* const fallback = defaultMessageService();
    ms_.store(service == nullptr ? fallback : service, std::memory_order_release);
}

void ZMessageService::routeZZException(ZZException const* e, va_list args) {
    messageService()->outputException(e, args);
}

ZObject* ZDefaultMessageService::clone() const { return new ZDefaultMessageService; }

void ZDefaultMessageService::outputException(ZZException const* e, va_list args) const {
    ReportStream const stream;
    fprintf(stderr, "Exception: %s\n File: \"%s\" %d\n Error: %d\n", shown(e->getName()),
            shown(e->who()), e->where(), static_cast<int>(e->getCode()));
    printThread();
    fprintf(stderr, "NUM_MSGS = %d\n", NUM_MSGS);
    char const* const text = defaultText(e->getCode());
    // Numbers of a program's own exceptions have no text here.
    if (text == nullptr) {
        fputs("No default text defined in ZMessage.cpp for the exception\n", stderr);
        return;
    }
    InsertWriter inserts(ZReportScope::find(e), args);
    printText(text, inserts);
}

void ZDefaultMessageService::outputMessage(char const* file, int line, int number, int count,
                                           ZLCString const* s1, ZLCString const* s2,
                                           ZLCString const* s3, ZLCString const* s4,
                                           ZLCString const* s5, ZLCString const* s6) const {
    std::array<ZLCString const*, 6> const texts{s1, s2, s3, s4, s5, s6};
    ReportStream const stream;
    fprintf(stderr, "Error: %d\n File: \"%s\" %d\n", number, shown(file), line);
    printThread();
    if (count < 1) return;
    fputs("Additional Information:\n", stderr);
    auto const given = std::min(static_cast<std::size_t>(count), texts.size());
    for (std::size_t i = 0; i < given; ++i)
        fprintf(stderr, "%s\n", texts[i] == nullptr ? "" : texts[i]->getChars());
}

void ZDefaultMessageService::outputMessageUTF8(char const* file, int line, int number, int count,
                                               ZUTF8String const* /*s1*/, ZUTF8String const* /*s2*/,
                                               ZUTF8String const* /*s3*/, ZUTF8String const* /*s4*/,
                                               ZUTF8String const* /*s5*/,
                                               ZUTF8String const* /*s6*/) const {
    // Kept: the texts are not shown. A conversion may need the very codeset that a report is about.
    ZLCString const empty;
    outputMessage(file, line, number, count, &empty, &empty, &empty, &empty, &empty, &empty);
}

void ZDefaultMessageService::outputException(ZException& e) const { e.print(); }
