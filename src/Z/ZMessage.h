/// The message service: where every report of the library goes.
#ifndef Z_ZMESSAGE_H
#define Z_ZMESSAGE_H

#include "Z/ztags.h"

#include <atomic>
#include <cstdarg>

#include "Z/ZObject.h"

class ZException;
class ZLCString;
class ZUTF8String;
class ZZException;

/// Renders exceptions and messages. A process has one service at a time; an application that wants
/// its own reporting installs its own. Reports may come from any thread, from handlers registered
/// with `atexit` and from static destructors. What a service throws reaches those who print an
/// exception themselves; where a report may not fail it is dropped. ZMessageParts takes a report
/// apart.
class ZFC_API ZMessageService {
  public:
    // in slot order: do not sort
    // Layout: six texts beside their count, where an array would do, because the slots are such.
    /// Reports message `number` of the site `file`, `line` with the first `count` of six texts. A
    /// negative count counts as 0, one above six as 6. Texts may be null.
    virtual void outputMessage(char const* file, int line, int number, int count,
                               ZLCString const* s1, ZLCString const* s2, ZLCString const* s3,
                               ZLCString const* s4, ZLCString const* s5,
                               ZLCString const* s6) const = 0;
    /// The same with texts in UTF-8.
    virtual void outputMessageUTF8(char const* file, int line, int number, int count,
                                   ZUTF8String const* s1, ZUTF8String const* s2,
                                   ZUTF8String const* s3, ZUTF8String const* s4,
                                   ZUTF8String const* s5, ZUTF8String const* s6) const = 0;
    /// Reports any exception of the library; normally by calling its print().
    virtual void outputException(ZException& e) const = 0;
    /// Reports an exception with its inserts: `char const*` for text, `int` for numbers.
    virtual void outputException(ZZException const* e, va_list args) const = 0;

    /// The current service; never null. The first call of any accessor installs the default one.
    [[nodiscard]] static ZMessageService const* messageService();
    /// The library's own service; never null, the same for the process's life.
    [[nodiscard]] static ZMessageService const* defaultMessageService();
    /// Makes `service` the current one, null the default one. The caller keeps owning it and keeps
    /// it alive while it is installed; reports that other threads have begun still use the old one.
    static void setMessageService(ZMessageService const* service);
    /// Hands an exception with its inserts to the current service.
    static void routeZZException(ZZException const* e, va_list args);

    /// Creates the default service and installs it; runs once, whoever asks first.
    static void init();

  protected:
    ~ZMessageService() = default;  // services are not deleted through this interface

  private:
    // Atomic, so that an application may install its service while other threads report. Null until
    // the first use; dms_ never changes after it.
    static std::atomic<ZMessageService const*> ms_;
    static std::atomic<ZMessageService const*> dms_;
};

/// Writes every report to standard error in a fixed layout; the texts are a table in the library.
/// A report takes no heap memory, and the lines of one report are not mixed with another thread's.
class ZFC_API ZDefaultMessageService : public ZObject, public ZMessageService {
  public:
    /// Message numbers lie below this; numbers 0 and 23 have no text.
    static constexpr int NUM_MSGS = 60;

    // in slot order: do not sort
    [[nodiscard]] ZObject* clone() const override;
    void outputException(ZZException const* e, va_list args) const override;
    void outputMessage(char const* file, int line, int number, int count, ZLCString const* s1,
                       ZLCString const* s2, ZLCString const* s3, ZLCString const* s4,
                       ZLCString const* s5, ZLCString const* s6) const override;
    /// Shows as many empty lines as `count` asks for: UTF-8 texts are not converted here.
    void outputMessageUTF8(char const* file, int line, int number, int count, ZUTF8String const* s1,
                           ZUTF8String const* s2, ZUTF8String const* s3, ZUTF8String const* s4,
                           ZUTF8String const* s5, ZUTF8String const* s6) const override;
    void outputException(ZException& e) const override;
};

#endif
