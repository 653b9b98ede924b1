/// The system's iconv as an oracle for single characters.
#ifndef ZFC_TESTS_SUPPORT_CODESETS_H
#define ZFC_TESTS_SUPPORT_CODESETS_H

#include <iconv.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>

namespace testsupport {

/// One direction of iconv, each call from the initial state.
class Iconv {
  public:
    Iconv(std::string const& to, std::string const& from)
        : descriptor(iconv_open(to.c_str(), from.c_str())) {
        if (descriptor == reinterpret_cast<iconv_t>(-1)) abort();  // a wrong name in a test
    }
    ~Iconv() { iconv_close(descriptor); }
    Iconv(Iconv const&) = delete;
    Iconv& operator=(Iconv const&) = delete;

    /// The converted text; nothing when iconv takes it for malformed, cut off or not convertible.
    [[nodiscard]] std::optional<std::string> convert(std::string const& text) {
        std::string result(text.size() * 4 + 16, '\0');
        char* in = const_cast<char*>(text.data());
        std::size_t inLen = text.size();
        char* out = result.data();
        std::size_t outLen = result.size();
        auto const failed = static_cast<std::size_t>(-1);
        bool const converted = iconv(descriptor, &in, &inLen, &out, &outLen) != failed;
        wasCutOff = !converted && errno == EINVAL;
        bool const finished = iconv(descriptor, nullptr, nullptr, &out, &outLen) != failed;
        result.resize(result.size() - outLen);
        if (!converted || !finished) return std::nullopt;
        return result;
    }

    bool wasCutOff = false;  ///< whether the last text failed only because of that

  private:
    iconv_t descriptor;
};

/// A code point in UTF-8, written without the library.
[[nodiscard]] inline std::string utf8Of(char32_t code) {
    auto const part = [&](int shift, int mask, int mark) {
        return static_cast<char>(mark | (static_cast<int>(code >> shift) & mask));
    };
    if (code < 0x80) return {part(0, 0x7F, 0)};
    if (code < 0x800) return {part(6, 0x1F, 0xC0), part(0, 0x3F, 0x80)};
    if (code < 0x10000) return {part(12, 0x0F, 0xE0), part(6, 0x3F, 0x80), part(0, 0x3F, 0x80)};
    return {part(18, 0x07, 0xF0), part(12, 0x3F, 0x80), part(6, 0x3F, 0x80), part(0, 0x3F, 0x80)};
}

}  // namespace testsupport

#endif
