/// Values of properties objects as the types of C++.
///
///     auto const port = zfc::get<std::uint16_t>(settings, "server", "port").value_or(8080);
///     auto const limit = zfc::get<std::chrono::milliseconds>(settings, "server", "timeout");
///     zfc::set(settings, "cache", "room", zfc::Size{64 << 20});  // room = 64M
#ifndef Z_ZTYPEDVALUES_H
#define Z_ZTYPEDVALUES_H

#include "Z/ztags.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZUTF8String.h"
#include "Z/zexport.h"

namespace zfc {
inline namespace zrelease {

/// A number of bytes. As a value a whole number, and behind it k, M, G or T for powers of 1024.
struct Size {
    std::uint64_t bytes = 0;  // as many

    /// Equal when the numbers are.
    [[nodiscard]] friend bool operator==(Size a, Size b) { return a.bytes == b.bytes; }
    [[nodiscard]] friend bool operator!=(Size a, Size b) { return !(a == b); }
};

}  // namespace zrelease
}  // namespace zfc

/// How values are read and written, for zfc::ValueType.
class ZFC_API ZValueText {
  public:
    /// Whole texts alone, without white space, in any locale of the process; false for any other,
    /// which leaves the result alone. A whole number is decimal, or hexadecimal behind "0x".
    [[nodiscard]] static bool parse(std::string_view text, long long& number) noexcept;
    [[nodiscard]] static bool parse(std::string_view text, unsigned long long& number) noexcept;
    /// Finite numbers as ISO C has them in decimal.
    [[nodiscard]] static bool parse(std::string_view text, float& number) noexcept;
    [[nodiscard]] static bool parse(std::string_view text, double& number) noexcept;
    /// yes, no, on, off, true, false, 1 and 0, in any case of letters.
    [[nodiscard]] static bool parse(std::string_view text, bool& truth) noexcept;
    /// As zfc::Size says.
    [[nodiscard]] static bool parse(std::string_view text, zfc::Size& size) noexcept;
    /// A whole number and ns, us, ms, s, min (or m), h or d, in units of `tick` nanoseconds; false
    /// also for what is no whole number of these.
    [[nodiscard]] static bool parse(std::string_view text, long long tick,
                                    long long& count) noexcept;

    /// The shortest text that parse() reads as the same number.
    [[nodiscard]] static ZLCString of(float number);
    [[nodiscard]] static ZLCString of(double number);
    [[nodiscard]] static ZLCString of(long long number);
    [[nodiscard]] static ZLCString of(unsigned long long number);
    [[nodiscard]] static ZLCString of(zfc::Size size);
    /// `count` times `tick` nanoseconds. A product of units beyond 64 bits raises
    /// ZInvalidParameterException (message 22).
    [[nodiscard]] static ZLCString of(long long count, long long tick);
    /// In whole nanoseconds; likewise.
    [[nodiscard]] static ZLCString of(std::chrono::duration<double, std::nano> time);
    /// A NUL inside raises ZInvalidParameterException (message 22): what is behind it would be
    /// lost.
    [[nodiscard]] static ZLCString of(std::string_view bytes);

    /// Raises ZPropertiesUnexpectedValueException (message 59), which does not show an obfuscated
    /// value.
    [[noreturn]] static void raiseUnexpected(ZPropertiesInterface const& properties,
                                             char const* stanza, char const* key, char const* value,
                                             char const* expected);
};

namespace zfc {
inline namespace zrelease {
namespace values {

/// Whether T is a whole number, and neither a truth nor a character.
template <class T>
inline constexpr bool isNumber =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
    !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>;
/// The type of 64 bits that values of T go through.
template <class T>
using Widest = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
/// Whether T is a real number.
template <class T>
inline constexpr bool isReal = std::is_same_v<T, float> || std::is_same_v<T, double>;
/// Whether T is a list of values: one for each line of the key.
template <class T>
inline constexpr bool isList = false;
template <class T>
inline constexpr bool isList<std::vector<T>> = true;

/// `wide` as a T, which holds it or not.
template <class T, class Wide>
[[nodiscard]] std::optional<T> narrowed(Wide wide) {
    using Limits = std::numeric_limits<T>;
    if (wide < Limits::min() || wide > Limits::max()) return std::nullopt;
    return static_cast<T>(wide);
}

}  // namespace values

/// How a type is read from a value and written as one. A program specialises it for types of its
/// own: parse() gives nothing for text that is none, expected() says what would be, and write()
/// gives the text.
template <class T, class = void>
struct ValueType;

/// Whole numbers, decimal or hexadecimal behind "0x"; what T cannot hold is refused.
template <class T>
struct ValueType<T, std::enable_if_t<values::isNumber<T>>> {
    static std::optional<T> parse(char const* text) {
        values::Widest<T> wide = 0;
        if (!ZValueText::parse(text, wide)) return std::nullopt;
        return values::narrowed<T>(wide);
    }
    static ZLCString expected() {
        using Limits = std::numeric_limits<T>;
        return ZLCString("a whole number from ") + write(Limits::min()) + " to " +
               write(Limits::max());
    }
    static ZLCString write(T number) { return ZValueText::of(values::Widest<T>{number}); }
};

/// Finite real numbers, decimal, with a point in every locale.
template <class T>
struct ValueType<T, std::enable_if_t<values::isReal<T>>> {
    static std::optional<T> parse(char const* text) {
        T number = 0;
        if (!ZValueText::parse(text, number)) return std::nullopt;
        return number;
    }
    static ZLCString expected() { return "a number"; }
    static ZLCString write(T number) { return ZValueText::of(number); }
};

/// yes, no, on, off, true, false, 1 and 0, in any case of letters.
template <>
struct ValueType<bool> {
    static std::optional<bool> parse(char const* text) {
        bool truth = false;
        if (!ZValueText::parse(text, truth)) return std::nullopt;
        return truth;
    }
    static ZLCString expected() { return "yes or no"; }
    static ZLCString write(bool truth) { return truth ? "yes" : "no"; }
};

/// Sizes: a whole number, and behind it k, M, G or T.
template <>
struct ValueType<Size> {
    static std::optional<Size> parse(char const* text) {
        Size size;
        if (!ZValueText::parse(text, size)) return std::nullopt;
        return size;
    }
    static ZLCString expected() { return "a size such as 512, 64k or 1M"; }
    static ZLCString write(Size size) { return ZValueText::of(size); }
};

/// Times: a whole number and ns, us, ms, s, min (or m), h or d, which is a whole number of units.
template <class Rep, class Period>
struct ValueType<std::chrono::duration<Rep, Period>> {
    /// The type itself.
    using Duration = std::chrono::duration<Rep, Period>;
    static_assert(std::nano::den % Period::den == 0, "a unit of whole nanoseconds");
    /// Nanoseconds in a unit.
    static constexpr long long tick = std::nano::den / Period::den * Period::num;

    static std::optional<Duration> parse(char const* text) {
        // A real number of units is not always a whole one.
        constexpr long long step = std::is_floating_point_v<Rep> ? 1 : tick;
        long long count = 0;
        if (!ZValueText::parse(text, step, count)) return std::nullopt;
        if constexpr (std::is_floating_point_v<Rep>) {
            return Duration(static_cast<Rep>(count) / static_cast<Rep>(tick));
        } else {
            auto const narrow = values::narrowed<Rep>(count);
            if (!narrow) return std::nullopt;
            return Duration(*narrow);
        }
    }
    static ZLCString expected() {
        return ZLCString("a time such as 250ms, 5s or 1h, in steps of ") +
               ZValueText::of(1LL, tick);
    }
    static ZLCString write(Duration const& time) {
        if constexpr (std::is_floating_point_v<Rep>)
            return ZValueText::of(std::chrono::duration<double, std::nano>(time));
        else
            return ZValueText::of(static_cast<long long>(time.count()), tick);
    }
};

/// Bytes in the local codeset.
template <>
struct ValueType<std::string> {
    static std::optional<std::string> parse(char const* text) { return std::string(text); }
    static ZLCString expected() { return "text"; }
    static ZLCString write(std::string_view text) { return ZValueText::of(text); }
};

/// The text as it stands in the file.
template <>
struct ValueType<ZLCString> {
    static std::optional<ZLCString> parse(char const* text) { return ZLCString(text); }
    static ZLCString expected() { return "text"; }
    static ZLCString write(ZLCString const& text) { return text; }
};

/// Converted; what the local codeset has no form for is refused.
template <>
struct ValueType<ZUTF8String> {
    static std::optional<ZUTF8String> parse(char const* text) {
        ZUTF8String converted(ZLCString{text});
        if (converted.isEmpty()) return std::nullopt;
        return converted;
    }
    static ZLCString expected() { return "text with a form in UTF-8"; }
    static ZLCString write(ZUTF8String const& text) {
        ZLCString local(text);
        if (local.isEmpty() && !text.isEmpty())
            zraise(ZFromUTF8Exception(text), "Z/ZTypedValues.h", __LINE__);
        return local;
    }
};

namespace values {

/// The text as a T; raises ZPropertiesUnexpectedValueException (message 59) when it is none.
template <class T>
[[nodiscard]] T valueOf(ZPropertiesInterface const& properties, char const* stanza, char const* key,
                        char const* text) {
    auto parsed = ValueType<T>::parse(text);
    if (!parsed)
        ZValueText::raiseUnexpected(properties, stanza, key, text, ValueType<T>::expected());
    return std::move(*parsed);
}

}  // namespace values

/// The key's last value as a T: a whole number of any size, `float` or `double`, `bool`, a
/// `std::chrono` duration, a Size, `std::string`, ZLCString or ZUTF8String, or a type with a
/// ValueType of its own. Of a `std::vector` of these all values, in the order of the file. Nothing
/// for a key that is absent or without values.
///
/// A value that is no T, or beyond its range, raises ZPropertiesUnexpectedValueException (message
/// 59), which names file, stanza, key, value and what was expected.
template <class T>
[[nodiscard]] std::optional<T> get(ZPropertiesInterface const& properties, char const* stanza,
                                   char const* key) {
    if constexpr (values::isList<T>) {
        ZArrayList texts(1, 1);
        properties.getValues(stanza, key, texts, zpropLocalCodeset);
        if (texts.isEmpty()) return std::nullopt;
        T list;
        list.reserve(texts.size());
        for (unsigned int i = 0; i < texts.size(); ++i)
            list.push_back(values::valueOf<typename T::value_type>(
                properties, stanza, key, static_cast<ZLCString const*>(texts.get(i))->getChars()));
        return list;
    } else {
        ZLCString text;
        properties.getValue(stanza, key, text);
        if (text.isEmpty()) return std::nullopt;
        return values::valueOf<T>(properties, stanza, key, text);
    }
}

/// Sets one plain value; the same types. Empty text leaves the key without values.
template <class T>
void set(ZPropertiesMutableInterface& properties, char const* stanza, char const* key,
         T const& value) {
    properties.setValue(stanza, key, ValueType<T>::write(value).getChars());
}
inline void set(ZPropertiesMutableInterface& properties, char const* stanza, char const* key,
                char const* value) {
    properties.setValue(stanza, key, value);
}
inline void set(ZPropertiesMutableInterface& properties, char const* stanza, char const* key,
                std::string_view value) {
    properties.setValue(stanza, key, ZValueText::of(value).getChars());
}

/// Sets all values of the key, in this order. Others see it at once only within updateFile().
template <class T>
void set(ZStanzaFileProperties& properties, char const* stanza, char const* key,
         std::vector<T> const& list) {
    properties.setValue(stanza, key, nullptr);
    for (auto const& value : list)
        properties.addValue(stanza, key, ValueType<T>::write(value).getChars());
}

}  // namespace zrelease
}  // namespace zfc

#endif
