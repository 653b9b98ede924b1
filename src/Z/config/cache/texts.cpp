#include "Z/config/cache/texts.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Z/ZException.h"
#include "Z/containers/members.h"

namespace zfc::cache {
namespace {

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";
constexpr std::size_t longestText = 0xffffffff;  // lengths have 32 bits
constexpr std::size_t smallestBlock = 1024;
constexpr std::size_t largestBlock =
    std::size_t{64} * 1024;  // but for a text that is larger itself

}  // namespace

void* allocateRoom(std::size_t bytes) {
    void* const room = ZObject::operator new(bytes);
    containers::askForLargePages(static_cast<char*>(room), bytes);
    return room;
}

Block allocateBlock(std::size_t bytes) {
    Block block;
    resizeBlock(block, bytes);
    containers::askForLargePages(block.get(), bytes);
    return block;
}

void resizeBlock(Block& block, std::size_t bytes) {
    if (!containers::resizeBlock(block, bytes))
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

std::string_view Texts::copy(std::string_view text) {
    // The greatest length too: with its NUL it would wrap on 32 bits.
    if (text.size() >= longestText) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    char* const place = take(text.size() + 1);
    if (!text.empty()) std::memcpy(place, text.data(), text.size());
    place[text.size()] = '\0';
    return {place, text.size()};
}

char* Texts::take(std::size_t bytes) {
    if (bytes > roomLeft)
        // By a quarter: small files waste little, large ones need few blocks. What is left of the
        // block before counts as garbage.
        reserve(std::max(bytes, std::clamp(held / 4, smallestBlock, largestBlock)));
    roomLeft -= bytes;
    return std::exchange(room, room + bytes);
}

void Texts::reserve(std::size_t bytes) {
    Block block = allocateBlock(bytes);
    char* const start = block.get();
    // Kept first, because that may fail; the room is in it from then on.
    adopt(std::move(block), bytes);
    room = start;
    roomLeft = bytes;
}

void Texts::adopt(Block block, std::size_t bytes) {
    blocks.push_back(std::move(block));
    held += bytes;
}

}  // namespace zfc::cache
