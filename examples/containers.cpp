// Who owns what: an owning list, one that borrows, maps, and the ways to walk them.
#include <iostream>
#include <memory>

#include "Z/ZKeyMap.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/zstd.h"

namespace {

ZLCString const& text(ZObject const* object) { return *static_cast<ZLCString const*>(object); }

void lists() {
    // [lists]
    ZLCString host("east");
    ZArrayList owning(4, 1);     // room for 4 at first; 1: it owns its members
    ZArrayList borrowing(4, 0);  // 0: it has the caller's pointers
    owning.add(&host);           // a clone
    borrowing.add(&host);        // host itself
    auto made = std::make_unique<ZLCString>("north");
    owning.addNoCopy(made.get());  // itself, which is the list's from now on
    static_cast<void>(made.release());

    host = "west";  // the clone stays as it was
    ZLCString const wanted("east");
    std::cout << text(owning.get(0)) << " " << text(borrowing.get(0)) << " at "
              << owning.indexOf(&wanted) << "\n";
    // [/lists]
    // [walk]
    for (ZObject const* const member : owning)  // the fastest; the list stays as it is meanwhile
        std::cout << text(member) << "\n";

    ZListIterator members(owning);  // knows its position only: the list may change
    while (members.hasMore())
        if (text(members.getNext()) == "east") owning.remove(members);
    // [/walk]
    std::cout << owning.size() << " left\n";
}

void maps() {
    // [maps]
    ZHashKeyMap ports(100, 1);  // about 100 pairs; 1: it has copies of keys and values
    ports.putEntry(std::make_unique<ZLCString>("http").get(),
                   std::make_unique<ZLCString>(80).get());
    ZLCString const key("https");
    ZLCString const value(443);
    ports.putEntry(&key, &value);

    ZLCString const asked("http");
    if (ZObject const* const port = ports.getEntry(&asked))  // null when there is none
        std::cout << "http has " << text(port) << "\n";
    // [/maps]
    std::cout << ports.size() << " pairs\n";
}

}  // namespace

int main() {
    lists();
    maps();
}
