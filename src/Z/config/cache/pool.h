/// Records of the property cache by number, and chains of them.
#ifndef Z_CONFIG_CACHE_POOL_H
#define Z_CONFIG_CACHE_POOL_H

#include <cstring>
#include <memory>
#include <type_traits>

#include "Z/config/cache/table.h"
#include "Z/config/cache/texts.h"

namespace zfc::cache {

/// Raises ZOutOfMemoryException (message 1): the numbers are used up.
[[noreturn]] void raiseFull();

/// Records that keep their place, numbered from 0; the number of a released one is given out again.
/// Growing moves nothing, so it costs no peak of memory. It grows by `chunkSize` records: a few
/// kilobytes, little for a small file, few chunks for a large one.
template <class Record, Index chunkSize = 64>
class Pool {
    static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) >= sizeof(Index));

  public:
    Pool() = default;
    Pool(Pool const& other) : count(other.count), freeHead(other.freeHead) {
        for (auto const& chunk : other.chunks)
            chunks.push_back(std::make_unique<Chunk>(*chunk));
    }
    Pool& operator=(Pool const&) = delete;

    [[nodiscard]] Record& operator[](Index i) {
        return chunks[i / chunkSize]->records[i % chunkSize];
    }
    [[nodiscard]] Record const& operator[](Index i) const {
        return chunks[i / chunkSize]->records[i % chunkSize];
    }

    /// The number of a record with default content.
    [[nodiscard]] Index allocate() {
        if (freeHead == none) return takeFresh();
        Index const i = takeFree();
        // Only now: a free record holds the number of the next one.
        (*this)[i] = Record{};
        return i;
    }
    /// Makes sure that there is a record `i`, of a pool whose numbers are given out elsewhere.
    void reach(Index i) {
        while (i >= room())
            grow();
    }
    void release(Index i) {
        std::memcpy(static_cast<void*>(&(*this)[i]), &freeHead, sizeof freeHead);
        freeHead = i;
    }

  private:
    struct Chunk : Allocated {
        Record records[chunkSize];
    };

    [[nodiscard]] std::uint64_t room() const { return chunks.size() * std::uint64_t{chunkSize}; }
    void grow() { chunks.push_back(std::make_unique<Chunk>()); }
    Index takeFree() {
        Index const i = freeHead;
        std::memcpy(&freeHead, static_cast<void const*>(&(*this)[i]), sizeof freeHead);
        return i;
    }
    Index takeFresh() {
        if (count == none - 1) raiseFull();
        if (count == room()) grow();
        return count++;
    }

    Vector<std::unique_ptr<Chunk>> chunks;
    Index count = 0;        // numbers given out so far
    Index freeHead = none;  // released numbers, each record holding the next one
};

/// The ends of a list through the `prev` and `next` of its records.
struct Chain {
    Index first = none;
    Index last = none;
};

/// Puts record `i` behind `at`, or in front of all when `at` is none.
template <class Records>
void linkBehind(Records& pool, Chain& chain, Index at, Index i) {
    Index const next = at == none ? chain.first : pool[at].next;
    pool[i].prev = at;
    pool[i].next = next;
    (at == none ? chain.first : pool[at].next) = i;
    (next == none ? chain.last : pool[next].prev) = i;
}

template <class Records>
void linkLast(Records& pool, Chain& chain, Index i) {
    auto& record = pool[i];
    record.prev = chain.last;
    record.next = none;
    (chain.last == none ? chain.first : pool[chain.last].next) = i;
    chain.last = i;
}

template <class Records>
void unlink(Records& pool, Chain& chain, Index i) {
    Index const prev = pool[i].prev;
    Index const next = pool[i].next;
    (prev == none ? chain.first : pool[prev].next) = next;
    (next == none ? chain.last : pool[next].prev) = prev;
}

}  // namespace zfc::cache

#endif
