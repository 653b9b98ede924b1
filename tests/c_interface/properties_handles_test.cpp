// link: static
// wrap: malloc,calloc,strdup
// The records behind the C interface's handles: how they are told from other memory, and what may
// leave its functions.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "Z/c_interface/handles.h"
#include "support/faults.h"
#include "support/properties.h"
#include "support/threads.h"

WRAP(malloc, void*, nullptr, (size_t size), (size))
WRAP(calloc, void*, nullptr, (size_t count, size_t size), (count, size))
WRAP(strdup, char*, nullptr, (char const* text), (text))

namespace {

using namespace testsupport;

/// Does something when the object changes, as long as it lives.
class Acting : public ZObserverInterface {
  public:
    Acting(ZStanzaFileProperties& ofObject, void (*what)()) : object(ofObject), act(what) {
        object.addObserver(this);
    }
    ~Acting() { object.deleteObserver(this); }
    void update(ZAbstractObservable*, ZObservedParm const&) override { act(); }

  private:
    ZStanzaFileProperties& object;
    void (*act)();
};

struct StanzaHandleTest : testing::Test {
    StanzaHandleTest() {
        EXPECT_EQ(zstzPropOpen(&handle, file.path().c_str(), ZPROP_OPEN_WRITE), ZPROP_OK);
    }
    ~StanzaHandleTest() override { EXPECT_EQ(zstzPropClose(handle), ZPROP_OK); }

    StanzaFile file{"[s]\nk = 1\nk = 2\n"};
    ZPROP_stz_handle* handle = nullptr;
};

TEST_F(StanzaHandleTest, isKnownByBothMarkers) {
    std::uint32_t expected = 0xbeeff00dU;
    for (zfc::c_interface::Marker* const marker : {&handle->first, &handle->second}) {
        auto* const word = reinterpret_cast<std::uint32_t volatile*>(marker);
        EXPECT_EQ(*word, expected);
        *word = expected ^ 1U;
        EXPECT_EQ(zstzPropClose(handle), ZPROP_INVALID_ARGUMENT);
        *word = expected;
        expected = 0xd00ffeebU;
    }
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(zstzPropIter_init(handle, "s", nullptr, &iterator), ZPROP_OK);
    for (int const bad : {0, 3}) {
        iterator->kind = bad;
        EXPECT_EQ(zstzPropIter_close(iterator), ZPROP_INVALID_ARGUMENT);
    }
    iterator->kind = zfc::c_interface::overKeys;
    EXPECT_EQ(zstzPropIter_close(iterator), ZPROP_OK);
}

TEST_F(StanzaHandleTest, isNoHandleAnyMoreWhenItsMemoryIsFreed) {
    alignas(ZPROP_stz_handle) unsigned char memory[sizeof(ZPROP_stz_handle)];
    auto* const gone = new (memory) ZPROP_stz_handle(file.path().c_str(), ZPROP_OPEN_READ);
    void const* const markers[] = {&gone->first, &gone->second};
    gone->~ZPROP_stz_handle();
    for (void const* const marker : markers)
        EXPECT_EQ(std::memcmp(marker, "\0\0\0", 4), 0);
}

TEST_F(StanzaHandleTest, answersNothingWithoutMemory) {
    constexpr char const* allocations[] = {"malloc", "calloc", "strdup"};
    int const places = failEverywhere(allocations, ENOMEM, [&](Fault const& planned) {
        char* one = nullptr;
        char** list = nullptr;
        ZStzFileItem items[] = {{ZPROP_ITEM_STRING, "s", "k", 0, &one},
                                {ZPROP_ITEM_LIST, "s", "k", 0, &list}};
        int rc = 0;
        fault = planned;
        char* const text = zstzPropGetStringValue(handle, "s", "k", 1, &rc);
        int const code = zstzPropGetValues(handle, items, 2);
        fault.first = 0;
        bool const failed = fault.seen >= planned.first;
        EXPECT_EQ(rc == ZPROP_IO_ERROR || code == ZPROP_IO_ERROR, failed);
        EXPECT_EQ(rc == ZPROP_OK, text != nullptr);
        EXPECT_EQ(code == ZPROP_OK, list != nullptr);
        zstzPropFree(text);
        zstzPropFreeValuesList(handle, items, 2);
    });
    EXPECT_GE(places, 5);
}

TEST_F(StanzaHandleTest, letsNoExceptionOut) {
    using Thrower = void (*)();
    for (Thrower const thrower :
         {Thrower([] { throw 1; }), Thrower([] { throw ZOutOfMemoryException(); })}) {
        Acting const observer(handle->properties, thrower);
        EXPECT_EQ(zstzPropSetStringValue(handle, "s", "k", "v"), ZPROP_EDIT_ERROR);
    }
}

TEST_F(StanzaHandleTest, letsACancelledThreadEnd) {
    Acting const observer(handle->properties, pthread_testcancel);
    Doomed const thread([&] {
        pthread_cancel(pthread_self());
        static_cast<void>(zstzPropSetStringValue(handle, "s", "k", "v"));
        ADD_FAILURE() << "the cancellation was held back";
    });
    EXPECT_TRUE(thread.cancel());
    EXPECT_EQ(valueOf(handle->properties, "s", "k"), "v") << "nobody holds the lock";
}

}  // namespace
