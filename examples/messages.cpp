// A message service of the program's own: every report of the library becomes one line of a log.
#include <cstdarg>
#include <iostream>
#include <stdexcept>

#include "Z/ZException.h"
#include "Z/ZMessage.h"
#include "Z/ZMessageParts.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZUTF8String.h"
#include "Z/ZWorkerPool.h"
#include "Z/zstd.h"

namespace {

// [service]
class Log : public ZMessageService {
  public:
    void outputException(ZException& e) const override { e.print(); }  // comes to the next one
    void outputException(ZZException const* e, va_list inserts) const override {
        ZMessageParts const parts(*e, inserts);
        std::cout << "error " << parts.getNumber() << ": " << parts.getText().getChars() << "\n";
    }
    void outputMessage(char const* /*file*/, int /*line*/, int number, int count,
                       ZLCString const* s1, ZLCString const* /*s2*/, ZLCString const* /*s3*/,
                       ZLCString const* /*s4*/, ZLCString const* /*s5*/,
                       ZLCString const* /*s6*/) const override {
        std::cout << "message " << number;
        if (count > 0 && s1 != nullptr) std::cout << ": " << s1->getChars();
        std::cout << "\n";
    }
    void outputMessageUTF8(char const* /*file*/, int /*line*/, int number, int /*count*/,
                           ZUTF8String const* /*s1*/, ZUTF8String const* /*s2*/,
                           ZUTF8String const* /*s3*/, ZUTF8String const* /*s4*/,
                           ZUTF8String const* /*s5*/, ZUTF8String const* /*s6*/) const override {
        std::cout << "message " << number << "\n";
    }
};
// [/service]

Log const processLog;  // lives as long as the process: reports may come until its end

}  // namespace

int main() {
    // [install]
    ZMessageService::setMessageService(&processLog);  // not owned
    zreportUncaught();  // what nobody catches is reported as well, before the process ends
    // [/install]
    // [catch]
    try {
        ZStanzaFileProperties const settings("broken.conf", 1);
    } catch (ZPropertiesInvalidDataException const& e) {  // what can be told apart
        std::cout << "line " << e.badline() << " of " << e.propFile() << "\n";
    } catch (ZException& e) {  // all others of the library
        e.dumpException();     // to the message service
    }
    // [/catch]
    // [service-calls]
    ZWorkerPool pool(1);
    pool.run([] { ZStanzaFileProperties const settings("gone.conf", 1); });  // a job that fails
    pool.waitForAll();
    // [/service-calls]
    // [translate]
    try {
        zfc::translate([] { ZStanzaFileProperties const settings("gone.conf", 1); });
    } catch (std::runtime_error const& e) {
        std::cout << e.what() << "\n";
    }
    // [/translate]
}
