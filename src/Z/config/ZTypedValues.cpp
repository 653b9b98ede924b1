#include "Z/ZTypedValues.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cmath>
#include <iterator>

#include "Z/ZException.h"
#include "Z/ZLayeredProperties.h"

namespace {

constexpr char sourceName[] = "src/Z/ZTypedValues";

/// Digits to the end of the text; nothing is left alone by what fails.
template <class Number, class... Base>
[[nodiscard]] bool parseDigits(std::string_view digits, Number& number, Base... base) noexcept {
    Number parsed{};
    char const* const end = digits.data() + digits.size();
    auto const [stop, error] = std::from_chars(digits.data(), end, parsed, base...);
    if (stop != end || error != std::errc()) return false;
    number = parsed;
    return true;
}

/// The magnitude of a whole number without its sign.
[[nodiscard]] bool parseMagnitude(std::string_view digits, unsigned long long& number) noexcept {
    bool const isHexadecimal = digits.substr(0, 2) == "0x" || digits.substr(0, 2) == "0X";
    if (isHexadecimal) digits.remove_prefix(2);
    return parseDigits(digits, number, isHexadecimal ? 16 : 10);
}

/// Takes a sign off; whether it was a minus.
[[nodiscard]] bool takeSign(std::string_view& text) noexcept {
    bool const isNegative = !text.empty() && text[0] == '-';
    if (isNegative || (!text.empty() && text[0] == '+')) text.remove_prefix(1);
    return isNegative;
}

template <class Real>
[[nodiscard]] bool parseReal(std::string_view text, Real& number) noexcept {
    // from_chars() knows no plus.
    bool const isPlus = text.size() > 1 && text[0] == '+' && text[1] != '-';
    Real parsed = 0;
    if (!parseDigits(text.substr(isPlus ? 1 : 0), parsed) || !std::isfinite(parsed)) return false;
    number = parsed;
    return true;
}

struct Unit {
    std::string_view name;
    long long nanoseconds;
};
/// From the largest on; of two names the first is written.
constexpr Unit units[] = {
    {"d", 86'400'000'000'000},
    {"h", 3'600'000'000'000},
    {"min", 60'000'000'000},
    {"m", 60'000'000'000},
    {"s", 1'000'000'000},
    {"ms", 1'000'000},
    {"us", 1'000},
    {"ns", 1},
};

struct Scale {
    char letter;
    unsigned int shift;
};
constexpr Scale scales[] = {{'T', 40}, {'G', 30}, {'M', 20}, {'k', 10}};

[[nodiscard]] bool isLetter(char one, char other) noexcept {
    return (one | 0x20) == (other | 0x20);
}

template <class Number>
[[nodiscard]] ZLCString textOf(Number number) {
    std::array<char, 64> digits{};  // more than any number's shortest text
    auto const [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    static_cast<void>(error);
    return ZLCString(digits.data(), static_cast<unsigned int>(end - digits.data()));
}

/// Where the key stands; empty where that cannot be told.
[[nodiscard]] ZLCString originOf(ZPropertiesInterface const& properties, char const* stanza,
                                 char const* key) {
    if (auto const* const file = dynamic_cast<ZProperties const*>(&properties))
        return file->getFileName();
    auto const* const layers = dynamic_cast<ZLayeredProperties const*>(&properties);
    return layers != nullptr ? layers->getOrigin(stanza, key) : ZLCString();
}

}  // namespace

// ---------------------------------------------------------------------------------------- reading

bool ZValueText::parse(std::string_view text, unsigned long long& number) noexcept {
    unsigned long long magnitude = 0;
    bool const isNegative = takeSign(text);
    if (!parseMagnitude(text, magnitude) || (isNegative && magnitude != 0)) return false;
    number = magnitude;
    return true;
}

bool ZValueText::parse(std::string_view text, long long& number) noexcept {
    constexpr auto most = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
    unsigned long long magnitude = 0;
    bool const isNegative = takeSign(text);
    if (!parseMagnitude(text, magnitude) || magnitude > most + (isNegative ? 1 : 0)) return false;
    // Without an overflow on the way to the least number.
    number = isNegative && magnitude != 0 ? -static_cast<long long>(magnitude - 1) - 1
                                          : static_cast<long long>(magnitude);
    return true;
}

bool ZValueText::parse(std::string_view text, float& number) noexcept {
    return parseReal(text, number);
}
bool ZValueText::parse(std::string_view text, double& number) noexcept {
    return parseReal(text, number);
}

bool ZValueText::parse(std::string_view text, bool& truth) noexcept {
    constexpr std::string_view words[] = {"no", "yes", "off", "on", "false", "true", "0", "1"};
    for (std::size_t i = 0; i < std::size(words); ++i) {
        if (words[i].size() != text.size()) continue;
        if (strncasecmp(words[i].data(), text.data(), text.size()) != 0) continue;
        truth = i % 2 != 0;
        return true;
    }
    return false;
}

bool ZValueText::parse(std::string_view text, zfc::Size& size) noexcept {
    unsigned int shift = 0;
    for (Scale const& scale : scales)
        if (!text.empty() && isLetter(text.back(), scale.letter)) shift = scale.shift;
    if (shift != 0) text.remove_suffix(1);
    std::uint64_t count = 0;
    if (!parseDigits(text, count, 10) || count > UINT64_MAX >> shift) return false;
    size.bytes = count << shift;
    return true;
}

bool ZValueText::parse(std::string_view text, long long tick, long long& count) noexcept {
    std::size_t const digits = std::min(text.find_first_not_of("+-0123456789"), text.size());
    std::string_view const name = text.substr(digits);
    Unit const* const unit = std::find_if(std::begin(units), std::end(units),
                                          [&](Unit const& one) { return one.name == name; });
    long long number = 0;
    if (unit == std::end(units) || !parse(text.substr(0, digits), number)) return false;
    long long const divisor = std::max(1LL, tick / unit->nanoseconds);
    // In whole units, as far as one of the two is a multiple of the other.
    if (divisor * unit->nanoseconds < tick || number % divisor != 0) return false;
    long long const factor = std::max(1LL, unit->nanoseconds / tick);
    if (factor > 1 && unit->nanoseconds % tick != 0) return false;
    return !__builtin_mul_overflow(number / divisor, factor, &count);
}

// ---------------------------------------------------------------------------------------- writing

ZLCString ZValueText::of(float number) { return textOf(number); }
ZLCString ZValueText::of(double number) { return textOf(number); }
ZLCString ZValueText::of(long long number) { return textOf(number); }
ZLCString ZValueText::of(unsigned long long number) { return textOf(number); }

ZLCString ZValueText::of(zfc::Size size) {
    for (Scale const& scale : scales) {
        std::uint64_t const count = size.bytes >> scale.shift;
        if (count != 0 && count << scale.shift == size.bytes)
            return of(static_cast<unsigned long long>(count)) + scale.letter;
    }
    return of(static_cast<unsigned long long>(size.bytes));
}

ZLCString ZValueText::of(long long count, long long tick) {
    Unit const* const unit = std::find_if(std::begin(units), std::end(units), [&](Unit const& one) {
        return tick % one.nanoseconds == 0;
    });
    long long number = 0;
    if (__builtin_mul_overflow(count, tick / unit->nanoseconds, &number))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return of(number) + std::string(unit->name).c_str();
}

ZLCString ZValueText::of(std::chrono::duration<double, std::nano> time) {
    // Below 2^63, which a double holds exactly; false for what is no number, too.
    if (!(std::abs(time.count()) < 0x1p63))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return of(static_cast<long long>(time.count()), 1);
}

ZLCString ZValueText::of(std::string_view bytes) {
    bool const isWhole = bytes.find('\0') == std::string_view::npos;
    if (!isWhole || bytes.size() > UINT_MAX)
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return bytes.empty() ? ZLCString()
                         : ZLCString(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

void ZValueText::raiseUnexpected(ZPropertiesInterface const& properties, char const* stanza,
                                 char const* key, char const* value, char const* expected) {
    bool const isSecret = properties.isObfuscated(stanza, key);
    zraise(ZPropertiesUnexpectedValueException(originOf(properties, stanza, key).getChars(), stanza,
                                               key, isSecret ? "(obfuscated)" : value, expected),
           sourceName, __LINE__);
}
