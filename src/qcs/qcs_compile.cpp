#include "qcs/qcs_compile.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

namespace qcs {
namespace {

constexpr char wideName[] = "WCHAR_T";  // the cheapest form to iconv
static_assert(sizeof(wchar_t) == sizeof(char32_t), "wide characters are code points");
constexpr int maxProbes = 4000000;  // twice what the largest codeset takes

/// An iconv descriptor of its own.
class Conversion {
  public:
    Conversion(char const* to, char const* from) : descriptor(iconv_open(to, from)) {}
    ~Conversion() {
        if (isOpen()) iconv_close(descriptor);
    }
    Conversion(Conversion const&) = delete;
    Conversion& operator=(Conversion const&) = delete;

    [[nodiscard]] bool isOpen() const { return descriptor != reinterpret_cast<iconv_t>(-1); }

    /// Converts until the input is used up or something stops it: 0, or the errno. Pointers and
    /// lengths are advanced.
    int run(char const*& in, std::size_t& inLen, char*& out, std::size_t& outLen) {
        std::size_t const rc = iconv(descriptor, const_cast<char**>(&in), &inLen, &out, &outLen);
        return rc == static_cast<std::size_t>(-1) ? errno : 0;
    }
    /// Writes what is held back and returns to the initial state.
    int finish(char*& out, std::size_t& outLen) {
        std::size_t const rc = iconv(descriptor, nullptr, nullptr, &out, &outLen);
        return rc == static_cast<std::size_t>(-1) ? errno : 0;
    }

  private:
    iconv_t descriptor;
};

/// What a byte sequence is in the codeset.
struct Probe {
    enum class Kind { invalid, incomplete, character } kind;
    std::array<char32_t, 8> codes;
    std::size_t count;
    bool heldBack;  ///< it came out only at the end of the text
};

/// A byte sequence while it is built.
struct Prefix {
    std::array<char, longestCharacter> bytes;
    std::size_t length;

    [[nodiscard]] Prefix with(unsigned byte) const {
        Prefix longer = *this;
        longer.bytes[longer.length++] = static_cast<char>(byte);
        return longer;
    }
    [[nodiscard]] PackedBytes packed() const {
        PackedBytes value = 0;
        for (std::size_t i = 0; i < length; ++i)
            value = value << 8 | static_cast<unsigned char>(bytes[i]);
        return value;
    }
};

Probe probe(Conversion& conversion, Prefix const& sequence) {
    Probe result{Probe::Kind::invalid, {}, 0, false};
    char const* in = sequence.bytes.data();
    std::size_t inLen = sequence.length;
    char* out = reinterpret_cast<char*>(result.codes.data());
    std::size_t outLen = sizeof result.codes;
    int const error = conversion.run(in, inLen, out, outLen);
    std::size_t const atOnce = outLen;
    // After errors too: the next probe begins in the initial state.
    int const endError = conversion.finish(out, outLen);
    result.count = (sizeof result.codes - outLen) / sizeof(char32_t);
    result.heldBack = atOnce != outLen;
    // What gave something already is a character with something behind it, no beginning of one.
    if (error == EINVAL && atOnce == sizeof result.codes) result.kind = Probe::Kind::incomplete;
    if (error == 0 && endError == 0 && result.count > 0) result.kind = Probe::Kind::character;
    return result;
}

class Compiler {
  public:
    explicit Compiler(std::string const& name)
        : iconvName(name), decoding(wideName, name.c_str()) {}

    /// Null when the codeset cannot be served.
    std::unique_ptr<TableCodec> compile() {
        if (!decoding.isOpen() || !addAscii()) return nullptr;
        for (unsigned byte = 0x80; byte < 256; ++byte)
            codec->nodes[0][byte] = entryFor(Prefix{}.with(byte));
        settlePreferences();
        return isBeyondTables ? nullptr : std::move(codec);
    }

  private:
    bool addAscii();
    std::uint32_t entryFor(Prefix const& sequence);
    std::uint32_t branchFor(Prefix const& prefix);
    std::uint32_t addCharacter(Probe const& found, PackedBytes bytes);
    bool isFourByteDigit(Prefix const& sequence);
    void addFourByteBlock();
    void settlePreferences();

    std::string const& iconvName;
    Conversion decoding;
    std::unique_ptr<TableCodec> codec = std::make_unique<TableCodec>();
    std::vector<CodePoint> ambiguous;  // code points of several byte sequences
    std::uint32_t clusters = 0;
    int probes = 0;
    bool isBeyondTables = false;  // too long characters, or too many
};

/// Text layers search for ASCII characters by byte and end at NUL, so the graphic characters and
/// the white space must stand where ASCII has them. Japanese and Korean codesets have a currency
/// sign for the backslash and an overline for the tilde.
bool mustBeAscii(unsigned byte) {
    bool const graphic = byte >= 0x20 && byte < 0x7F && byte != '\\' && byte != '~';
    return graphic || byte == 0 || (byte >= '\t' && byte <= '\r');
}

bool Compiler::addAscii() {
    // The first node is the root, where decode() begins.
    codec->nodes.emplace_back().fill(TableCodec::invalidEntry);
    for (unsigned byte = 0; byte < 0x80; ++byte) {
        Probe const found = probe(decoding, Prefix{}.with(byte));
        if (found.kind != Probe::Kind::character || found.count != 1) return false;
        std::uint32_t const entry = addCharacter(found, byte);
        if (entry != byte && mustBeAscii(byte)) return false;
        codec->asciiExact = codec->asciiExact && entry == byte;
        codec->nodes[0][byte] = entry;
    }
    return true;
}

std::uint32_t Compiler::entryFor(Prefix const& sequence) {
    // Once beyond, the recursion goes home without asking iconv any more.
    isBeyondTables = isBeyondTables || ++probes > maxProbes;
    if (isBeyondTables) return TableCodec::invalidEntry;
    Probe const found = probe(decoding, sequence);
    if (found.kind == Probe::Kind::character) return addCharacter(found, sequence.packed());
    if (found.kind == Probe::Kind::invalid) return TableCodec::invalidEntry;
    if (!isFourByteDigit(sequence)) return branchFor(sequence);
    if (codec->fourByte.bmp.empty()) addFourByteBlock();
    return TableCodec::fourByteEntry;
}

/// The node behind the bytes of a character's beginning, or nothing when no character begins so.
std::uint32_t Compiler::branchFor(Prefix const& prefix) {
    isBeyondTables = isBeyondTables || prefix.length == longestCharacter;
    if (isBeyondTables) return TableCodec::invalidEntry;
    // Its own until it is full: the recursion adds nodes, which moves those in the vector.
    TableCodec::Node node;
    node.fill(TableCodec::invalidEntry);
    // A NUL is never part of a character, whatever iconv says: it ends the text. In characters of
    // three and more bytes the later ones are never ASCII, but in GB18030, which is looked after.
    for (unsigned byte = prefix.length < 2 ? 1 : 0x80; byte < 256; ++byte)
        node[byte] = entryFor(prefix.with(byte));
    auto const isEmpty = [](std::uint32_t entry) { return entry == TableCodec::invalidEntry; };
    // Dropped, or `longest` would count bytes that no character has.
    if (std::all_of(node.begin(), node.end(), isEmpty)) return TableCodec::invalidEntry;
    codec->nodes.push_back(node);
    codec->longest = std::max(codec->longest, prefix.length + 1);
    return TableCodec::branchFlag | static_cast<std::uint32_t>(codec->nodes.size() - 1);
}

std::uint32_t Compiler::addCharacter(Probe const& found, PackedBytes bytes) {
    if (found.heldBack || found.count > 1) codec->composes = true;
    if (found.count > 1) return TableCodec::firstCluster + clusters++;
    auto const code = static_cast<CodePoint>(found.codes[0]);
    // iconv need not be strict about what wide characters can be.
    if (code > lastCodePoint || isSurrogate(code)) return TableCodec::invalidEntry;
    // The first one stands until settlePreferences() knows better.
    if (codec->encoding.find(code) != 0)
        ambiguous.push_back(code);
    else if (code != 0)
        codec->encoding.set(code, bytes);
    return code;
}

/// A digit as the second byte begins a four-byte character of GB18030, alone of all codesets: there
/// 0x81308130 is U+0080.
bool Compiler::isFourByteDigit(Prefix const& sequence) {
    auto const second = static_cast<unsigned char>(sequence.bytes[1]);
    if (sequence.length != 2 || second < '0' || second > '9') return false;
    Probe const first = probe(decoding, {FourByteBlock::bytesOf(0), longestCharacter});
    return first.kind == Probe::Kind::character && first.count == 1 && first.codes[0] == 0x80;
}

void Compiler::addFourByteBlock() {
    codec->longest = longestCharacter;
    codec->fourByte.bmp.assign(FourByteBlock::bmpCount, 0);
    for (std::uint32_t index = 0; index < FourByteBlock::bmpCount; ++index) {
        Prefix const sequence{FourByteBlock::bytesOf(index), longestCharacter};
        Probe const found = probe(decoding, sequence);
        if (found.kind != Probe::Kind::character || found.count != 1 || found.codes[0] > 0xFFFF)
            continue;
        codec->fourByte.bmp[index] = static_cast<std::uint16_t>(found.codes[0]);
        addCharacter(found, sequence.packed());
    }
}

/// Where several byte sequences are one code point, iconv knows which of them is written.
void Compiler::settlePreferences() {
    if (ambiguous.empty()) return;
    // Searches by bytes would miss the other spellings.
    codec->hasSynonyms = true;
    Conversion encoding(iconvName.c_str(), wideName);
    for (CodePoint const code : ambiguous) {
        auto const wide = static_cast<char32_t>(code);
        char const* in = reinterpret_cast<char const*>(&wide);
        std::size_t inLen = sizeof wide;
        Prefix written{{}, 0};
        char* out = written.bytes.data();
        std::size_t room = written.bytes.size();
        int const error = encoding.isOpen() ? encoding.run(in, inLen, out, room) : EBADF;
        written.length = longestCharacter - room;
        if (error == 0 && written.length > 0) codec->encoding.set(code, written.packed());
    }
}

}  // namespace

std::unique_ptr<TableCodec> compileCodeset(std::string const& iconvName) {
    return Compiler(iconvName).compile();
}

int convertByIconv(char const* to, char const* from, char const* in, std::size_t inLen, char* out,
                   std::size_t outLen) {
    Conversion conversion(to, from);
    if (!conversion.isOpen()) return -1;
    char const* const start = out;
    if (conversion.run(in, inLen, out, outLen) != 0 || conversion.finish(out, outLen) != 0)
        return -1;
    std::ptrdiff_t const written = out - start;
    return written > INT_MAX ? -1 : static_cast<int>(written);
}

}  // namespace qcs
