// Uses the library beside classes of the same names that were compiled without it, and a string
// before main().
#include <Z/zfc.h>

#include <cstdlib>

#include "vendor.h"

namespace {

zfc::String early(std::getenv("QCSDIR"));

}  // namespace

int main() {
    zfc::ArrayList list(1, 0);
    list.add(&early);
    zfc::Voyeur const nobody(nullptr);
    char line[200];
    zfc::zsnprintf(line, sizeof line, "%s %u %d %s %s",
                   static_cast<zfc::String*>(list.get(0))->getChars(), list.size(),
                   vendor::ZList(2).size(), vendor::Voyeur::name(),
                   nobody.getObserver() == nullptr ? "nobody" : "somebody");
    return std::puts(line) < 0;
}
