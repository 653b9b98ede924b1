/// What fuzz targets share: decisions and texts taken from the fuzzer's bytes, and the end of a run
/// that has found something.
#ifndef ZFC_FUZZ_INPUT_H
#define ZFC_FUZZ_INPUT_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

namespace fuzz {

/// Reads a run's input from its beginning; all zeros behind its end.
class Input {
  public:
    Input(std::uint8_t const* data, std::size_t size)
        : rest(reinterpret_cast<char const*>(data), size) {}

    [[nodiscard]] bool isAtEnd() const { return at == rest.size(); }
    [[nodiscard]] unsigned int byte() {
        return isAtEnd() ? 0U : static_cast<unsigned char>(rest[at++]);
    }
    /// A number below `limit`, at most 256.
    [[nodiscard]] unsigned int below(unsigned int limit) { return byte() % limit; }
    template <class Number>
    [[nodiscard]] Number number() {
        Number value = 0;
        for (std::size_t i = 0; i < sizeof value; ++i)
            value = static_cast<Number>(static_cast<unsigned long long>(value) << 8U | byte());
        return value;
    }
    /// The bytes up to the next NUL, which is passed over.
    [[nodiscard]] std::string text() {
        std::size_t const end = std::min(rest.find('\0', at), rest.size());
        std::string const result = rest.substr(at, end - at);
        at = std::min(end + 1, rest.size());
        return result;
    }
    [[nodiscard]] std::string remainder() { return rest.substr(std::exchange(at, rest.size())); }

  private:
    std::string const rest;
    std::size_t at = 0;
};

/// A run's input where FF FE parts it: what is done, in so many bytes, and the file it is done to.
struct Parts {
    std::size_t steps;
    std::string file;
};
[[nodiscard]] inline Parts partsOf(std::uint8_t const* data, std::size_t size) {
    std::string_view const all(reinterpret_cast<char const*>(data), size);
    std::size_t const end = std::min(all.find("\xFF\xFE"), all.size());
    return {end, std::string(all.substr(std::min(end + 2, all.size())))};
}

/// Ends the run as a finding when `good` is false.
inline void expect(bool good, char const* what) {
    if (good) return;
    std::fprintf(stderr, "found: %s\n", what);
    std::abort();
}

}  // namespace fuzz

#endif
