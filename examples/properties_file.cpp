// Edits a properties file of the Java platform, whose other lines keep every byte, and reads it as
// a map of pairs.
#include <fstream>
#include <iostream>

#include "Z/ZJavaProperties.h"
#include "Z/ZJavaPropertiesFile.h"
#include "Z/ZLCString.h"

int main() {
    // [edit]
    ZJavaPropertiesFile settings("app.properties");
    settings.load();  // throws when it cannot
    ZUTF8String greeting;
    settings.getValue(ZLCString("greeting"), greeting);  // empty when there is none

    settings.updateFile(
        [](ZJavaPropertiesFile& file) {  // runs with the file locked, and read if it changed
            file.setValue(ZLCString("server.port"), ZLCString("8081"));
            file.addComment(ZLCString("server.port"), ZLCString(" raised for the load test"));
        },
        5000);  // waits for the lock up to 5,000 milliseconds
    // [/edit]
    std::cout << greeting.getChars() << "\n" << std::ifstream("app.properties").rdbuf();

    // [map]
    ZJavaProperties pairs;
    if (pairs.load("app.properties") == 0) return 1;  // the reason went to the message service
    ZLCString host;
    pairs.getValue(ZLCString("server.host"), host);  // empty when there is none
    pairs.setValue(ZLCString("server.port"), ZLCString("8082"));
    pairs.store("pairs.properties");  // throws when it cannot
    // [/map]
    std::cout << host.getChars() << "\n";
}
