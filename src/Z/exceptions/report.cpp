#include "Z/exceptions/report.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <exception>
#include <mutex>

#include "Z/ZLCString.h"
#include "Z/ZMessageParts.h"
#include "Z/utility/cancellation_off.h"
#include "qcs/qcs.h"

namespace {

constexpr char sourceName[] = "src/Z/ZException";

template <class Report>
void undisturbed(Report const& report) noexcept {
    ZCancellationOff const whileWriting;  // writing is a cancellation point
    try {
        report();
    } catch (...) {
        // The report is what could be done; there is nobody left to tell.
    }
}

/// `insert` may be null: then the message has none.
void outputMessage(char const* source, int line, Message message, ZLCString const* insert) {
    int const inserts = insert == nullptr ? 0 : 1;
    ZMessageService::messageService()->outputMessage(source, line, numberOf(message), inserts,
                                                     insert, nullptr, nullptr, nullptr, nullptr,
                                                     nullptr);
}

// In the static block of thread storage: reached without the allocation that a library loaded late
// would need for its first access, so that a report of exhausted memory still works.
[[gnu::tls_model("initial-exec")]] thread_local ZReportInserts const* currentInserts = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local ZTextCatcher* currentCatcher = nullptr;

std::terminate_handler handlerBefore = nullptr;

/// Reports what nobody has caught, and goes on as the program had planned.
void reportAndTerminate() {
    if (std::current_exception() != nullptr) zreturned(sourceName, __LINE__, [] { throw; });
    handlerBefore();
    std::abort();
}

}  // namespace

void zreportFailure(char const* source, int line, Message message, int rc) noexcept {
    undisturbed([&] {
        ZLCString const code(rc);
        outputMessage(source, line, message, &code);
    });
}

void zreportUnknownException(char const* source, int line) noexcept {
    undisturbed([&] { outputMessage(source, line, Message::unknownException, nullptr); });
}

void zreportException(ZException& exception) noexcept {
    undisturbed([&] { exception.dumpException(); });
}

void zreportAliasFault(char const* source, int line) noexcept {
    std::array<char, PATH_MAX> path{};
    std::array<char, 80> text{};
    int number = 0;
    if (qcs_alias_fault(path.data(), path.size(), text.data(), text.size(), &number) == 0) return;
    undisturbed([&] {
        ZPropertiesIOException unread(path.data(), "read()", EFBIG);
        ZPropertiesInvalidDataException damaged(path.data(), text.data(), number);
        ZException& fault = number == 0 ? static_cast<ZException&>(unread) : damaged;
        fault.addLocation(source, static_cast<unsigned long>(line));
        fault.dumpException();
    });
}

ZReportScope::ZReportScope(ZReportInserts const& inserts) noexcept : outer(currentInserts) {
    currentInserts = &inserts;
}

ZReportScope::~ZReportScope() { currentInserts = outer; }

ZReportInserts const* ZReportScope::find(ZZException const* exception) noexcept {
    if (currentInserts == nullptr || currentInserts->exception != exception) return nullptr;
    return currentInserts;
}

ZTextCatcher::ZTextCatcher(ZException const& exception) noexcept
    : wanted(&exception), outer(currentCatcher) {
    currentCatcher = this;
}

ZTextCatcher::~ZTextCatcher() { currentCatcher = outer; }

bool ZTextCatcher::caught(ZZException const& exception, va_list inserts) {
    if (currentCatcher == nullptr || currentCatcher->wanted != &exception) return false;
    currentCatcher->text = ZMessageParts(exception, inserts).getText();
    return true;
}

ZLCString zmessageText(ZException const& exception) {
    ZTextCatcher const catcher(exception);
    // Only print() knows the inserts, and it changes nothing. What prints in another way than the
    // classes here do would report instead of telling.
    if (dynamic_cast<ZZException const*>(&exception) != nullptr)
        const_cast<ZException&>(exception).print();
    return catcher.getText();
}

void zreportUncaught() {
    static std::once_flag once;
    std::call_once(once, [] { handlerBefore = std::set_terminate(reportAndTerminate); });
}
