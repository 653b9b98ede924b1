// A key with several values: reads all, adds one, replaces all.
#include <iostream>
#include <string>
#include <vector>

#include "Z/ZStanzaFileProperties.h"
#include "Z/ZTypedValues.h"

namespace {

void show(ZStanzaFileProperties const& settings) {
    // [read]
    ZArrayList addresses(4, 1);  // 1: the list owns the strings that it is given
    settings.getValues("server", "listen", addresses, zpropLocalCodeset);
    for (ZObject const* const address : addresses)
        std::cout << static_cast<ZLCString const*>(address)->getChars() << " ";
    // [/read]
    std::cout << "\n";
}

}  // namespace

int main() {
    ZStanzaFileProperties settings("app.conf", 1);
    show(settings);
    // [change]
    settings.addValue("server", "listen", "10.0.0.3");  // one more
    show(settings);
    settings.setValue("server", "listen", "10.0.0.4");  // the only one
    show(settings);
    std::vector<std::string> const both{"10.0.0.5", "10.0.0.6"};
    zfc::set(settings, "server", "listen", both);  // these, in this order
    show(settings);
    // [/change]
    settings.store();
}
