// Reads three values of app.conf.
#include <iostream>

#include "Z/ZStanzaFileProperties.h"

int main() {
    ZStanzaFileProperties const settings("app.conf", 1);  // reads the file; 1: keep its comments

    ZLCString host;
    settings.getValue("server", "host", host, 1);                                 // 1: required
    unsigned int const port = settings.getIntegerValue("server", "port", 0, 80);  // 80 when absent
    bool const rotate = settings.getBooleanValue("log", "rotate") != 0;           // no when absent
    std::cout << host.getChars() << ":" << port << (rotate ? ", rotating logs\n" : "\n");
}
