#include "Z/ZQCSUTF8Converter.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "qcs/qcs.h"

namespace {

constexpr char sourceName[] = "src/Z/ZQCSUTF8Converter";

/// One direction of the codeset layer.
struct Direction {
    int (*convert)(qcs_cs_handle, char const*, unsigned int, char*, unsigned int);
    long (*stop)(qcs_cs_handle, char const*, unsigned int);
    unsigned int factor;  // bytes that one becomes at most
};
constexpr Direction toUtf8{qcs_to_utf8, qcs_to_utf8_stop, 3};
constexpr Direction fromUtf8{qcs_from_utf8, qcs_from_utf8_stop, 2};

/// Chooses the directory and gives `codeset` back. Comes before the first member is made: a string
/// would end the process where this throws.
char const* withDirectory(char const* codeset, char const* dir) {
    if (dir == nullptr && getenv("QCSDIR") == nullptr)
        zraise(ZNoQCSEnvironmentException(), sourceName, __LINE__);
    zset_cs_dir(dir);
    return codeset;
}

/// Room for what `length` bytes become, and the NUL.
unsigned int reserve(ZBuffer& out, std::uint64_t length, Direction const& way) {
    // In 64 bits: on 32 the product of a long text wraps.
    std::uint64_t const reserved = length * way.factor + 1;
    if (length > UINT_MAX || reserved > UINT_MAX)
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    out.setLength(static_cast<unsigned long>(reserved));
    return static_cast<unsigned int>(reserved);
}

void convert(ZCodesetHandle codeset, Direction const& way, char const* text, ZBuffer& out) {
    if (text == nullptr) text = "";
    std::uint64_t const length = strlen(text);
    unsigned int const reserved = reserve(out, length, way);
    auto* const bytes = static_cast<char*>(out.getBuffer());
    int const written =
        // The NUL goes along, so that the result ends with one.
        way.convert(codeset, text, static_cast<unsigned int>(length + 1), bytes, reserved);
    if (written >= 0) return out.setLength(static_cast<unsigned long>(written));
    std::memset(bytes, 0, reserved);  // part of the result
}

/// Piece by piece, since a NUL ends a conversion.
bool tryConvert(ZCodesetHandle codeset, Direction const& way, char const* text,
                unsigned long length, ZBuffer& out, unsigned long* place) {
    if (text == nullptr) length = 0;
    unsigned int const reserved = reserve(out, length, way);
    auto* const bytes = static_cast<char*>(out.getBuffer());
    unsigned int used = 0;
    for (unsigned long at = 0; at < length;) {
        unsigned long const rest = length - at;
        auto const piece = std::min(static_cast<unsigned long>(strnlen(text + at, rest)) + 1, rest);
        auto const bytesRead = static_cast<unsigned int>(piece);
        int const written =
            way.convert(codeset, text + at, bytesRead, bytes + used, reserved - used);
        if (written < 0) {
            long const stop = way.stop(codeset, text + at, bytesRead);
            if (place != nullptr) *place = at + static_cast<unsigned long>(std::max(stop, 0L));
            return out.setLength(0), false;
        }
        used += static_cast<unsigned int>(written);
        at += piece;
    }
    bytes[used] = '\0';
    out.setLength(used + 1UL);
    return true;
}

}  // namespace

ZUTF8ConverterInterface::~ZUTF8ConverterInterface() = default;
ZAbstractUTF8Converter::~ZAbstractUTF8Converter() = default;

ZQCSUTF8Converter::ZQCSUTF8Converter() : localCodeSetName(withDirectory("", nullptr)) {}

ZQCSUTF8Converter::ZQCSUTF8Converter(char const* codeset, char const* dir)
    : localCodeSetName(withDirectory(codeset, dir)) {
    std::array<char, 256> name{};  // longer ones are none
    if (codeset == nullptr && qcs_os_cs_name(name.data(), name.size()) == 0)
        localCodeSetName = name.data();
    localCodeSetView = localCodeSetName;
    if (localCodeSetName.isEmpty()) return;
    codesetHandle = qcs_cs_new(localCodeSetName);
    zreportAliasFault(sourceName, __LINE__);
    if (codesetHandle == 0) zraise(ZCodesetException(localCodeSetName), sourceName, __LINE__);
}

ZQCSUTF8Converter::~ZQCSUTF8Converter() {
    if (codesetHandle != 0) qcs_cs_free(codesetHandle);
}

ZLCConstString const& ZQCSUTF8Converter::getLocalCodeSet() const { return localCodeSetView; }

void ZQCSUTF8Converter::convertToUTF8(char const* local, ZBuffer& out) {
    convert(codesetHandle, toUtf8, local, out);
}

void ZQCSUTF8Converter::convertToLocal(char const* utf8, ZBuffer& out) {
    convert(codesetHandle, fromUtf8, utf8, out);
}

bool ZQCSUTF8Converter::tryConvertToLocal(char const* utf8, unsigned long length, ZBuffer& out,
                                          unsigned long* place) const {
    return tryConvert(codesetHandle, fromUtf8, utf8, length, out, place);
}

bool ZQCSUTF8Converter::tryConvertToUTF8(char const* local, unsigned long length, ZBuffer& out,
                                         unsigned long* place) const {
    return tryConvert(codesetHandle, toUtf8, local, length, out, place);
}
