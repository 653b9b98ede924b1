#include "Z/ZStringTokenizer.h"

#include <memory>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZUTF8String.h"
#include "Z/containers/members.h"
#include "Z/utility/ascii.h"

namespace {

constexpr char sourceName[] = "src/Z/ZStringTokenizer";
constexpr char defaultDelimiters[] = " \t\r\n";

using OwnedString = std::unique_ptr<ZAbstractMutableString>;

bool isUtf8(ZAbstractString const& string) { return string.getCodesetHandle() == zgetUTF8Handle(); }

/// Greatest length of a character when the source is in the local codeset, else 0.
int greatestLocal(ZAbstractString const& source) {
    return source.getCodesetHandle() == zgetLCSHandle() ? zlcs_mb_max() : 0;
}

/// An empty string of the family of `source`.
OwnedString newString(ZAbstractString const& source) {
    if (isUtf8(source)) return std::make_unique<ZUTF8String>();
    return std::make_unique<ZLCString>();
}

/// The same, once the target is known to be of it too.
OwnedString newDelimiters(ZAbstractString const& source, ZAbstractString const& target) {
    if (source.getCodesetHandle() != target.getCodesetHandle())
        zraise(ZUnsupportedException(), sourceName, __LINE__);
    return newString(source);
}

/// A set that conversion has emptied would never split anything.
void requireConverted(ZAbstractString const& converted, ZAbstractString const& original) {
    if (!converted.isEmpty() || original.isEmpty()) return;
    if (isUtf8(converted)) zraise(ZToUTF8Exception(original), sourceName, __LINE__);
    zraise(ZFromUTF8Exception(original), sourceName, __LINE__);
}

/// Delimiters in the codeset of `source`.
class Delimiters {
  public:
    Delimiters(ZAbstractString const& source, ZAbstractString const& given) : used(&given) {
        if (given.getCodesetHandle() == source.getCodesetHandle()) return;
        converted = newString(source);
        converted->setChars(given);
        requireConverted(*converted, given);
        used = converted.get();
    }
    operator ZAbstractString const&() const { return *used; }

  private:
    OwnedString converted;
    ZAbstractString const* used;
};

}  // namespace

ZStringTokenizer::ZStringTokenizer(ZAbstractString const& text, ZAbstractMutableString& token)
    : position(text.getChars()),
      source(&text),
      target(token),
      delimiters(newDelimiters(text, token)),
      mbMax(greatestLocal(text)) {
    delimiters->setChars(defaultDelimiters);
}

ZStringTokenizer::ZStringTokenizer(ZAbstractString const& text, ZAbstractMutableString& token,
                                   ZAbstractString const& delims)
    : position(text.getChars()),
      source(&text),
      target(token),
      delimiters(newDelimiters(text, token)),
      mbMax(greatestLocal(text)) {
    delimiters->setChars(delims);
    requireConverted(*delimiters, delims);
}

ZStringTokenizer::ZStringTokenizer(ZStringTokenizer const& other)
    : ZAbstractIterator(other),
      position(other.position),
      source(other.source),
      target(other.target),
      delimiters(static_cast<ZAbstractMutableString*>(other.delimiters->clone())),
      mbMax(other.mbMax) {}

ZStringTokenizer::~ZStringTokenizer() = default;

ZStringTokenizer* ZStringTokenizer::clone() const { return new ZStringTokenizer(*this); }

bool ZStringTokenizer::hasMore(ZAbstractString const& delims) {
    if (position == nullptr) return false;
    position += skipAll(Delimiters(*source, delims));
    return *position != '\0';
}

bool ZStringTokenizer::hasMore() { return hasMore(*delimiters); }

ZAbstractMutableString* ZStringTokenizer::getNext(ZAbstractString const& delims) {
    if (position == nullptr) return nullptr;
    Delimiters const converted(*source, delims);
    unsigned int size = skipOther(converted);
    if (size == 0) {  // else hasMore() has passed the delimiters already
        position += skipAll(converted);
        size = skipOther(converted);
    }
    target.clear();
    target.append(position, size);
    position += size;
    return &target;
}

ZAbstractMutableString* ZStringTokenizer::getNext() { return getNext(*delimiters); }

void ZStringTokenizer::list(ZArrayList& out) {
    while (hasMore())
        // A clone of each: getNext() fills the same target again and again.
        zfc::containers::appendNew(out, std::unique_ptr<ZObject>(getNext()->clone()));
}

void ZStringTokenizer::reset() { position = source->getChars(); }

/// Bytes of the delimiters from the position on.
unsigned int ZStringTokenizer::skipAll(ZAbstractString const& delims) const {
    return checkedStop(zstrspn(source->getCodesetHandle(), position, delims.getChars()));
}

/// Bytes of the token at the position.
unsigned int ZStringTokenizer::skipOther(ZAbstractString const& delims) const {
    return checkedStop(zstrcspn(source->getCodesetHandle(), position, delims.getChars()));
}

/// The bytes passed, once it is sure that no malformed character stopped the walk.
unsigned int ZStringTokenizer::checkedStop(unsigned int passed) const {
    char const* const stop = position + passed;
    // An ASCII byte, NUL too, is a whole character in every codeset served: nothing malformed
    // there.
    if (mbMax == 1 || zisAscii(*stop)) return passed;
    auto const before = static_cast<unsigned int>(stop - source->getChars());
    if (zmblen(source->getCodesetHandle(), stop, source->getLength() - before) < 0)
        zraise(ZQCSMBLenException(), sourceName, __LINE__);
    return passed;
}
