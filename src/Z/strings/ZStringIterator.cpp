#include "Z/ZStringIterator.h"

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "Z/utility/ascii.h"

namespace {

constexpr char sourceName[] = "src/Z/ZStringIterator";

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
    if (position == nullptr) return nullptr;
    unsigned int const size = characterLength();
    target.clear();
    // Nearly all characters: append() of one byte looks for no NUL.
    if (size == 1)
        target.append(*position);
    else
        target.append(position, size);
    position += size;
    return &target;
}

unsigned int ZStringIterator::characterLength() const {
    if (*position == '\0') return 0;
    // No codeset served has a byte below 0x80 within a character.
    if (mbMax == 1 || zisAscii(*position)) return 1;
    auto const passed = static_cast<unsigned int>(position - source->getChars());
    int const size = zmblen(source->getCodesetHandle(), position, source->getLength() - passed);
    if (size < 0) zraise(ZQCSMBLenException(), sourceName, __LINE__);
    return static_cast<unsigned int>(size);
}

void ZStringIterator::reset() { position = source->getChars(); }
