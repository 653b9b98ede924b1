// What strings do: edit, search, split, read lines, and go to and from the standard library.
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Z/ZLCString.h"
#include "Z/ZStringTokenizer.h"
#include "Z/zstd.h"

namespace {

void edit() {
    // [edit]
    ZLCString file("  /etc/app/app.conf\n");
    file.stripWhiteSpace();
    file.replace("app.conf", "site.conf");
    int const slash = file.lastIndexOf('/');  // an offset in bytes, or -1
    ZLCString const name = file.subString(static_cast<unsigned int>(slash) + 1);
    ZLCString line;
    line.format("%s of %u bytes", name.getChars(), file.getLength());
    // [/edit]
    std::cout << line << (file.endsWith(".conf") ? ", a .conf\n" : "\n");
}

void split() {
    // [split]
    ZLCString const path("/bin:/usr/bin::/opt/bin");
    ZLCString directory;  // receives each token
    ZStringTokenizer directories(path, directory, ZLCString(":"));
    while (directories.hasMore()) {
        directories.getNext();
        std::cout << directory << "\n";  // three: nothing stands between "::"
    }
    // [/split]
}

void lines() {
    std::istringstream stream("one\r\ntwo\n\nfour");
    // [lines]
    int count = 0;
    for (ZLCString line; line.readNext(stream);)  // ends a line at LF, CR or CR LF
        ++count;
    // [/lines]
    std::cout << count << " lines\n";
}

void standard() {
    // [standard]
    std::string_view const bytes = "west.example";
    ZLCString const host = zfc::stringOf(bytes);  // a copy; bytes need no NUL behind them
    bool const isSame = host == bytes;
    std::string const copy(zfc::view(host));  // the view lives until the string's next change
    std::unordered_map<ZLCString, int> ports{{host, 8080}};
    // [/standard]
    std::cout << host << ":" << ports[host] << (isSame ? ", the same as " : ", unlike ") << copy
              << "\n";
}

}  // namespace

int main() {
    edit();
    split();
    lines();
    standard();
}
