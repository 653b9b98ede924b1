// What the debugger is to print: objects in known states, and places to stop at.
#include <memory>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "Z/ZKeyMap.h"
#include "Z/ZLCConstString.h"
#include "Z/ZReadWriteLock.h"
#include "Z/ZStack.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZUTF8String.h"

namespace {

struct Name : ZLCString {
    using ZLCString::ZLCString;
    [[nodiscard]] ZLCString* clone() const override { return new Name(*this); }
};
struct Point : ZObject {
    int x = 4, y = 2;
    [[nodiscard]] ZObject* clone() const override { return new Point(*this); }
};

struct Samples {
    ZLCString local{"it's \"gr\xC3\xBCn\"\n\xFF"};
    ZUTF8String longText;
    ZLCConstString view{"shown"};
    ZArrayList list{2, 1};
    ZArray array{2, 0};
    ZHashMap map{1, 1};
    ZHashKeyMap keys{50, 1};
    ZBuffer buffer{"\1a\"b"};
    ZLock lock;
    ZBooleanCondition condition;
    ZReadWriteLock readers, writer;
    ZUnixProcessReadWriteFileLock shared{"counter", "."};
    ZStanzaFileProperties settings{1};
};

}  // namespace

extern "C" {
Samples* samples;  // not optimised away
ZAbstractString const* seenAsString;
ZList const* seenAsList;
ZException const* failure;
__attribute__((noinline)) void stopHere() { asm volatile("" ::: "memory"); }
}

namespace {

void fill(Samples& s) {
    for (int i = 0; i < 300; ++i)
        s.longText += "0123456789";
    Name name("derived");
    Point point;
    ZArrayList inner(1, 1);
    for (ZObject* const one : {static_cast<ZObject*>(&name), static_cast<ZObject*>(&inner)})
        s.list.add(one);
    s.list.add(&point);
    s.array.set(1, &s.local);
    for (int i = 0; i < 20; ++i) {
        ZLCString key(i);
        s.map.putEntry(&key);  // in one bucket
        if (i % 10 == 0) s.keys.putEntry(&key, &name);
    }
    s.settings.setValue("server", "host", "east", 0);
    s.settings.setValue("gone", "key", "gone", 0);
    for (char const* const text : {"a", "b", "c"})
        s.settings.addValue("server", "listen", text);
    s.settings.deleteStanza("gone");
    s.settings.setValue("log", "rotate", nullptr, 0);
    s.settings.setValue("log", "password", "hush", 1);
}

/// The analysis knows one depth.
void holdAll(Samples& s) ZNO_THREAD_SAFETY_ANALYSIS {
    for (int i = 0; i < 3; ++i)
        s.lock.lock();
    s.readers.readLock();
    s.readers.readWithIntentToWriteLock();
    s.writer.writeLock();
    s.shared.readLock();
    stopHere();
    for (int i = 0; i < 3; ++i)
        s.lock.unlock();
    s.readers.unlock();
    s.readers.unlock();
    s.writer.unlock();
    s.shared.unlock();
}

}  // namespace

int main() {
    auto const all = std::make_unique<Samples>();
    samples = all.get();
    seenAsString = &all->view;
    seenAsList = &all->list;
    ZInvalidParameterException const refused;
    failure = &refused;
    fill(*all);
    stopHere();  // nothing is held
    holdAll(*all);
    return 0;
}
