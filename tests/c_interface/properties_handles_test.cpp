// link: static
// The records behind the C interface's handles: how they are told from other memory, and what may
// leave its functions.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>

#include "Z/c_interface/handles.h"
#include "support/properties.h"

namespace {

using testsupport::StanzaFile;
using testsupport::valueOf;

constexpr char sample[] = "[s]\nk = 1\nk = 2\n";

/// Does something when the object changes.
class Acting : public ZObserverInterface {
  public:
    explicit Acting(std::function<void()> what) : act(std::move(what)) {}
    void update(ZAbstractObservable*, ZObservedParm const&) override { act(); }

  private:
    std::function<void()> act;
};

/// One call of each kind, on whatever handle it is given.
void expectRefused(ZPROP_stz_handle* handle) {
    int rc = 0;
    ZPROP_iter_handle* iterator = nullptr;
    ZStzFileItem item{};
    EXPECT_EQ(zstzPropGetStringValue(handle, "s", "k", 0, &rc), nullptr);
    for (int const code :
         {rc, zstzPropStore(handle, nullptr), zstzPropClose(handle),
          zstzPropGetValues(handle, &item, 1), zstzPropSetStringValue(handle, "s", "k", "v"),
          zstzPropIter_init(handle, "s", nullptr, &iterator)})
        EXPECT_EQ(code, ZPROP_INVALID_ARGUMENT);
}

/// A handle of a file.
struct Opened {
    StanzaFile file{sample};
    ZPROP_stz_handle* handle = nullptr;

    Opened() { EXPECT_EQ(zstzPropOpen(&handle, file.path().c_str(), ZPROP_OPEN_WRITE), ZPROP_OK); }
    ~Opened() { EXPECT_EQ(zstzPropClose(handle), ZPROP_OK); }
    Opened(Opened const&) = delete;
    Opened& operator=(Opened const&) = delete;
};

TEST(StanzaHandleTest, isKnownByBothMarkers) {
    Opened const opened;
    ZPROP_stz_handle* const handle = opened.handle;
    std::uint32_t const markers[] = {0xbeeff00dU, 0xd00ffeebU};
    std::size_t i = 0;
    expectRefused(nullptr);
    for (zfc::c_interface::Marker* const marker : {&handle->first, &handle->second}) {
        auto* const word = reinterpret_cast<std::uint32_t volatile*>(marker);
        EXPECT_EQ(*word, markers[i]);
        *word = markers[i] ^ 1U;
        expectRefused(handle);
        *word = markers[i++];
    }
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(zstzPropIter_init(handle, "s", nullptr, &iterator), ZPROP_OK);
    for (int const bad : {0, 3}) {
        iterator->kind = bad;
        int rc = 0;
        EXPECT_EQ(zstzPropIter_next(iterator, &rc), 0);
        EXPECT_EQ(rc, ZPROP_INVALID_ARGUMENT);
        EXPECT_EQ(zstzPropIter_close(iterator), ZPROP_INVALID_ARGUMENT);
    }
    iterator->kind = zfc::c_interface::overKeys;
    EXPECT_EQ(zstzPropIter_close(iterator), ZPROP_OK);
}

TEST(StanzaHandleTest, isNoHandleAnyMoreWhenItsMemoryIsFreed) {
    StanzaFile const file(sample);
    alignas(ZPROP_stz_handle) unsigned char memory[sizeof(ZPROP_stz_handle)];
    auto* const handle = new (memory) ZPROP_stz_handle(file.path().c_str(), ZPROP_OPEN_READ);
    EXPECT_TRUE(zfc::c_interface::isHandle(handle));
    void const* const markers[] = {&handle->first, &handle->second};
    handle->~ZPROP_stz_handle();
    for (void const* const marker : markers) {
        std::uint32_t left = 1;
        std::memcpy(&left, marker, sizeof left);
        EXPECT_EQ(left, 0U);
    }
}

TEST(StanzaHandleTest, textsCarryTheirGuardWordInFront) {
    Opened const opened;
    char* const text = zstzPropGetStringValue(opened.handle, "s", "k", 1, nullptr);
    ASSERT_STREQ(text, "2");
    std::uint32_t guard = 0;
    std::memcpy(&guard, text - sizeof guard, sizeof guard);
    EXPECT_EQ(guard, 0xc0ffeeeeU);
    guard ^= 1U;
    std::memcpy(text - sizeof guard, &guard, sizeof guard);
    zstzPropFree(text);
    EXPECT_STREQ(text, "2");
    std::free(text - sizeof guard);
}

TEST(StanzaHandleTest, letsNoExceptionOut) {
    Opened const opened;
    using Thrower = void (*)();
    for (Thrower const thrower :
         {Thrower([] { throw 1; }), Thrower([] { throw std::runtime_error("foreign"); }),
          Thrower([] { throw ZOutOfMemoryException(); })}) {
        Acting observer(thrower);
        opened.handle->properties.addObserver(&observer);
        EXPECT_EQ(zstzPropSetStringValue(opened.handle, "s", "k", "v"), ZPROP_EDIT_ERROR);
        opened.handle->properties.deleteObservers();
    }
}

TEST(StanzaHandleTest, letsACancelledThreadEnd) {
    Opened const opened;
    Acting observer([] {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    });
    opened.handle->properties.addObserver(&observer);
    auto const edit = [](void* handle) -> void* {
        static_cast<void>(
            zstzPropSetStringValue(static_cast<ZPROP_stz_handle*>(handle), "s", "k", "v"));
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, edit, opened.handle), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    opened.handle->properties.deleteObservers();
    EXPECT_EQ(valueOf(opened.handle->properties, "s", "k"), "v") << "nobody holds the lock";
}

}  // namespace
