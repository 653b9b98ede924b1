// The printf engine: numbered arguments, measuring, allocation, strings.
// Numbered arguments and null text are not ISO C++, so compilers would complain of them.
#define ZFC_NO_FORMAT_CHECK

#include <array>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "Z/ZLCString.h"
#include "Z/zasprintf.h"
#include "Z/zfree.h"
#include "Z/zsnprintf.h"

int main() {
    // [cut]
    std::array<char, 8> small{};
    int const needed =
        zsnprintf(small.data(), static_cast<int>(small.size()), "%s:%d", "east.example", 8080);
    std::cout << small.data() << " of " << needed << " bytes\n";  // always ends with a NUL
    // [/cut]

    // [numbered]
    ZLCString message;
    message.format("%2$s has %1$d hosts, in hexadecimal %1$#x", 42, "the east");
    std::cout << message.getChars() << "\n";
    // [/numbered]

    // [allocated]
    char* block = nullptr;
    if (zasprintf(&block, "%-6s|%+.2f|", "east", 1.5) >= 0) std::cout << block << "\n";
    zasprintf_free(block);  // null is fine

    if (zsprintf(&block, "%.*s", 4, "east.example") < 0) return 1;
    std::unique_ptr<char, ZFree> const text(block);  // a block of zsprintf() is free()d
    std::cout << text.get() << "\n";
    // [/allocated]

    // [different]
    char const* const none = nullptr;
    message.format("[%s] [%p] [%.f]", none, static_cast<void*>(nullptr), 2.5);
    std::cout << message.getChars() << "\n";
    // [/different]
}
