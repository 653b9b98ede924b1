#include "Z/config/java_pairs.h"

#include <utility>

#include "Z/ZException.h"
#include "Z/config/java_string.h"
#include "Z/containers/members.h"
#include "Z/strings/plain_text.h"

namespace zfc::java {

using cache::Index;
using cache::Texts;

/// The texts are all that differs: places and hashes are those of the other.
Pairs::Pairs(Pairs const& other) : ZObject(other), pairs(other.pairs), table(other.table) {
    compact(other.texts.bytesUsed());
}

Pairs::~Pairs() = default;

ZObject* Pairs::clone() const { return new Pairs(*this); }

void Pairs::set(std::string_view key, std::string_view value) {
    std::uint32_t const hash = cache::hashName(key);
    Index const known = find(key, hash);
    if (known == cache::none) return add(key, hash, value);
    replaceValue(pairs[known], value);
    if (texts.isWasteful()) tryCompact();
}

void Pairs::add(std::string_view key, std::uint32_t hash, std::string_view value) {
    table.makeRoom();
    char const* const keyText = texts.copy(key).data();
    char const* const valueText = texts.copy(value).data();
    auto const place = static_cast<Index>(pairs.size());  // the table has no room for more
    // The last thing that can fail.
    pairs.push_back({keyText, valueText, static_cast<std::uint32_t>(key.size()),
                     static_cast<std::uint32_t>(value.size())});
    table.insert(hash, place, keyText);
    texts.startUse(key.size());
    texts.startUse(value.size());
}

void Pairs::replaceValue(Pair& pair, std::string_view value) {
    if (value.size() > pair.valueLength)
        pair.valueText = texts.copy(value).data();
    else
        Texts::overwrite(pair.valueText, value);
    texts.endUse(pair.valueLength);
    texts.startUse(value.size());
    pair.valueLength = static_cast<std::uint32_t>(value.size());
}

/// Copies every text into one block of `bytes`, which is all that can fail.
void Pairs::compact(std::size_t bytes) {
    Texts fresh;
    fresh.reserve(bytes);
    for (Pair& pair : pairs) {
        fresh.moveIn(pair.keyText, pair.keyLength);
        fresh.moveIn(pair.valueText, pair.valueLength);
    }
    // Last, with nothing left that points into the old blocks.
    texts = std::move(fresh);
}

void Pairs::tryCompact() {
    try {
        compact(texts.bytesUsed());
    } catch (ZOutOfMemoryException const&) {
        return;  // the value is set; the garbage can wait
    }
}

std::array<Pairs::Bucket, Pairs::bucketCount> Pairs::bucketsOf() const {
    std::array<Bucket, bucketCount> buckets;
    for (Index i = 0; i < pairs.size(); ++i)
        buckets[strings::textHash(pairs[i].key()) % bucketCount].push_back(i);
    return buckets;
}

void Pairs::handOut() const {
    while (handedOut.size() < pairs.size())
        handedOut.push_back(stringOf(pairs[handedOut.size()].key()));
}

void Pairs::listKeys(ZList& out) const {
    handOut();
    containers::Appending appending(out);
    for (Bucket const& bucket : bucketsOf()) {
        for (Index const i : bucket)
            out.add(&handedOut[i]);
    }
    appending.keep();
}

}  // namespace zfc::java
