#include "Z/ZQCSUTF8Converter.h"

#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Z/ZException.h"
#include "qcs/qcs.h"

namespace {

constexpr char sourceName[] = "src/Z/ZQCSUTF8Converter";

using Conversion = int (*)(qcs_cs_handle, char const*, unsigned int, char*, unsigned int);

/// Chooses the directory and gives `codeset` back. Comes before the first member is made: a string
/// would end the process where this throws.
char const* withDirectory(char const* codeset, char const* dir) {
    if (dir == nullptr && getenv("QCSDIR") == nullptr)
        zraise(ZNoQCSEnvironmentException(), sourceName, __LINE__);
    zset_cs_dir(dir);
    return codeset;
}

void convert(ZCodesetHandle codeset, Conversion conversion, unsigned int factor, char const* text,
             ZBuffer& out) {
    if (text == nullptr) text = "";
    std::uint64_t const length = strlen(text);
    // In 64 bits: on 32 the product of a long text wraps.
    std::uint64_t const reserved = length * factor + 1;
    if (reserved > UINT_MAX) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    out.setLength(static_cast<unsigned long>(reserved));
    int const written =
        // The NUL goes along, so that the result ends with one.
        conversion(codeset, text, static_cast<unsigned int>(length + 1),
                   static_cast<char*>(out.getBuffer()), static_cast<unsigned int>(reserved));
    if (written >= 0) out.setBuffer(static_cast<unsigned long>(written), out.getBuffer());
}

}  // namespace

ZUTF8ConverterInterface::~ZUTF8ConverterInterface() = default;
ZAbstractUTF8Converter::~ZAbstractUTF8Converter() = default;

ZQCSUTF8Converter::ZQCSUTF8Converter() : localCodeSetName(withDirectory("", nullptr)) {}

ZQCSUTF8Converter::ZQCSUTF8Converter(char const* codeset, char const* dir)
    : localCodeSetName(withDirectory(codeset, dir)) {
    std::array<char, 32> name{};
    if (codeset == nullptr && qcs_os_cs_name(name.data(), name.size()) == 0)
        localCodeSetName = name.data();
    localCodeSetView = localCodeSetName;
    if (localCodeSetName.isEmpty()) return;
    codesetHandle = qcs_cs_new(localCodeSetName);
    if (codesetHandle == 0) zraise(ZCodesetException(localCodeSetName), sourceName, __LINE__);
}

ZQCSUTF8Converter::~ZQCSUTF8Converter() {
    if (codesetHandle != 0) qcs_cs_free(codesetHandle);
}

ZLCConstString const& ZQCSUTF8Converter::getLocalCodeSet() const { return localCodeSetView; }

void ZQCSUTF8Converter::convertToUTF8(char const* local, ZBuffer& out) {
    convert(codesetHandle, qcs_to_utf8, 3, local, out);
}

void ZQCSUTF8Converter::convertToLocal(char const* utf8, ZBuffer& out) {
    convert(codesetHandle, qcs_from_utf8, 2, utf8, out);
}
