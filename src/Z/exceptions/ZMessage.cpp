#include "Z/ZMessage.h"

#include <pthread.h>
#include <stdio.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZMessageParts.h"
#include "Z/utility/cancellation_off.h"

namespace {

pthread_once_t initOnce = PTHREAD_ONCE_INIT;

/// A report, written to standard error at its end in one piece: neither other threads nor other
/// processes with the same standard error get between its lines. Only a long one takes memory, and
/// where there is none it goes out in pieces.
class ReportText {
  public:
    ReportText() = default;
    ~ReportText() {
        ZCancellationOff const whileWriting;  // which is a cancellation point
        flush();
        if (block != fixed.data()) std::free(block);
    }
    ReportText(ReportText const&) = delete;
    ReportText& operator=(ReportText const&) = delete;

    void add(char const* text, std::size_t length) {
        if (length > capacity - used && !grow(length)) {
            flush();
            if (length > capacity) return static_cast<void>(fwrite(text, 1, length, stderr));
        }
        std::memcpy(block + used, text, length);
        used += length;
    }
    ReportText& operator<<(char const* text) {
        if (text == nullptr) text = "(null)";
        add(text, std::strlen(text));
        return *this;
    }
    ReportText& operator<<(int number) {
        std::array<char, 12> digits{};
        std::to_chars(digits.data(), digits.data() + digits.size() - 1, number);
        return *this << digits.data();
    }

  private:
    void flush() {
        if (used != 0) fwrite(block, 1, used, stderr);
        used = 0;
    }
    bool grow(std::size_t length) {
        std::size_t const wanted = 2 * capacity + length;
        bool const isFixed = block == fixed.data();
        auto* const grown = static_cast<char*>(std::realloc(isFixed ? nullptr : block, wanted));
        if (grown == nullptr) return false;
        if (isFixed) std::memcpy(grown, block, used);
        block = grown;
        capacity = wanted;
        return true;
    }

    std::array<char, 1024> fixed{};
    char* block = fixed.data();  // or memory that is freed at the end
    std::size_t capacity = fixed.size();
    std::size_t used = 0;
};

void addThread(ReportText& report) { report << " Thread: " << ZMessageParts::getThread() << "\n"; }

void addTo(void* report, char const* piece, unsigned int length) {
    static_cast<ReportText*>(report)->add(piece, length);
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
    ReportText report;
    report << "Exception: " << e->getName() << "\n File: \"" << e->who() << "\" " << e->where()
           << "\n Error: " << static_cast<int>(e->getCode()) << "\n";
    addThread(report);
    report << "NUM_MSGS = " << NUM_MSGS << "\n";
    // Numbers of a program's own exceptions have no text here.
    if (!ZMessageParts(*e, args).putText(addTo, &report))
        report << "No default text defined in ZMessage.cpp for the exception\n";
}

void ZDefaultMessageService::outputMessage(char const* file, int line, int number, int count,
                                           ZLCString const* s1, ZLCString const* s2,
                                           ZLCString const* s3, ZLCString const* s4,
                                           ZLCString const* s5, ZLCString const* s6) const {
    std::array<ZLCString const*, 6> const texts{s1, s2, s3, s4, s5, s6};
    ReportText report;
    report << "Error: " << number << "\n File: \"" << file << "\" " << line << "\n";
    addThread(report);
    if (count < 1) return;
    report << "Additional Information:\n";
    auto const given = std::min(static_cast<std::size_t>(count), texts.size());
    for (std::size_t i = 0; i < given; ++i)
        report << (texts[i] == nullptr ? "" : texts[i]->getChars()) << "\n";
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
