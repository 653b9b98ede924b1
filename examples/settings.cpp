// Opens a stanza file, asks typed questions, changes a setting, stores the file.
//
//     settings FILE
#include <iostream>

#include "Z/ZException.h"
#include "Z/ZStanzaFileProperties.h"

namespace {

void showAndRaisePort(char const* file) {
    ZStanzaFileProperties settings(file, 1);  // 1: comments and blank lines are kept

    ZLCString host;
    settings.getValue("server", "host", host, 1, nullptr);  // 1: required
    unsigned int const port = settings.getIntegerValue("server", "port", 0, 80);
    bool const rotate = settings.getBooleanValue("log", "rotate", 0, 0) != 0;
    std::cout << host.getChars() << ":" << port << (rotate ? ", rotating logs\n" : "\n");

    ZArrayList addresses(4, 1);
    settings.getValues("server", "listen", addresses, zpropLocalCodeset);
    for (unsigned int i = 0; i < addresses.size(); ++i)
        std::cout << "listens on " << static_cast<ZLCString*>(addresses.get(i))->getChars() << "\n";

    settings.setIntegerValue("server", "port", port + 1);
    settings.setIntegerValue("server", "timeout", 60);  // new: goes below its "# timeout = 30"
    settings.store(nullptr);                            // null: the file it was loaded from
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: settings FILE\n";
        return 2;
    }
    try {
        showAndRaisePort(argv[1]);
    } catch (ZException& e) {
        e.dumpException();  // to standard error, by the message service
        return 1;
    }
    return 0;
}
