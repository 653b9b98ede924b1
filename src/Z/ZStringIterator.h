/// Walking over the characters of a string.
#ifndef Z_ZSTRINGITERATOR_H
#define Z_ZSTRINGITERATOR_H

#include "Z/ztags.h"

#include <type_traits>

#include "Z/ZAbstractMutableString.h"
#include "Z/ZIterator.h"
#include "Z/zexport.h"

class ZLCConstString;
class ZLCString;
class ZUTF8ConstString;
class ZUTF8String;

namespace zfc::strings {

/// Whether the type is one of the two.
template <class String, class Owned, class View>
inline constexpr bool isOneOf =
    std::is_convertible_v<String*, Owned const*> || std::is_convertible_v<String*, View const*>;

/// What would be walked is no string that stays: a temporary, or one that conversion into the other
/// family would make.
template <class Source, class Target>
using IfNotWalkable = std::enable_if_t<
    !std::is_lvalue_reference_v<Source> ||
        !(std::is_convertible_v<Target*, ZLCString*>
              ? isOneOf<std::remove_reference_t<Source>, ZLCString, ZLCConstString>
              : isOneOf<std::remove_reference_t<Source>, ZUTF8String, ZUTF8ConstString>),
    int>;

}  // namespace zfc::strings

/// Gives the characters of a string one by one, none of them split, in a string that the caller
/// supplies. Source and target outlive the iterator; the source stays unchanged while it is walked.
class ZFC_API ZStringIterator : public ZAbstractIterator {
  public:
    /// The families of source and target always match.
    ZStringIterator(ZLCString const& source, ZLCString& target);
    ZStringIterator(ZLCConstString const& source, ZLCString& target);
    ZStringIterator(ZUTF8String const& source, ZUTF8String& target);
    ZStringIterator(ZUTF8ConstString const& source, ZUTF8String& target);
    template <class Source, class Target, zfc::strings::IfNotWalkable<Source, Target> = 0>
    ZStringIterator(Source&& source, Target& target) = delete;
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
    /// (message 46); the iterator stays in front of it. In a codeset of single bytes each byte is a
    /// character, also one that the codeset does not define: nothing is raised.
    ZAbstractMutableString* getNext() override;
    /// Back to the first character.
    void reset() override;

  private:
    ZAbstractMutableString* getOther();
    ZAbstractMutableString* getAny();
    [[nodiscard]] unsigned int characterLength() const;

    char const* position;            // next character; null when the source had no text
    ZAbstractString const* source;   // the string walked; not owned
    ZAbstractMutableString& target;  // receives each character; not owned
    int mbMax;  // greatest length of a character of the local codeset; 0 with UTF-8 strings
};

#endif
