// link: static
// wrap: calloc,realloc,reallocarray
//
// Containers and buffers while memory is short.
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "Z/ZArray.h"
#include "Z/ZBuffer.h"
#include "Z/ZKeyMap.h"
#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZStack.h"
#include "support/objects.h"

using namespace testsupport;

namespace {
bool memoryIsShort = false;
}

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __real_reallocarray(void* block, std::size_t count, std::size_t size);

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return memoryIsShort ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
    return memoryIsShort ? nullptr : __real_realloc(block, size);
}
void* __wrap_reallocarray(void* block, std::size_t count, std::size_t size) {
    return memoryIsShort ? nullptr : __real_reallocarray(block, count, size);
}
}

namespace {

class ShortMemoryTest : public ObjectsTest {
  protected:
    /// Expects that `action` reports exhaustion.
    static void expectExhausted(std::function<void()> const& action) {
        memoryIsShort = true;
        unsigned long const thrown = thrownBy(action);
        memoryIsShort = false;
        EXPECT_EQ(outOfMemory, thrown);
    }
};

TEST_F(ShortMemoryTest, FailedGrowthLeavesAListAsItWas) {
    ZArrayList list(2, 1);
    fill(list, {1, 2});
    Number spare(3);
    ZArrayStack stack(1);
    stack.push(&spare);
    expectExhausted([&] { list.add(&spare); });
    expectExhausted([&] { list.add(0, &spare); });
    expectExhausted([&] { list.addNoCopy(1, &spare); });
    expectExhausted([&] { list.addList(list); });
    expectExhausted([&] { list = ZArrayList(list); });
    expectExhausted([&] { stack.push(&spare); });
    EXPECT_EQ((std::vector<int>{1, 2}), valuesOf(list));
    EXPECT_EQ(2U, list.capacity());
    EXPECT_EQ(1U, stack.size());
    EXPECT_EQ(3, Number::alive);
}

TEST_F(ShortMemoryTest, NewContainersReportIt) {
    expectExhausted([] { ZArray const array(3, 1); });
    expectExhausted([] { ZArrayList const list(3, 1); });
    expectExhausted([] { ZHashMap const map(3, 1); });
    expectExhausted([] { ZHashKeyMap const map(3, 1); });
}

TEST_F(ShortMemoryTest, MapWithoutRoomForABucketStaysAsItWas) {
    ZHashMap map(10, 1);
    ZHashKeyMap keys(10, 1);
    Number one(1);
    Number two(2);
    map.putEntry(&one);
    keys.putEntry(&one, &one);
    expectExhausted([&] { map.putEntry(&two); });
    expectExhausted([&] { keys.putEntry(&two, &two); });
    expectExhausted([&] { ZMapIterator const iterator(map); });
    EXPECT_EQ(1U, map.size());
    EXPECT_EQ(1U, keys.size());
    EXPECT_TRUE(keys.contains(&one));
    EXPECT_EQ(5, Number::alive);
}

TEST_F(ShortMemoryTest, BufferThatCannotGrowIsEmpty) {
    ZBuffer const text("text");
    std::vector<std::function<void(ZBuffer&)>> const growths = {
        [](ZBuffer& buffer) { buffer.setLength(100); },
        [](ZBuffer& buffer) { buffer.setBuffer("longer than before"); },
        [&](ZBuffer& buffer) { buffer = text; },
    };
    for (auto const& growth : growths) {
        ZBuffer buffer("a");
        expectExhausted([&] { growth(buffer); });
        EXPECT_EQ(0U, buffer.getLength());
        EXPECT_EQ(nullptr, buffer.getBuffer());
        buffer.setLength(1);
        EXPECT_NE(nullptr, buffer.getBuffer());
    }
    expectExhausted([&] { ZBuffer const copy(text); });
}

}  // namespace
