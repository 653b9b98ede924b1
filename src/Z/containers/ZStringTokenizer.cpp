#include "Z/ZStringTokenizer.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

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
    /// The `count` bytes at `text`, behind which three more can be read.
    FewAscii(char const* text, unsigned int count) {
        if (count == 0 || count > 4) return;
        std::uint32_t set = 0;
        std::memcpy(&set, text, sizeof set);
        // Fewer stand in it more than once: the first one where there are no others.
        std::uint32_t const others = UINT32_MAX << (8 * count - 1) << 1;
        set = (set & ~others) | (((set & 0xFF) * ones) & others);
        // The highest bit of each byte: of one that is not ASCII, and of NUL less one.
        if (((set | (set - ones)) & ones << 7) == 0) members = set;
    }

    /// The place behind the bytes from `place` on that are in the set; null when there is no ASCII,
    /// or the set is another one.
    [[nodiscard]] char const* skipMembers(char const* place) const {
        if (members == 0) return nullptr;
        while (contains(*place))
            ++place;
        return asciiAt(place);
    }

    /// The first place from `place` on that is in the set, or at the end of the text; null when
    /// there is another character than ASCII before, or the set is another one.
    [[nodiscard]] char const* findStop(char const* place, char const* end) const {
        if (members == 0) return nullptr;
        while (end - place >= blockSize) {
            unsigned const stops = zfc::utility::placeBits([=](std::size_t i) {
                return (bitOf(contains(place[i])) | bitOf(!isPlain(place[i]))) != 0;
            });
            if (stops != 0) return asciiAt(place + __builtin_ctz(stops));
            place += blockSize;
        }
        while (isPlain(*place) && !contains(*place))
            ++place;
        return asciiAt(place);
    }

  private:
    static constexpr std::ptrdiff_t blockSize = zfc::utility::bitPlaces;

    static char const* asciiAt(char const* place) { return zisAscii(*place) ? place : nullptr; }
    /// ASCII, and not the end of the text.
    static bool isPlain(char byte) { return static_cast<signed char>(byte) > 0; }

    [[nodiscard]] bool contains(char byte) const {
        return (bitOf(byte == at(0)) | bitOf(byte == at(1)) | bitOf(byte == at(2)) |
                bitOf(byte == at(3))) != 0;
    }
    /// For what is asked at once, without a branch.
    static unsigned bitOf(bool truth) { return static_cast<unsigned>(truth); }

    [[nodiscard]] char at(int i) const { return static_cast<char>(members >> 8 * i); }

    // One number, which stays in a register: the set is made for every token. 0: another set.
    std::uint32_t members = 0;
    static constexpr std::uint32_t ones = 0x01010101;
};

FewAscii fewOf(ZAbstractString const& set) {
    std::array<char, 4> room{};
    std::string_view const text(set.getChars(), set.getLength());
    text.copy(room.data(), room.size());
    return {room.data(), set.getLength()};
}

/// The text of the tokenizer's `own` set needs no virtual call, and lies in ample room.
inline FewAscii fewOf(ZAbstractString const& set, ZAbstractMutableString const& own) {
    if (&set != &own) return fewOf(set);
    return {own.ZAbstractMutableString::getChars(), own.ZAbstractMutableString::getLength()};
}

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
    char const* const end = source->getChars() + source->getLength();
    unsigned int size = skipOther(converted, end);
    if (size == 0) {  // else hasMore() has passed the delimiters already
        position += skipAll(converted);
        size = skipOther(converted, end);
    }
    setTarget(size, end);
    position += size;
    return &target;
}

/// The next `size` bytes are the token.
void ZStringTokenizer::setTarget(unsigned int size, char const* end) {
    std::array<char, 16> block;
    if (size > block.size() || end - position < static_cast<std::ptrdiff_t>(block.size()))
        return target.setBytes(position, size);
    // As many for every short token, since how to copy a few bytes would be a branch on their
    // number, predicted wrongly. Every buffer has room for them.
    std::memcpy(block.data(), position, block.size());
    std::memcpy(target.chars, block.data(), block.size());
    target.setLength(size);
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
    if (char const* const stop = fewOf(delims, *delimiters).skipMembers(position))
        return static_cast<unsigned int>(stop - position);
    return checkedStop(zstrspn(source->getCodesetHandle(), position, delims.getChars()));
}

/// Bytes of the token at the position. The text ends at `end`.
unsigned int ZStringTokenizer::skipOther(ZAbstractString const& delims, char const* end) const {
    if (char const* const stop = fewOf(delims, *delimiters).findStop(position, end))
        return static_cast<unsigned int>(stop - position);
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
