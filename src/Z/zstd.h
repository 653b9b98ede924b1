/// The library beside the standard one: views and streams of strings, hashes, ranges, exceptions.
/// All of it is inline, and costs a program nothing that does not include it.
#ifndef Z_ZSTD_H
#define Z_ZSTD_H

#include "Z/ztags.h"

#include <chrono>
#include <climits>
#include <cstddef>
#include <functional>
#include <istream>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZStringIterator.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"

namespace zfc {
inline namespace zrelease {

// ----------------------------------------------------------------------------------------- strings

/// The bytes of the string, which keeps them, up to its next change.
[[nodiscard]] inline std::string_view view(ZAbstractString const& string) {
    return {string.getChars(), string.getLength()};
}
std::string_view view(ZLCString&& temporary) = delete;
std::string_view view(ZUTF8String&& temporary) = delete;

/// A string with these bytes, which are taken to be in its codeset. A NUL among them raises
/// ZInvalidParameterException (message 22), because what is behind it would be lost; more than 32
/// bits can measure raise ZOutOfMemoryException (message 1).
template <class String = ZLCString>
[[nodiscard]] String stringOf(std::string_view bytes) {
    if (bytes.find('\0') != std::string_view::npos)
        zraise(ZInvalidParameterException(), "Z/zstd.h", __LINE__);
    if (bytes.size() >= UINT_MAX) zraise(ZOutOfMemoryException(), "Z/zstd.h", __LINE__);
    return bytes.empty() ? String() : String(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

/// Equal strings have equal hashes, whatever their family.
struct StringHash {
    /// hash() of the key.
    [[nodiscard]] std::size_t operator()(ZAbstractString const& key) const { return key.hash(); }
};

/// The characters of a string for `for (std::string_view c : zfc::Characters(s))`, none of them
/// split. The string is not owned and stays as it is; a view lives until the next character is
/// asked for. A malformed character raises ZQCSMBLenException (message 46).
template <class String>
class Characters {
    static constexpr bool isLocal =
        std::is_same_v<String, ZLCString> || std::is_same_v<String, ZLCConstString>;
    using Character = std::conditional_t<isLocal, ZLCString, ZUTF8String>;

  public:
    /// Walks `walked`, which outlives this object.
    explicit Characters(String const& walked) : walk(walked, character) {}
    explicit Characters(String const&& temporary) = delete;
    Characters(Characters const&) = delete;
    Characters& operator=(Characters const&) = delete;

    class Iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = std::string_view;
        using difference_type = std::ptrdiff_t;
        using pointer = std::string_view const*;
        using reference = std::string_view;

        Iterator() = default;  // the end
        explicit Iterator(Characters& of) : characters(&of) { ++*this; }
        std::string_view operator*() const { return view(characters->character); }
        Iterator& operator++() {
            if (!characters->walk.hasMore())
                characters = nullptr;
            else
                characters->walk.getNext();
            return *this;
        }
        void operator++(int) { ++*this; }
        [[nodiscard]] friend bool operator==(Iterator a, Iterator b) {
            return a.characters == b.characters;
        }
        [[nodiscard]] friend bool operator!=(Iterator a, Iterator b) { return !(a == b); }

      private:
        Characters* characters = nullptr;
    };

    /// From the first character, also when it is asked for again.
    [[nodiscard]] Iterator begin() {
        walk.reset();
        return Iterator(*this);
    }
    /// Behind the last character.
    [[nodiscard]] Iterator end() { return {}; }

  private:
    Character character;
    ZStringIterator walk;
};

// -------------------------------------------------------------------------------------- containers

/// The members of a list, or the entries of a map in the order of its list(), for
/// `for (ZObject* member : zfc::membersOf(list))`. They are not owned, and those that the container
/// had at this moment.
[[nodiscard]] inline ZArrayList membersOf(ZList const& list) {
    ZArrayList members(list.size(), 0);
    members.addList(list);
    return members;
}
[[nodiscard]] inline ZArrayList membersOf(ZMap const& map) {
    ZArrayList members(0, 0);
    map.list(members);
    return members;
}
/// One that is both is the list that it is.
[[nodiscard]] inline ZArrayList membersOf(ZArrayMap const& map) {
    return membersOf(static_cast<ZMap const&>(map));
}

// -------------------------------------------------------------------------------------- exceptions

/// An exception of the library as one of the standard library; what() is its text.
class Error : public std::runtime_error {
  public:
    /// With the text, number and place of `cause`.
    explicit Error(ZException const& cause)
        : std::runtime_error(cause.text().getChars()),
          messageNumber(cause.getCode()),
          thrownFrom(cause.who() != nullptr ? cause.who() : ""),
          thrownAt(cause.where()) {}

    /// The message's number.
    [[nodiscard]] unsigned long number() const { return messageNumber; }
    /// Where it was thrown, a static text; empty when nobody said.
    [[nodiscard]] char const* file() const { return thrownFrom; }
    /// The line of the throw; 0 before it has a place.
    [[nodiscard]] int line() const { return thrownAt; }

  private:
    unsigned long messageNumber;
    char const* thrownFrom;
    int thrownAt;
};

/// What `function()` returns; an exception of the library leaves as an Error, with the exception
/// itself nested in it (std::rethrow_if_nested).
template <class Function>
decltype(auto) translate(Function&& function) {
    try {
        return std::forward<Function>(function)();
    } catch (ZException const& e) {
        std::throw_with_nested(Error(e));
    }
}

// ------------------------------------------------------------------------------------------ limits

/// For the time limits of the library, which are `long` milliseconds: rounded up, so that no wait
/// is shorter than was asked for; never below 0; what is too long is the longest.
template <class Rep, class Period>
[[nodiscard]] long milliseconds(std::chrono::duration<Rep, Period> limit) {
    using Milliseconds = std::chrono::duration<long, std::milli>;
    using Real = std::chrono::duration<long double, std::milli>;
    if (Real(limit) >= Real(Milliseconds::max())) return Milliseconds::max().count();
    if (!(limit > limit.zero())) return 0;
    return std::chrono::ceil<Milliseconds>(limit).count();
}

}  // namespace zrelease
}  // namespace zfc

/// Comparison with views is by bytes, as with any text: equal when the bytes are; the order, of
/// what is read as text of the string's codeset, that of the string.
[[nodiscard]] inline bool operator==(ZAbstractString const& a, std::string_view b) {
    return zfc::view(a) == b;
}
[[nodiscard]] inline bool operator!=(ZAbstractString const& a, std::string_view b) {
    return !(a == b);
}
[[nodiscard]] inline bool operator==(std::string_view a, ZAbstractString const& b) {
    return b == a;
}
[[nodiscard]] inline bool operator!=(std::string_view a, ZAbstractString const& b) {
    return !(b == a);
}
[[nodiscard]] inline bool operator<(ZAbstractString const& a, std::string_view b) {
    return a.compare(std::string(b).c_str()) < 0;
}
[[nodiscard]] inline bool operator<(std::string_view a, ZAbstractString const& b) {
    return b.compare(std::string(a).c_str()) > 0;
}

/// The bytes, padded as the stream says.
inline std::ostream& operator<<(std::ostream& out, ZAbstractString const& string) {
    return out << zfc::view(string);
}
/// The next word, as into a std::string; a NUL in it raises ZInvalidParameterException (message
/// 22). What fails leaves the string alone.
inline std::istream& operator>>(std::istream& in, ZLCString& string) {
    std::string word;
    if (in >> word) string = zfc::stringOf<ZLCString>(word);
    return in;
}
inline std::istream& operator>>(std::istream& in, ZUTF8String& string) {
    std::string word;
    if (in >> word) string = zfc::stringOf<ZUTF8String>(word);
    return in;
}

// Keys of the containers of the standard library.
template <>
struct std::hash<ZLCString> : zfc::StringHash {};
template <>
struct std::hash<ZUTF8String> : zfc::StringHash {};
template <>
struct std::hash<ZLCConstString> : zfc::StringHash {};
template <>
struct std::hash<ZUTF8ConstString> : zfc::StringHash {};

#endif
