/// The system's iconv as an oracle for single characters.
#ifndef ZFC_TESTS_SUPPORT_CODESETS_H
#define ZFC_TESTS_SUPPORT_CODESETS_H

#include <iconv.h>

#include <optional>
#include <string>

namespace testsupport {

/// One direction of iconv, each call from the initial state.
class Iconv {
  public:
    Iconv(const std::string& to, const std::string& from);
    ~Iconv() { iconv_close(descriptor); }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    /// The converted text; nothing when iconv takes it for malformed, cut off or not convertible.
    [[nodiscard]] std::optional<std::string> convert(const std::string& text);
    /// Whether the last text failed only because it was cut off.
    [[nodiscard]] bool wasCutOff() const { return cutOff; }

  private:
    iconv_t descriptor;
    bool cutOff = false;
};

/// A code point in UTF-8, written without the library.
[[nodiscard]] std::string utf8Of(char32_t code);

}  // namespace testsupport

#endif
