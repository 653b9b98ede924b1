// link: static
// wrap: calloc,realloc,reallocarray

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

TEST_F(ShortMemoryTest, ContainersThatCannotGrowStayAsTheyWere) {
    ZArrayList list(2, 1);
    fill(list, {1, 2});
    Number spare(3);
    ZArrayStack stack(1);
    stack.push(&spare);
    ZHashMap map(10, 1);
    ZHashKeyMap keys(10, 1);
    map.putEntry(list.get(0));
    keys.putEntry(list.get(0), list.get(0));
    std::function<void()> const growths[] = {
        [&] { list.add(&spare); },
        [&] { list.add(0, &spare); },
        [&] { list.addNoCopy(1, &spare); },
        [&] { list.addList(list); },
        [&] { list = ZArrayList(list); },
        [&] { stack.push(&spare); },
        [&] { map.putEntry(&spare); },
        [&] { keys.putEntry(&spare, &spare); },
        [&] { ZMapIterator const iterator(map); },
        [] { ZArray const made(3, 1); },
        [] { ZArrayList const made(3, 1); },
        [] { ZHashMap const made(3, 1); },
        [] { ZHashKeyMap const made(3, 1); },
    };
    for (auto const& growth : growths)
        expectExhausted(growth);
    EXPECT_EQ((std::vector<int>{1, 2}), valuesOf(list));
    EXPECT_EQ(2U, list.capacity());
    EXPECT_EQ(1U, stack.size());
    EXPECT_EQ(1U, map.size());
    EXPECT_EQ(1U, keys.size());
    EXPECT_TRUE(keys.contains(list.get(0)));
    EXPECT_EQ(6, Number::alive);
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
