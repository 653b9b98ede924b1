#include "Z/ZAbstractConstString.h"

#include "Z/ZException.h"

namespace {

constexpr char sourceName[] = "src/Z/ZAbstractConstString";

}  // namespace

char const* const ZAbstractConstString::zemptyString = "";

ZAbstractConstString::~ZAbstractConstString() = default;

void ZAbstractConstString::setChars(ZAbstractString const& other) {
    // Kept: text of the other family is refused without a word, since a view cannot convert.
    if (isOfOtherFamily(other)) return;
    *this = other.getChars();
}

void ZAbstractConstString::raiseTooLong() { zraise(ZOutOfMemoryException(), sourceName, __LINE__); }
