// A class of the program's own in the containers: cloned, found in a map, sorted two ways.
#include <iostream>

#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZSort.h"
#include "Z/zstd.h"

namespace {

// [class]
class Host : public ZObject {
  public:
    Host(char const* hostName, int hostLoad) : name(hostName), load(hostLoad) {}

    ZObject* clone() const override { return new Host(*this); }  // or owning containers refuse it
    int compare(ZObject const& other) const override {           // equals() asks it too
        auto const* const host = dynamic_cast<Host const*>(&other);
        return host != nullptr ? name.compare(host->name) : ZObject::compare(other);
    }
    unsigned long hash() const override { return name.hash(); }  // equal hosts have equal hashes

    ZLCString name;
    int load;
};

class ByLoad : public ZSortCompare {
  public:
    int sortCompare(ZObject const* a, ZObject const* b) const override {
        return static_cast<Host const*>(a)->load - static_cast<Host const*>(b)->load;
    }
};
// [/class]

void show(ZList const& hosts) {
    for (ZObject const* const member : zfc::membersOf(hosts)) {
        auto const* const host = static_cast<Host const*>(member);
        std::cout << host->name << " " << host->load << "  ";
    }
    std::cout << "\n";
}

}  // namespace

int main() {
    Host east("east", 30);
    Host north("north", 10);
    Host west("west", 20);
    ZArrayList hosts(4, 0);
    for (Host* const host : {&west, &east, &north})
        hosts.add(host);
    // [sort]
    hosts.sort(ZSortCompare::defaultSortCompare(), ZSortCompare::ascending);  // by compare()
    show(hosts);
    hosts.sort(ByLoad(), ZSortCompare::descending);
    show(hosts);
    // [/sort]
    // [map]
    ZHashMap known(100, 1);  // about 100 entries; 1: it owns them
    known.putEntry(&east);   // a clone
    Host newer("east", 5);
    known.putEntry(&newer);  // in the place of its equal
    auto const* const found = static_cast<Host const*>(known.getEntry(&east));
    // [/map]
    std::cout << found->name << " " << found->load << ", " << known.size() << " known\n";
}
