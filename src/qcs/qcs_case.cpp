/// Comparing without regard to case, and case mapping in place.
#include <algorithm>
#include <limits>

#include "qcs/qcs_codeset.h"
#include "qcs/qcs_locale.h"
#include "qcs/qcs_walk.h"

namespace qcs {
namespace {

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

/// One of two texts that are compared, at most `left` more bytes of it.
struct Side {
    char const* at;
    std::size_t left;

    [[nodiscard]] bool ended() const { return left == 0 || *at == 0; }
    void advance(unsigned bytes) {
        at += bytes;
        left -= bytes;
    }
};

template <class Codec>
Character lookAt(Codec const& codec, Side const& side) {
    return side.ended() ? malformed : characterAt(codec, side.at, side.left);
}

int compareBytes(Side const& a, Side const& b) {
    if (a.ended() || b.ended()) return static_cast<int>(b.ended()) - static_cast<int>(a.ended());
    // It ends at a NUL by itself, so `left` may say more than there is.
    return strncmp(a.at, b.at, std::min(a.left, b.left));
}

/// Where either text is at its end or malformed, the bytes decide.
template <class Codec>
int compareIgnoringCase(Codec const& codec, Side a, Side b) {
    for (;;) {
        Character const first = lookAt(codec, a);
        Character const second = lookAt(codec, b);
        if (first.length == 0 || second.length == 0) return compareBytes(a, b);
        // Mostly the same in both texts, and then no case has to be looked up.
        if (first.code != second.code) {
            // By lower case, as POSIX has it for strcasecmp(): it decides how letters stand to "_"
            // and "[".
            CodePoint const lowerFirst = lowerCase(first.code);
            CodePoint const lowerSecond = lowerCase(second.code);
            if (lowerFirst != lowerSecond) return lowerFirst < lowerSecond ? -1 : 1;
        }
        a.advance(first.length);
        b.advance(second.length);
    }
}

int compared(qcs_cs_handle cs, char const* a, char const* b, std::size_t n) {
    Side const first{a != nullptr ? a : "", n};
    Side const second{b != nullptr ? b : "", n};
    if (findCodeset(cs) == nullptr) return compareBytes(first, second);
    return withCodec(cs, 0,
                     [&](auto const& codec) { return compareIgnoringCase(codec, first, second); });
}

using CaseMapping = CodePoint (*)(CodePoint);

template <class Codec>
void mapCase(Codec const& codec, char* s, CaseMapping mapping) {
    std::array<char, longestCharacter> mapped{};
    for (Walk<Codec> walk(codec, s); walk; walk.step()) {
        CodePoint const other = mapping(walk.code());
        if (other == walk.code()) continue;
        // Another length would move the text behind, which has no room for it; 0: the codeset lacks
        // it.
        if (codec.encode(other, mapped.data()) != walk.length()) continue;
        // The walk has read this character and its length stays, so it may change under it.
        memcpy(s + (walk.place() - s), mapped.data(), walk.length());
    }
}

char* mapped(qcs_cs_handle cs, char* s, CaseMapping mapping) {
    if (s == nullptr) return s;
    return withCodec(cs, s, [=](auto const& codec) {
        mapCase(codec, s, mapping);
        return s;
    });
}

}  // namespace
}  // namespace qcs

int qcs_stricmp(qcs_cs_handle cs, qcs_loc_handle, char const* a, char const* b) {
    return qcs::compared(cs, a, b, qcs::unlimited);
}

int qcs_strnicmp(qcs_cs_handle cs, qcs_loc_handle, char const* a, char const* b, unsigned int n) {
    return qcs::compared(cs, a, b, n);
}

char* qcs_strupper(qcs_cs_handle cs, qcs_loc_handle, char* s) {
    return qcs::mapped(cs, s, qcs::upperCase);
}

char* qcs_strlower(qcs_cs_handle cs, qcs_loc_handle, char* s) {
    return qcs::mapped(cs, s, qcs::lowerCase);
}
