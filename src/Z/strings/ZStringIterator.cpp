#include "Z/ZStringIterator.h"

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"

namespace {

constexpr char sourceName[] = "src/Z/ZStringIterator";
constexpr unsigned int longestCharacter = 8;

/// Whether a character of two UTF-8 bytes, as letters with accents are, stands there.
bool isTwoBytes(char const* at) {
    auto const lead = static_cast<unsigned char>(at[0]);
    // A NUL is no trail byte; below 0xC2 are overlong forms.
    return lead >= 0xC2 && lead < 0xE0 && (static_cast<unsigned char>(at[1]) & 0xC0) == 0x80;
}

}  // namespace

ZStringIterator::ZStringIterator(ZLCString const& text, ZLCString& character)
    : position(text.getChars()), source(&text), target(character), mbMax(zlcs_mb_max()) {}

ZStringIterator::ZStringIterator(ZLCConstString const& text, ZLCString& character)
    : position(text.getChars()), source(&text), target(character), mbMax(zlcs_mb_max()) {}

ZStringIterator::ZStringIterator(ZUTF8String const& text, ZUTF8String& character)
    : position(text.getChars()), source(&text), target(character), mbMax(0) {}

ZStringIterator::ZStringIterator(ZUTF8ConstString const& text, ZUTF8String& character)
    : position(text.getChars()), source(&text), target(character), mbMax(0) {}

ZStringIterator::~ZStringIterator() = default;

ZStringIterator* ZStringIterator::clone() const { return new ZStringIterator(*this); }

bool ZStringIterator::hasMore() { return position != nullptr && *position != '\0'; }

ZAbstractMutableString* ZStringIterator::getNext() {
    char const* const at = position;
    // Nearly all characters; in no codeset served does a byte below 0x80 begin a longer one.
    if (at == nullptr || static_cast<signed char>(*at) <= 0) return getOther();
    target.setByte(*at);
    position = at + 1;
    return &target;
}

/// The same for what is not one byte of ASCII.
ZAbstractMutableString* ZStringIterator::getOther() {
    char const* const at = position;
    if (at == nullptr || mbMax != 0 || !isTwoBytes(at)) return getAny();
    char* const to = target.chars;  // there is room in every buffer
    to[0] = at[0];
    to[1] = at[1];
    target.setLength(2);
    position = at + 2;
    return &target;
}

/// The same for what the codeset layer measures, and for the end.
ZAbstractMutableString* ZStringIterator::getAny() {
    if (position == nullptr) return nullptr;
    unsigned int const size = characterLength();
    target.setBytes(position, size);
    position += size;
    return &target;
}

unsigned int ZStringIterator::characterLength() const {
    if (*position == '\0') return 0;
    if (mbMax == 1) return 1;
    // No more than any character has; the text's own NUL ends one that is cut off.
    int const size = zmblen(source->getCodesetHandle(), position, longestCharacter);
    if (size < 0) zraise(ZQCSMBLenException(), sourceName, __LINE__);
    return static_cast<unsigned int>(size);
}

void ZStringIterator::reset() { position = source->getChars(); }
