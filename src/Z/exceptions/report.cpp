#include "Z/exceptions/report.h"

#include "Z/ZException.h"
#include "Z/ZMessage.h"
#include "Z/utility/cancellation_off.h"

namespace {

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
void outputMessage(char const* source, int line, int number, ZLCString const* insert) {
    int const inserts = insert == nullptr ? 0 : 1;
    ZMessageService::messageService()->outputMessage(source, line, number, inserts, insert, nullptr,
                                                     nullptr, nullptr, nullptr, nullptr);
}

}  // namespace

void zreportFailure(char const* source, int line, int number, int rc) noexcept {
    undisturbed([&] {
        ZLCString const code(rc);
        outputMessage(source, line, number, &code);
    });
}

void zreportUnknownException(char const* source, int line) noexcept {
    undisturbed([&] { outputMessage(source, line, 19, nullptr); });
}

void zreportException(ZException& exception) noexcept {
    undisturbed([&] { exception.dumpException(); });
}
