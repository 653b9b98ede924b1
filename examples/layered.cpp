// Settings from a system file, a directory of drop-in files and the environment.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Z/ZLayeredProperties.h"
#include "Z/ZTypedValues.h"

int main() {
    std::filesystem::create_directory("app.conf.d");
    std::ofstream("app.conf.d/10-site.conf") << "[server]\nport = 8090\n";
    setenv("APP_LOG__LEVEL", "debug", 1);

    // [layers]
    ZLayeredProperties settings;
    settings.addFile("app.conf");
    settings.addDirectory("app.conf.d");  // *.conf in the byte order of their names
    settings.addFile("user.conf", ZLayeredProperties::Presence::optional);
    settings.addEnvironment("APP_");  // APP_LOG__LEVEL is level in stanza log
    settings.load();
    auto const port = zfc::get<int>(settings, "server", "port");
    // [/layers]
    std::cout << "port " << port.value_or(0) << " of " << settings.getOrigin("server", "port")
              << "\n";
    ZLCString text;
    settings.getValue("log", "level", text);
    std::cout << "level " << text << " of " << settings.getOrigin("log", "level") << "\n";
    settings.getValue("server", "host", text);
    std::cout << "host " << text << " of " << settings.getOrigin("server", "host") << "\n";
}
