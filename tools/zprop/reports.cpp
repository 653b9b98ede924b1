#include "zprop/reports.h"

#include "Z/ZException.h"
#include "Z/ZMessage.h"
#include "zprop/failure.h"

namespace zprop {
namespace {

/// All that is no exception of the library is left to its own service.
class Reports final : public ZMessageService {
  public:
    void outputMessage(char const* file, int line, int number, int count, ZLCString const* s1,
                       ZLCString const* s2, ZLCString const* s3, ZLCString const* s4,
                       ZLCString const* s5, ZLCString const* s6) const override {
        defaultMessageService()->outputMessage(file, line, number, count, s1, s2, s3, s4, s5, s6);
    }
    void outputMessageUTF8(char const* file, int line, int number, int count, ZUTF8String const* s1,
                           ZUTF8String const* s2, ZUTF8String const* s3, ZUTF8String const* s4,
                           ZUTF8String const* s5, ZUTF8String const* s6) const override {
        defaultMessageService()->outputMessageUTF8(file, line, number, count, s1, s2, s3, s4, s5,
                                                   s6);
    }
    void outputException(ZException& e) const override {
        Failure const failure = failureOf(e);
        for (std::string const& message : failure.messages())
            warn("warning: " + message);
    }
    void outputException(ZZException const* e, va_list args) const override {
        defaultMessageService()->outputException(e, args);
    }
};

}  // namespace

void tellReports() {
    static Reports const reports;
    ZMessageService::setMessageService(&reports);
}

}  // namespace zprop
