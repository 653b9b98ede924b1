// Any bytes as UTF-8, and as UTF-16: taken, refused and measured as a second, slow decoder says;
// and into and out of other codesets, where what comes back is UTF-8 and no buffer is left.
#include <cstring>
#include <string>
#include <vector>

#include "Z/zqcsutil.h"
#include "Z/zutfconvert.h"
#include "fuzz_input.h"
#include "qcs/qcs.h"

namespace {

using fuzz::expect;
using fuzz::Input;

/// Length of the character that `text` begins with as RFC 3629 has it; 0 when there is none.
std::size_t characterLength(std::string_view text) {
    auto const at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (at(0) < 0x80) return 1;
    std::size_t const length = at(0) < 0xC2 ? 0 : at(0) < 0xE0 ? 2 : at(0) < 0xF0 ? 3 : 4;
    if (length == 0 || at(0) > 0xF4 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((at(i) & 0xC0) != 0x80) return 0;
    unsigned int const two = static_cast<unsigned>(at(0)) << 8U | at(1);
    bool const isBad = (two >= 0xE080 && two < 0xE0A0) || (two >= 0xEDA0 && two < 0xEE00) ||
                       (two >= 0xF080 && two < 0xF090) || two >= 0xF490;
    return isBad ? 0 : length;
}

/// Number of characters; -1 when the text is malformed.
int characterCount(std::string_view text) {
    int count = 0;
    while (!text.empty()) {
        std::size_t const length = characterLength(text);
        if (length == 0) return -1;
        text.remove_prefix(length);
        ++count;
    }
    return count;
}

unsigned int sizeOf(std::string const& text) { return static_cast<unsigned int>(text.size()); }

/// What `convert` writes into as much room as is given; nothing when it fails.
template <class Convert>
bool converts(Convert convert, std::string const& in, std::string& out, std::size_t room) {
    std::vector<char> block(room);  // exact, for the sanitizer
    int const length = convert(in.data(), sizeOf(in), block.data(), static_cast<unsigned>(room));
    expect(length <= static_cast<int>(room), "more is written than there is room for");
    if (length >= 0) out.assign(block.data(), static_cast<std::size_t>(length));
    return length >= 0;
}

void checkUtf8(std::string const& text) {
    qcs_cs_handle const cs = qcs_cs_new("UTF-8");
    int const characters = characterCount(text);
    auto const toUtf8 = [&](auto... args) { return qcs_to_utf8(cs, args...); };
    auto const fromUtf8 = [&](auto... args) { return qcs_from_utf8(cs, args...); };
    std::string out;
    expect(converts(toUtf8, text, out, text.size()) == (characters >= 0), "taken or refused");
    expect(characters < 0 || out == text, "another text");
    expect(converts(fromUtf8, text, out, text.size()) == (characters >= 0),
           "taken or refused back");
    if (characters < 0) return;
    expect(qcs_strcount(cs, text.c_str()) == static_cast<unsigned>(characters), "another count");
    if (text.empty()) return;
    expect(!converts(toUtf8, text, out, text.size() - 1), "fits where there is no room");
}

void checkOtherCodeset(char const* name, std::string const& text) {
    qcs_cs_handle const cs = qcs_cs_new(name);
    auto const toUtf8 = [&](auto... args) { return qcs_to_utf8(cs, args...); };
    auto const fromUtf8 = [&](auto... args) { return qcs_from_utf8(cs, args...); };
    std::string utf8;
    if (converts(toUtf8, text, utf8, 4 * text.size() + 8)) {
        expect(characterCount(utf8) >= 0, "no UTF-8 comes out");
        std::string again;
        expect(converts(toUtf8, text, again, utf8.size()) && again == utf8, "the room matters");
        expect(static_cast<int>(qcs_strcount(cs, text.c_str())) == characterCount(utf8),
               "another number of characters");
    }
    std::string local;
    std::string back;
    if (!converts(fromUtf8, text, local, 4 * text.size() + 8)) return;
    expect(characterCount(text) >= 0, "malformed UTF-8 is taken");
    expect(converts(toUtf8, local, back, 4 * text.size() + 8), "what was written is refused");
    expect(characterCount(back) >= 0, "no UTF-8 comes back");
}

/// Converts in steps of the given room; the bytes of all of them.
std::string fromUtf16(std::vector<unsigned short> const& units, std::size_t room) {
    std::string bytes;
    unsigned short const* at = units.data();
    unsigned short const* const end = at + units.size();
    std::vector<unsigned char> block(room);
    for (int rc = 2; rc != 0;) {
        unsigned char* to = block.data();
        unsigned short const* const before = at;
        rc = zconvert_UTF16_to_UTF8(&at, end, &to, block.data() + room);
        bytes.append(block.data(), to);
        expect(rc == 0 || (rc == 2 && at != before), "no progress with room for a character");
    }
    expect(at == end, "units are left");
    return bytes;
}

/// The units of bytes that fromUtf16() wrote; surrogates by themselves are three bytes each.
std::vector<unsigned short> toUtf16(std::string const& bytes) {
    std::vector<unsigned short> units;
    for (std::size_t i = 0; i < bytes.size();) {
        auto const at = [&](std::size_t k) { return static_cast<unsigned char>(bytes.at(i + k)); };
        unsigned const length = at(0) < 0x80 ? 1 : at(0) < 0xE0 ? 2 : at(0) < 0xF0 ? 3 : 4;
        unsigned long code = length == 1 ? at(0) : at(0) & (0x7FU >> length);
        for (unsigned k = 1; k < length; ++k)
            code = code << 6U | (at(k) & 0x3FU);
        if (length == 4) {
            units.push_back(static_cast<unsigned short>(0xD7C0 + (code >> 10U)));
            code = 0xDC00 | (code & 0x3FF);
        }
        units.push_back(static_cast<unsigned short>(code));
        i += length;
    }
    return units;
}

void checkUtf16(std::string const& text, std::size_t room) {
    std::vector<unsigned short> units(text.size() / 2);
    if (!units.empty()) std::memcpy(units.data(), text.data(), units.size() * 2);
    std::string const bytes = fromUtf16(units, 3 * units.size() + 4);
    expect(toUtf16(bytes) == units, "other units come back");
    expect(fromUtf16(units, room) == bytes, "the room matters");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static char const* const codesets[] = {"ISO8859-1", "CP1252",  "EUC-JP", "Shift_JIS",
                                           "GBK",       "GB18030", "BIG5",   "EUC-KR"};
    Input input(data, size);
    char const* const codeset = codesets[input.below(std::size(codesets))];
    std::size_t const room = 4 + input.below(40);
    checkUtf16(std::string(reinterpret_cast<char const*>(data), size), room);
    std::string const text = input.text();
    checkUtf8(text);
    checkOtherCodeset(codeset, text);
    return 0;
}
