#include "Z/ZMessage.h"

#include <pthread.h>
#include <stdio.h>

#include <algorithm>
#include <array>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZMessageParts.h"

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

void printThread() { fprintf(stderr, " Thread: %d\n", ZMessageParts::getThread()); }

void writeToStandardError(void* /*context*/, char const* piece, unsigned int length) {
    fwrite(piece, 1, length, stderr);
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
    // Numbers of a program's own exceptions have no text here.
    if (!ZMessageParts(*e, args).putText(writeToStandardError, nullptr))
        fputs("No default text defined in ZMessage.cpp for the exception\n", stderr);
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
