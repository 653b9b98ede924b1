/// Counting, searching, splitting and copying text by whole characters.
#include <algorithm>

#include "qcs/qcs_codeset.h"
#include "qcs/qcs_walk.h"

namespace qcs {
namespace {

char const* textOf(char const* s) { return s != nullptr ? s : ""; }

char* writable(char const* place) {  // as ISO C does: const text in, plain pointer out
    return const_cast<char*>(place);
}

template <class Body>
char* found(qcs_cs_handle cs, Body&& body) {
    char const* const none = nullptr;
    return writable(withCodec(cs, none, body));
}

template <class Codec>
unsigned countCharacters(Codec const& codec, char const* s) {
    char const* const end = s + strlen(s);
    unsigned count = 0;
    for (;;) {
        // An ASCII byte is a character, in all codesets.
        auto const run = static_cast<unsigned>(asciiRun(s, static_cast<std::size_t>(end - s)));
        count += run;
        Walk<Codec> const walk(codec, s + run);
        if (!walk) return count;
        ++count;
        s += run + walk.length();
    }
}

/// The bytes are looked for as such; a hit counts where a character begins.
template <class Codec>
char const* findText(Codec const& codec, char const* s, char const* sub) {
    char const* const subEnd = sub + strlen(sub);
    // Malformed: there are no characters to look for.
    if (walkTo(codec, sub, subEnd) != subEnd) return nullptr;
    char const* hit = strstr(s, sub);
    while (hit != nullptr) {
        // On from where the last walk ended, so that many false hits do not make it quadratic.
        s = walkTo(codec, s, hit);
        // Past the hit: it began within a character.
        if (s == nullptr || s == hit) return s;
        hit = strstr(s, sub);
    }
    return nullptr;
}

template <class Codec>
char const* findLast(Codec const& codec, char const* s, CodePoint code) {
    char const* last = nullptr;
    Walk<Codec> walk(codec, s);
    for (; walk; walk.step()) {
        if (walk.code() == code) last = walk.place();
    }
    return code == 0 && *walk.place() == 0 ? walk.place() : last;
}

template <class Codec>
char const* findFirst(Codec const& codec, char const* s, CodePoint code) {
    std::array<char, longestCharacter + 1> bytes{};
    // strstr() is the fastest search there is; where a character has several spellings, it would
    // find one.
    if (code != 0 && codec.isOneToOne())
        return codec.encode(code, bytes.data()) > 0 ? findText(codec, s, bytes.data()) : nullptr;
    Walk<Codec> walk(codec, s);
    while (walk && walk.code() != code)
        walk.step();
    return walk || (code == 0 && *walk.place() == 0) ? walk.place() : nullptr;
}

/// A wide character as a code point; `body` is asked only when it is one.
template <class Body>
char* findWide(qcs_cs_handle cs, int wide, Body&& body) {
    auto const code = static_cast<CodePoint>(wide);
    if (wide < 0 || wide > 0xFFFF || isSurrogate(code)) return nullptr;
    return found(cs, [&](auto const& codec) { return body(codec, code); });
}

enum class In { set, complement };

/// The first place from `s` on whose character is not in the set (its complement).
template <class Codec>
char const* skip(Codec const& codec, char const* s, CharacterSet<Codec> const& set, In in) {
    for (;;) {
        // ASCII needs no decoding where it is itself.
        auto const isAscii = [](unsigned char byte) { return byte > 0 && byte < 0x80; };
        while (codec.isAsciiExact() && isAscii(static_cast<unsigned char>(*s)) &&
               set.contains(static_cast<unsigned char>(*s)) == (in == In::set))
            ++s;
        Walk<Codec> const walk(codec, s);
        if (!walk || set.contains(walk.code()) != (in == In::set)) return s;
        s += walk.length();
    }
}

template <class Codec>
unsigned spanLength(Codec const& codec, char const* s, char const* set, In in) {
    return static_cast<unsigned>(skip(codec, s, CharacterSet<Codec>(codec, set), in) - s);
}

/// Cuts the next token off the front of `rest`.
template <class Codec>
char* takeToken(Codec const& codec, char*& rest, char const* delims) {
    CharacterSet<Codec> const set(codec, delims);
    char* const token = writable(skip(codec, rest, set, In::set));
    char const* const end = skip(codec, token, set, In::complement);
    // Looked at before its first byte becomes the NUL.
    Walk<Codec> const delimiter(codec, end);
    rest = writable(end);
    if (delimiter) {
        rest += delimiter.length();
        *writable(end) = 0;
    } else {
        rest += strlen(rest);  // a malformed character: no delimiter can be known behind it
    }
    return *token != 0 ? token : nullptr;
}

/// Bytes of `s` that a copy of at most `n` takes without cutting a character.
template <class Codec>
std::size_t wholeBytes(Codec const& codec, char const* s, std::size_t n) {
    std::size_t const length = strnlen(s, n);
    std::size_t taken = asciiRun(s, length);
    while (taken < length) {
        // The walk may look beyond `n`, never beyond the NUL: only so a cut character is known as
        // one.
        std::size_t const next = std::max(Walk<Codec>(codec, s + taken).length(), 1U);
        if (next > length - taken) break;
        taken += next;
    }
    return taken;
}

std::size_t copiedBytes(qcs_cs_handle cs, char const* src, unsigned n) {
    return withCodec(cs, strnlen(src, n),
                     [=](auto const& codec) { return wholeBytes(codec, src, n); });
}

}  // namespace
}  // namespace qcs

unsigned int qcs_strcount(qcs_cs_handle cs, char const* s) {
    s = qcs::textOf(s);
    return qcs::withCodec(cs, 0U,
                          [=](auto const& codec) { return qcs::countCharacters(codec, s); });
}

char* qcs_strchr(qcs_cs_handle cs, char const* s, int wide) {
    return qcs::findWide(cs, wide, [s](auto const& codec, qcs::CodePoint code) {
        return qcs::findFirst(codec, qcs::textOf(s), code);
    });
}

char* qcs_strrchr(qcs_cs_handle cs, char const* s, int wide) {
    return qcs::findWide(cs, wide, [s](auto const& codec, qcs::CodePoint code) {
        return qcs::findLast(codec, qcs::textOf(s), code);
    });
}

char* qcs_strstr(qcs_cs_handle cs, char const* s, char const* sub) {
    s = qcs::textOf(s);
    sub = qcs::textOf(sub);
    return qcs::found(cs, [=](auto const& codec) { return qcs::findText(codec, s, sub); });
}

char* qcs_strpbrk(qcs_cs_handle cs, char const* s, char const* set) {
    s = qcs::textOf(s);
    unsigned const span = qcs_strcspn(cs, s, set);
    return qcs::found(
        cs, [=](auto const& codec) { return qcs::Walk(codec, s + span) ? s + span : nullptr; });
}

unsigned int qcs_strspn(qcs_cs_handle cs, char const* s, char const* set) {
    s = qcs::textOf(s);
    set = qcs::textOf(set);
    return qcs::withCodec(
        cs, 0U, [=](auto const& codec) { return qcs::spanLength(codec, s, set, qcs::In::set); });
}

unsigned int qcs_strcspn(qcs_cs_handle cs, char const* s, char const* set) {
    s = qcs::textOf(s);
    set = qcs::textOf(set);
    return qcs::withCodec(cs, 0U, [=](auto const& codec) {
        return qcs::spanLength(codec, s, set, qcs::In::complement);
    });
}

char* qcs_strtok(qcs_cs_handle cs, char* s, char const* delims, char** state) {
    if (state == nullptr) return nullptr;
    if (s == nullptr) s = *state;
    if (s == nullptr) return nullptr;
    delims = qcs::textOf(delims);
    char* token = nullptr;
    qcs::withCodec(cs, 0, [&](auto const& codec) {
        token = qcs::takeToken(codec, s, delims);
        return 0;
    });
    *state = s;
    return token;
}

char* qcs_strncat(qcs_cs_handle cs, char* dst, char const* src, unsigned int n) {
    if (dst == nullptr || src == nullptr) return dst;
    std::size_t const bytes = qcs::copiedBytes(cs, src, n);
    char* const end = dst + strlen(dst);
    memcpy(end, src, bytes);
    end[bytes] = 0;
    return dst;
}

char* qcs_strncpy(qcs_cs_handle cs, char* dst, char const* src, unsigned int n) {
    if (dst == nullptr) return dst;
    src = qcs::textOf(src);
    std::size_t const bytes = qcs::copiedBytes(cs, src, n);
    memcpy(dst, src, bytes);
    memset(dst + bytes, 0, n - bytes);
    return dst;
}
