#include "Z/ZStringIterator.h"

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "Z/utility/ascii.h"

namespace {

constexpr char sourceName[] = "src/Z/ZStringIterator";
constexpr unsigned int longestCharacter = 8;

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
    // Nearly all characters; no codeset served has a byte below 0x80 within one.
    if (at == nullptr || !zisAscii(*at) || *at == '\0') return getOther();
    target.setByte(*at);
    position = at + 1;
    return &target;
}

/// The same for what is not one byte of ASCII.
ZAbstractMutableString* ZStringIterator::getOther() {
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
