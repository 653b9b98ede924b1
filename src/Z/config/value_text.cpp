#include "Z/config/value_text.h"

#include <strings.h>

#include <charconv>
#include <cstdint>
#include <cstring>

#include "Z/ZException.h"

namespace zfc::config {
namespace {

constexpr char sourceName[] = "src/Z/ZProperties";

struct Word {
    char const* text;
    bool truth;
};
// The first word of each truth is the one that is written.
constexpr Word words[] = {
    {"yes", true}, {"y", true},  {"true", true},   {"t", true},  {"1", true},
    {"no", false}, {"n", false}, {"false", false}, {"f", false}, {"0", false},
};

[[nodiscard]] bool isHexadecimalDigit(char c) {
    return std::string_view("0123456789abcdefABCDEF").find(c) != std::string_view::npos;
}

/// The base that the digits are written in; takes the "0x" off.
[[nodiscard]] int takeBase(std::string_view& digits) {
    if (digits.empty() || digits[0] != '0') return 10;
    bool const isHexadecimal = digits.size() > 2 && (digits[1] == 'x' || digits[1] == 'X') &&
                               isHexadecimalDigit(digits[2]);
    // ISO C: "0x" without a digit behind it is a 0, and an "x" that is no part of the number.
    if (!isHexadecimal) return 8;
    digits.remove_prefix(2);
    return 16;
}

}  // namespace

std::optional<unsigned int> parseNumber(std::string_view text) {
    if (text.empty()) return 0;
    // As isspace() in the C locale: a number means the same whatever locale the process has set.
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    bool const negative = !text.empty() && text[0] == '-';
    if (negative || (!text.empty() && text[0] == '+')) text.remove_prefix(1);
    // Not strtoul(): where a long has 64 bits it takes what 32 cannot hold.
    int const base = takeBase(text);
    std::uint32_t magnitude = 0;
    char const* const end = text.data() + text.size();
    auto const parsed = std::from_chars(text.data(), end, magnitude, base);
    if (parsed.ptr != end || parsed.ec == std::errc::invalid_argument) return std::nullopt;
    if (parsed.ec == std::errc::result_out_of_range) return UINT32_MAX;
    return negative ? 0 - magnitude : magnitude;
}

std::optional<bool> parseBoolean(char const* text) {
    if (*text == '\0') return false;
    for (Word const& word : words) {
        // No word has an "I", whose small letter depends on the locale.
        if (strcasecmp(text, word.text) == 0) return word.truth;
    }
    return std::nullopt;
}

char const* booleanText(bool truth) {
    Word const* word = words;
    while (word->truth != truth)
        ++word;
    return word->text;
}

ZLCString localText(ZAbstractString const& text) {
    if (std::strlen(text.getChars()) != text.getLength())
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    ZLCString local(text);
    if (local.isEmpty() && !text.isEmpty()) zraise(ZFromUTF8Exception(text), sourceName, __LINE__);
    return local;
}

}  // namespace zfc::config
