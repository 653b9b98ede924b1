/// The pairs of ZJavaProperties in memory.
#ifndef Z_CONFIG_JAVA_PAIRS_H
#define Z_CONFIG_JAVA_PAIRS_H

#include <array>
#include <cstdint>
#include <deque>
#include <string_view>

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/ZUTF8String.h"
#include "Z/config/cache/table.h"
#include "Z/config/cache/texts.h"

namespace zfc::java {

/// A key with its value. Both are any bytes, and have a NUL behind them.
struct Pair {
    char const* keyText;
    char const* valueText;
    std::uint32_t keyLength;
    std::uint32_t valueLength;

    [[nodiscard]] std::string_view key() const { return {keyText, keyLength}; }
    [[nodiscard]] std::string_view value() const { return {valueText, valueLength}; }
};

/// A map of texts. Two string objects for each pair would take eight times the memory, and nearly
/// all the time of a large file is spent waiting for memory: here the texts of a pair lie side by
/// side, close to those of the lines around it. An object, because a map of objects holds it.
///
/// What raises ZOutOfMemoryException (message 1) has changed nothing.
class Pairs : public ZObject {
  public:
    Pairs() = default;
    Pairs(Pairs const& other);
    Pairs& operator=(Pairs const&) = delete;

    ~Pairs() override;
    [[nodiscard]] ZObject* clone() const override;

    [[nodiscard]] std::size_t size() const { return pairs.size(); }
    /// Null when there is none; it lives until the next set().
    [[nodiscard]] Pair const* find(std::string_view key) const {
        cache::Index const i = find(key, cache::hashName(key));
        return i == cache::none ? nullptr : &pairs[i];
    }
    /// Adds the pair, or gives the one with this key that value. Neither text lies in here.
    void set(std::string_view key, std::string_view value);

    /// Calls visit(Pair const&) for each, in the order of a ZHashKeyMap made for 10 pairs: one
    /// bucket after the other, in each the order in which the keys came.
    template <class Visit>
    void each(Visit visit) const {
        for (Bucket const& bucket : bucketsOf()) {
            for (cache::Index const i : bucket)
                visit(pairs[i]);
        }
    }
    /// Appends the keys, in the order of each(), as strings that live as long as this object.
    void listKeys(ZList& out) const;

  private:
    using Bucket = cache::Vector<cache::Index>;
    static constexpr std::size_t bucketCount = 15;

    [[nodiscard]] cache::Index find(std::string_view key, std::uint32_t hash) const {
        if (pairs.empty()) return cache::none;
        return table.find(hash, pairs.front().keyText,
                          [&](cache::Index i) { return pairs[i].key() == key; });
    }
    void add(std::string_view key, std::uint32_t hash, std::string_view value);
    void replaceValue(Pair& pair, std::string_view value);
    void compact(std::size_t bytes);
    void tryCompact();
    [[nodiscard]] std::array<Bucket, bucketCount> bucketsOf() const;
    void handOut() const;

    cache::Texts texts;         // the keys and values
    cache::Vector<Pair> pairs;  // in the order in which the keys came
    cache::Table table;         // of their keys, to their places in that order
    // Keys of the first pairs as strings, made when they are listed: whoever lists keys may change
    // the values while going through them.
    mutable std::deque<ZUTF8String, cache::Allocator<ZUTF8String>> handedOut;
};

}  // namespace zfc::java

#endif
