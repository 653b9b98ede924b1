// Keeps a password out of the readable file, and reads it back.
#include <sys/stat.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "Z/ZStanzaFileProperties.h"

namespace {

std::string bytesOf(char const* file) {
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
}

char const* holdsPassword(char const* file) {
    return bytesOf(file).find("tiger") == std::string::npos ? "no password to see" : "a password";
}

}  // namespace

int main() {
    chmod("app.conf", 0600);  // the companion is made no wider than the file
    // [secret]
    ZStanzaFileProperties settings("app.conf", 1);
    settings.setValue("database", "user", "scott");
    settings.setValue("database", "password", "tiger", 1);  // 1: obfuscated
    settings.store();

    ZStanzaFileProperties const again("app.conf", 1);
    ZLCString password;
    again.getValue("database", "password", password, 1);
    // [/secret]
    std::cout << "app.conf: " << holdsPassword("app.conf") << "\n"
              << "app.conf.obf: " << holdsPassword("app.conf.obf") << "\n"
              << "read back: " << password.getChars()
              << (again.isObfuscated("database", "password") ? ", obfuscated\n" : ", plain\n");
}
