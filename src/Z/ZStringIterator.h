/// Walking over the characters of a string.
#ifndef Z_ZSTRINGITERATOR_H
#define Z_ZSTRINGITERATOR_H

#include "Z/ztags.h"

#include "Z/ZAbstractMutableString.h"
#include "Z/ZIterator.h"
#include "Z/zexport.h"

class ZLCConstString;
class ZLCString;
class ZUTF8ConstString;
class ZUTF8String;

/// Gives the characters of a string one by one, none of them split, in a string that the caller
/// supplies. Source and target outlive the iterator; the source stays unchanged while it is walked.
class ZFC_API ZStringIterator : public ZAbstractIterator {
  public:
    // The families of source and target always match.
    ZStringIterator(ZLCString const& source, ZLCString& target);
    ZStringIterator(ZLCConstString const& source, ZLCString& target);
    ZStringIterator(ZUTF8String const& source, ZUTF8String& target);
    ZStringIterator(ZUTF8ConstString const& source, ZUTF8String& target);
    /// Stands where the other one stands and shares its source and target.
    ZStringIterator(ZStringIterator const& other) = default;
    ZStringIterator& operator=(ZStringIterator const&) = delete;

    // in slot order: do not sort
    ~ZStringIterator() override;
    [[nodiscard]] ZStringIterator* clone() const override;
    /// Whether a character is left.
    [[nodiscard]] bool hasMore() override;
    /// The target, holding the next character; at the end, holding empty text. It stays the
    /// caller's and changes with the next call. A malformed character raises ZQCSMBLenException
    /// (message 46); the iterator stays in front of it.
    ZAbstractMutableString* getNext() override;
    /// Back to the first character.
    void reset() override;

  private:
    [[nodiscard]] unsigned int characterLength() const;

    char const* position;            // next character; null when the source had no text
    ZAbstractString const* source;   // the string walked; not owned
    ZAbstractMutableString& target;  // receives each character; not owned
    int mbMax;  // greatest length of a character of the local codeset; 0 with UTF-8 strings
};

#endif
