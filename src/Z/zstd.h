/// The library beside the standard one: views and streams of strings, hashes, ranges, exceptions,
/// paths, time limits and guards of locks.
/// All of it is inline, and costs a program nothing that does not include it.
#ifndef Z_ZSTD_H
#define Z_ZSTD_H

#include "Z/ztags.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <functional>
#include <istream>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>
#include <ratio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Z/ZArray.h"
#include "Z/ZException.h"
#include "Z/ZKeyMap.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZStringIterator.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "Z/zexport.h"

namespace zfc {
inline namespace zrelease {

// ----------------------------------------------------------------------------------------- strings

/// The bytes of the string, which keeps them, up to its next change.
[[nodiscard]] inline std::string_view view(ZAbstractString const& string) {
    return {string.getChars(), string.getLength()};
}
std::string_view view(ZLCString&& temporary) = delete;
std::string_view view(ZUTF8String&& temporary) = delete;

/// The length of bytes that a string is to hold. A NUL among them raises ZInvalidParameterException
/// (message 22), because what is behind it would be lost; more than 32 bits can measure raise
/// ZOutOfMemoryException (message 1).
[[nodiscard]] inline unsigned int lengthFor(std::string_view bytes) {
    if (bytes.find('\0') != std::string_view::npos)
        zraise(ZInvalidParameterException(), "Z/zstd.h", __LINE__);
    if (bytes.size() >= UINT_MAX) zraise(ZOutOfMemoryException(), "Z/zstd.h", __LINE__);
    return static_cast<unsigned int>(bytes.size());
}

/// A string with these bytes, which are taken to be in its codeset. Raises what lengthFor() does.
template <class String = ZLCString>
[[nodiscard]] String stringOf(std::string_view bytes) {
    unsigned int const length = lengthFor(bytes);
    return bytes.empty() ? String() : String(bytes.data(), length);
}

/// Of the strings that own their text.
template <class String>
using IfMutable =
    std::enable_if_t<std::is_same_v<String, ZLCString> || std::is_same_v<String, ZUTF8String>, int>;

/// A path where the library takes a file's name, for the length of the call:
/// `settings.load(zfc::FileName(path))`. An empty path, which would stand for another file, and one
/// with a NUL inside, which would name another one, raise ZInvalidParameterException (message 22).
class FileName {
  public:
    /// Keeps the path.
    explicit FileName(std::filesystem::path named) : path(std::move(named)) {
        if (path.empty() || path.native().find('\0') != std::string::npos)
            zraise(ZInvalidParameterException(), "Z/zstd.h", __LINE__);
    }
    /// Never null; lives as long as the object.
    [[nodiscard]] operator char const*() const { return path.c_str(); }

  private:
    std::filesystem::path path;
};

/// A file's name that the library gives, as a path.
[[nodiscard]] inline std::filesystem::path pathOf(ZLCString const& name) {
    return std::filesystem::path(view(name));
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

/// Walks a list or an array by its numbers. It must not be changed meanwhile.
template <class Row>
class RowWalk {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = ZObject*;
    using difference_type = std::ptrdiff_t;
    using pointer = ZObject* const*;
    using reference = ZObject*;

    RowWalk(Row const& walked, unsigned int start) : row(&walked), position(start) {}
    ZObject* operator*() const { return row->get(position); }
    RowWalk& operator++() {
        ++position;
        return *this;
    }
    RowWalk operator++(int) { return {*row, position++}; }
    [[nodiscard]] friend bool operator==(RowWalk a, RowWalk b) { return a.position == b.position; }
    [[nodiscard]] friend bool operator!=(RowWalk a, RowWalk b) { return !(a == b); }

  private:
    Row const* row;
    unsigned int position;
};

/// A key of a map with its value; neither is owned.
struct KeyValue {
    ZObject* key;    // as the map has it
    ZObject* value;  // the same
};

/// Walks what a map had when the walk began: entries as ZObject*, or the KeyValue of each key.
template <class Entry>
class MapWalk {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = Entry const*;
    using reference = Entry;

    MapWalk() = default;  // the end
    explicit MapWalk(ZMap const& map) : found(std::make_shared<Found>()) {
        map.list(found->keys);
        stopBehindLast();
    }
    explicit MapWalk(ZKeyMap const& map) : found(std::make_shared<Found>()) {
        map.listKeys(found->keys);
        map.listObjects(found->values);
        stopBehindLast();
    }
    Entry operator*() const {
        if constexpr (std::is_same_v<Entry, KeyValue>)
            return {found->keys.get(position), found->values.get(position)};
        else
            return found->keys.get(position);
    }
    MapWalk& operator++() {
        ++position;
        stopBehindLast();
        return *this;
    }
    void operator++(int) { ++*this; }
    [[nodiscard]] friend bool operator==(MapWalk const& a, MapWalk const& b) {
        return a.found == b.found && a.position == b.position;
    }
    [[nodiscard]] friend bool operator!=(MapWalk const& a, MapWalk const& b) { return !(a == b); }

  private:
    struct Found {
        ZArrayList keys{1, 0}, values{1, 0};
    };
    void stopBehindLast() {
        if (position >= found->keys.size()) *this = MapWalk();
    }

    std::shared_ptr<Found> found;  // null: the end
    unsigned int position = 0;
};

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

/// Rounded up, so that no wait is shorter than was asked for; never below 0; what is too long is
/// the longest.
template <class Number, class Unit, class Rep, class Period>
[[nodiscard]] Number limitIn(std::chrono::duration<Rep, Period> limit) {
    std::chrono::duration<long double, Unit> const exact(limit);
    constexpr Number longest = std::numeric_limits<Number>::max();
    if (!(exact.count() > 0)) return 0;
    if (exact.count() >= static_cast<long double>(longest)) return longest;
    return static_cast<Number>(std::ceil(exact.count()));
}

/// For the time limits of the library: those of locks are `long` milliseconds, that of updateFile()
/// is milliseconds<unsigned int>(5s).
template <class Number = long, class Rep, class Period>
[[nodiscard]] Number milliseconds(std::chrono::duration<Rep, Period> limit) {
    return limitIn<Number, std::milli>(limit);
}
/// For ZCondition::wait(), and as seconds<unsigned long>() for ZSleeperThread.
template <class Number = long, class Rep, class Period>
[[nodiscard]] Number seconds(std::chrono::duration<Rep, Period> limit) {
    return limitIn<Number, std::ratio<1>>(limit);
}

/// For ZCondition: waitUntil() takes a time of std::chrono::steady_clock, wait() with a deadline
/// one of std::chrono::system_clock. A time before 1970, or too far away, becomes the nearest that
/// there is.
template <class Clock, class Duration>
[[nodiscard]] timespec timespecOf(std::chrono::time_point<Clock, Duration> time) {
    static_assert(std::is_same_v<Clock, std::chrono::steady_clock> ||
                      std::is_same_v<Clock, std::chrono::system_clock>,
                  "a clock of the system");
    using std::chrono::nanoseconds;
    auto const since = std::max(time.time_since_epoch(), Duration::zero());
    auto const whole = std::chrono::floor<std::chrono::seconds>(since);
    timespec result{};
    constexpr long long last = std::numeric_limits<decltype(result.tv_sec)>::max();
    result.tv_sec = static_cast<decltype(result.tv_sec)>(std::min<long long>(whole.count(), last));
    result.tv_nsec =
        static_cast<long>(std::chrono::duration_cast<nanoseconds>(since - whole).count());
    return result;
}

// ------------------------------------------------------------------------------------------- locks
// The guards of ISO C++ take every lock as it is: std::unique_lock and std::scoped_lock for what
// writes, std::shared_lock for what reads under a lock with modes, also one across processes.

/// Whether it is a lock with modes.
template <class Lock, class = void>
inline constexpr bool hasModes = false;
template <class Lock>
inline constexpr bool hasModes<Lock, std::void_t<decltype(Lock::zlockWrite)>> = true;

/// A lock with the time limits of ISO C++: `zfc::Timed timed(lock); std::unique_lock guard(timed,
/// 250ms);`, and std::shared_lock likewise. For every lock that has lockFor(), which is not owned
/// and must outlive this; what it throws passes.
template <class Lock>
class Timed {
  public:
    /// Takes nothing yet.
    explicit Timed(Lock& timed) : held(timed) {}

    /// The lock's own.
    void lock() ZNO_THREAD_SAFETY_ANALYSIS { held.lock(); }
    /// The lock's own.
    void unlock() ZNO_THREAD_SAFETY_ANALYSIS { held.unlock(); }
    [[nodiscard]] bool try_lock() ZNO_THREAD_SAFETY_ANALYSIS { return held.try_lock(); }
    template <class Rep, class Period>
    [[nodiscard]] bool try_lock_for(std::chrono::duration<Rep, Period> limit)
        ZNO_THREAD_SAFETY_ANALYSIS {
        if constexpr (hasModes<Lock>)
            return held.lockFor(Lock::zlockWrite, milliseconds(limit));
        else
            return held.lockFor(milliseconds(limit));
    }
    template <class Clock, class Duration>
    [[nodiscard]] bool try_lock_until(std::chrono::time_point<Clock, Duration> end) {
        return try_lock_for(end - Clock::now());
    }

    void lock_shared() { held.lock_shared(); }
    void unlock_shared() { held.unlock_shared(); }
    [[nodiscard]] bool try_lock_shared() { return held.try_lock_shared(); }
    template <class Rep, class Period>
    [[nodiscard]] bool try_lock_shared_for(std::chrono::duration<Rep, Period> limit) {
        return held.lockFor(Lock::zlockRead, milliseconds(limit));
    }
    template <class Clock, class Duration>
    [[nodiscard]] bool try_lock_shared_until(std::chrono::time_point<Clock, Duration> end) {
        return try_lock_shared_for(end - Clock::now());
    }

  private:
    Lock& held;
};

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
[[nodiscard]] inline bool operator>(ZAbstractString const& a, std::string_view b) { return b < a; }
[[nodiscard]] inline bool operator>(std::string_view a, ZAbstractString const& b) { return b < a; }
[[nodiscard]] inline bool operator<=(ZAbstractString const& a, std::string_view b) {
    return !(b < a);
}
[[nodiscard]] inline bool operator<=(std::string_view a, ZAbstractString const& b) {
    return !(b < a);
}
[[nodiscard]] inline bool operator>=(ZAbstractString const& a, std::string_view b) {
    return !(a < b);
}
[[nodiscard]] inline bool operator>=(std::string_view a, ZAbstractString const& b) {
    return !(a < b);
}

/// Raise what zfc::lengthFor() does; the string is then as it was.
template <class String, zfc::IfMutable<String> = 0>
String& operator+=(String& string, std::string_view bytes) {
    if (unsigned int const length = zfc::lengthFor(bytes); length > 0)
        string.append(bytes.data(), length);
    return string;
}
/// Likewise; a temporary is extended, not copied.
template <class String, zfc::IfMutable<String> = 0>
[[nodiscard]] String operator+(String string, std::string_view bytes) {
    string += bytes;
    return string;
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

///@{
/// For `for (ZObject* member : list)`, by the interfaces and where a class has nothing faster of
/// its own; of a ZKeyMap `for (auto [key, value] : map)`. Nothing is owned. A map that is changed
/// meanwhile is walked as it was: what is deleted must not be looked at.
[[nodiscard]] inline zfc::RowWalk<ZList> begin(ZList const& list) { return {list, 0}; }
[[nodiscard]] inline zfc::RowWalk<ZList> end(ZList const& list) { return {list, list.size()}; }
[[nodiscard]] inline zfc::RowWalk<ZArrayInterface> begin(ZArrayInterface const& array) {
    return {array, 0};
}
[[nodiscard]] inline zfc::RowWalk<ZArrayInterface> end(ZArrayInterface const& array) {
    return {array, array.size()};
}
[[nodiscard]] inline zfc::MapWalk<ZObject*> begin(ZMap const& map) {
    return zfc::MapWalk<ZObject*>(map);
}
[[nodiscard]] inline zfc::MapWalk<ZObject*> end(ZMap const& /*map*/) { return {}; }
[[nodiscard]] inline zfc::MapWalk<zfc::KeyValue> begin(ZKeyMap const& map) {
    return zfc::MapWalk<zfc::KeyValue>(map);
}
[[nodiscard]] inline zfc::MapWalk<zfc::KeyValue> end(ZKeyMap const& /*map*/) { return {}; }
///@}

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
