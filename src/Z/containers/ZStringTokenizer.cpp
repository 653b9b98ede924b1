#include "Z/ZStringTokenizer.h"

#include <array>
#include <cstring>
#include <memory>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZUTF8String.h"
#include "Z/containers/members.h"
#include "Z/utility/ascii.h"
#include "Z/utility/place_bits.h"

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

/// Up to four ASCII characters, as most delimiters are, to be found without asking the codeset.
class FewAscii {
  public:
    explicit FewAscii(ZAbstractString const& set) {
        unsigned int const count = set.getLength();
        char const* const text = set.getChars();
        if (count == 0 || count > 4) return;
        // Fewer stand in it more than once.
        a = text[0];
        b = text[count > 1 ? 1 : 0];
        c = text[count > 2 ? 2 : 0];
        d = text[count > 3 ? 3 : 0];
        known = isPlain(a) && isPlain(b) && isPlain(c) && isPlain(d);
    }

    /// False when the set is another one.
    [[nodiscard]] bool isKnown() const { return known; }

    /// The place behind the bytes from `at` on that are in the set.
    [[nodiscard]] char const* skipMembers(char const* at) const {
        while (contains(*at))
            ++at;
        return at;
    }

    /// The first place from `at` on that is in the set, at the end of the text, or not ASCII.
    [[nodiscard]] char const* findStop(char const* at, char const* end) const {
        while (end - at >= blockSize) {
            unsigned const stops = zfc::utility::placeBits(
                [=](std::size_t i) { return contains(at[i]) | !isPlain(at[i]); });
            if (stops != 0) return at + __builtin_ctz(stops);
            at += blockSize;
        }
        while (isPlain(*at) && !contains(*at))
            ++at;
        return at;
    }

  private:
    static constexpr std::ptrdiff_t blockSize = zfc::utility::bitPlaces;

    /// ASCII, and not the end of the text.
    static bool isPlain(char byte) { return static_cast<signed char>(byte) > 0; }

    [[nodiscard]] bool contains(char byte) const {
        return (byte == a) | (byte == b) | (byte == c) | (byte == d);
    }

    char a = 0, b = 0, c = 0, d = 0;
    bool known = false;
};

/// Delimiters in the codeset of `source`.
class Delimiters {
  public:
    /// `own` are known to be of it.
    Delimiters(ZAbstractString const& source, ZAbstractString const& given,
               ZAbstractString const& own)
        : used(&given) {
        if (&given == &own || given.getCodesetHandle() == source.getCodesetHandle()) return;
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
    position += skipAll(Delimiters(*source, delims, *delimiters));
    return *position != '\0';
}

bool ZStringTokenizer::hasMore() { return hasMore(*delimiters); }

ZAbstractMutableString* ZStringTokenizer::getNext(ZAbstractString const& delims) {
    if (position == nullptr) return nullptr;
    Delimiters const converted(*source, delims, *delimiters);
    unsigned int size = skipOther(converted);
    if (size == 0) {  // else hasMore() has passed the delimiters already
        position += skipAll(converted);
        size = skipOther(converted);
    }
    target.setBytes(position, size);
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

/// Bytes of the delimiters from the position on. Behind the first character that is not ASCII the
/// codeset is asked.
unsigned int ZStringTokenizer::skipAll(ZAbstractString const& delims) const {
    FewAscii const few(delims);
    char const* const stop = few.isKnown() ? few.skipMembers(position) : position;
    auto const passed = static_cast<unsigned int>(stop - position);
    if (few.isKnown() && zisAscii(*stop)) return passed;
    return checkedStop(passed + zstrspn(source->getCodesetHandle(), stop, delims.getChars()));
}

/// Bytes of the token at the position; the same way.
unsigned int ZStringTokenizer::skipOther(ZAbstractString const& delims) const {
    FewAscii const few(delims);
    char const* const end = source->getChars() + source->getLength();
    char const* const stop = few.isKnown() ? few.findStop(position, end) : position;
    auto const passed = static_cast<unsigned int>(stop - position);
    if (few.isKnown() && zisAscii(*stop)) return passed;
    return checkedStop(passed + zstrcspn(source->getCodesetHandle(), stop, delims.getChars()));
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
