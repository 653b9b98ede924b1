// The library without its macros, beside a class of one's own that has a name of its.
#include <Z/zfc.h>

#include <iostream>

namespace vendor {

struct ZList {
    int size = 3;
};

}  // namespace vendor

int main() {
    zfc::StanzaFileProperties settings("app.conf", 1);
    zfc::String host;
    settings.getValue("server", "host", host, 1, nullptr);

    zfc::ArrayList addresses(4, 1);
    settings.getValues("server", "listen", addresses, zpropLocalCodeset);

    char line[80];
    zfc::zsnprintf(line, sizeof line, "%s listens on %u addresses", host.getChars(),
                   addresses.size());
    std::cout << line << ", with release " << zfc::zfcVersion() << "\n"
              << "the vendor's list has " << vendor::ZList().size << "\n";
}
