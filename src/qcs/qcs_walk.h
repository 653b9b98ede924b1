/// Walking NUL-terminated text by whole characters.
#ifndef QCS_QCS_WALK_H
#define QCS_QCS_WALK_H

#include <bitset>

#include "qcs/qcs_codec.h"

namespace qcs {

/// A byte that a single-byte codeset does not define is a character that equals only itself: where
/// characters begin and end is beyond doubt there.
constexpr CodePoint firstUndefinedByte = 0x200000;

/// The character at `p`, which has `n` bytes left, no NUL the first of them.
template <class Codec>
Character characterAt(Codec const& codec, char const* p, std::size_t n) {
    Character const here = codec.decode(p, n);
    if (here.length != 0 || codec.maxLength() > 1) return here;
    return {firstUndefinedByte + static_cast<unsigned char>(*p), 1};
}

/// A place in a text. True while it stands on a character; false at the end of the text and at a
/// malformed character.
template <class Codec>
class Walk {
  public:
    Walk(Codec const& textCodec, char const* text) : codec(textCodec), at(text) { look(); }

    explicit operator bool() const { return here.length != 0; }
    [[nodiscard]] char const* place() const { return at; }
    [[nodiscard]] CodePoint code() const { return here.code; }
    [[nodiscard]] unsigned length() const { return here.length; }
    void step() {
        at += here.length;
        look();
    }

  private:
    void look() { here = *at == 0 ? malformed : characterAt(codec, at, longestCharacter); }

    Codec const& codec;
    char const* at;
    Character here = malformed;
};

/// A set of characters, given as a text.
template <class Codec>
class CharacterSet {
  public:
    CharacterSet(Codec const& setCodec, char const* set) : codec(setCodec), text(set) {
        for (Walk<Codec> walk(codec, text); walk; walk.step()) {
            if (walk.code() < ascii.size())
                ascii.set(walk.code());
            else
                hasOthers = true;
        }
    }

    [[nodiscard]] bool contains(CodePoint code) const {
        if (code < ascii.size()) return ascii[code];
        if (!hasOthers) return false;
        Walk<Codec> walk(codec, text);
        while (walk && walk.code() != code)
            walk.step();
        return static_cast<bool>(walk);
    }

  private:
    Codec const& codec;
    char const* text;
    std::bitset<128> ascii;
    bool hasOthers = false;
};

/// Steps over whole characters from `from` until `target` is reached or passed, both in one text
/// and `from` where a character begins. Null when a malformed character is met on the way.
template <class Codec>
char const* walkTo(Codec const& codec, char const* from, char const* target) {
    if (codec.maxLength() == 1) return target;
    while (from < target) {
        from += asciiRun(from, static_cast<std::size_t>(target - from));
        if (from == target) break;
        Walk<Codec> const walk(codec, from);
        if (!walk) return nullptr;
        from += walk.length();
    }
    return from;
}

}  // namespace qcs

#endif
