#include "Z/ZAbstractConstString.h"

#include <climits>
#include <cstring>

#include "Z/ZException.h"

namespace {

constexpr char sourceName[] = "src/Z/ZAbstractConstString";

}  // namespace

char const* const ZAbstractConstString::zemptyString = "";

ZAbstractConstString::~ZAbstractConstString() = default;

char const* ZAbstractConstString::getChars() const { return chars; }

void ZAbstractConstString::setChars(ZAbstractString const& other) {
    // Kept: text of the other family is refused without a word, since a view cannot convert.
    if (isOfOtherFamily(other)) return;
    *this = other.getChars();
}

unsigned int ZAbstractConstString::getLength() const {
    // 0 means not measured too: an empty text is looked at each time, which costs a byte.
    if (cachedLength == 0 && *chars != '\0') {
        std::size_t const measured = strlen(chars);
        // Not even the length of UINT_MAX: whoever copies the text has to count its NUL.
        if (measured >= UINT_MAX) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
        cachedLength = static_cast<unsigned int>(measured);
    }
    return cachedLength;
}
