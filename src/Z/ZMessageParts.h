/// What a report of an exception is made of, for message services that render it themselves.
#ifndef Z_ZMESSAGEPARTS_H
#define Z_ZMESSAGEPARTS_H

#include "Z/ztags.h"

#include <array>
#include <cstdarg>

#include "Z/ZException.h"
#include "Z/zexport.h"

class ZLCString;

/// The parts of the report that a service gets in outputException(). They refer to the exception
/// and its inserts, which live as long as that call.
///
///     void MyService::outputException(ZZException const* e, va_list args) const {
///         ZMessageParts const parts(*e, args);
///         log(parts.getNumber(), parts.getText());
///     }
class ZFC_API ZMessageParts {
  public:
    /// No message has more inserts; those behind are left out.
    static constexpr int mostInserts = 16;

    /// `inserts` is left as va_list arguments are: not to be read on. Their kinds are those that
    /// the exception was printed with; one that a service hands on by itself has those that its
    /// default text names.
    ZMessageParts(ZZException const& exception, va_list inserts);

    /// The message number.
    [[nodiscard]] unsigned long getNumber() const { return reported->getCode(); }
    /// The name of the exception's class; not owned by the caller.
    [[nodiscard]] char const* getClassName() const { return reported->getName(); }
    /// The place of the throw; null and 0 before it has one.
    [[nodiscard]] char const* getSource() const { return reported->who(); }
    /// The line of the throw; 0 before it has a place.
    [[nodiscard]] int getLine() const { return reported->where(); }
    /// The number of the calling thread, as reports show it.
    [[nodiscard]] static int getThread();

    /// How many inserts there are, at most mostInserts.
    [[nodiscard]] int getInsertCount() const { return count; }
    /// The kind of an insert. This and the two below raise ZInvalidParameterException (message 22)
    /// for an index beyond the inserts.
    [[nodiscard]] ZZException::InsertKind getInsertKind(int index) const;
    /// The text of an insert, which may be null; null for a number.
    [[nodiscard]] char const* getInsertText(int index) const;
    /// The number of an insert; 0 for a text.
    [[nodiscard]] int getInsertNumber(int index) const;

    /// The default text of the number with the inserts in their places, "(null)" for a null one;
    /// empty when the number has none. Throws ZOutOfMemoryException (message 1).
    [[nodiscard]] ZLCString getText() const;

    /// Hands that text to `put` in pieces, `context` with each. Takes no memory. False when the
    /// number has no text.
    bool putText(void (*put)(void* context, char const* piece, unsigned int length),
                 void* context) const;

  private:
    struct Insert {
        ZZException::InsertKind kind;
        char const* text;
        int number;
    };

    [[nodiscard]] Insert const& insertAt(int index) const;

    ZZException const* reported;
    std::array<Insert, mostInserts> inserts{};
    int count = 0;  // of the inserts
};

#endif
