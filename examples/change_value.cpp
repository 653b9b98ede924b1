// Changes app.conf and shows it: what people wrote stays where it was.
#include <fstream>
#include <iostream>

#include "Z/ZStanzaFileProperties.h"

int main() {
    ZStanzaFileProperties settings("app.conf", 1);
    settings.setIntegerValue("server", "port", 8081);
    settings.setIntegerValue("server", "timeout", 60);  // new: goes below its "# timeout = 30"
    settings.addEntryComment("server", "port", "# 8080 is the proxy's now");
    settings.store();  // into the file that it came from

    std::cout << std::ifstream("app.conf").rdbuf();
}
