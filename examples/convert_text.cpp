// Converts a file from any codeset to UTF-8, or says at which byte it cannot.
//
//     convert_text CODESET < IN > OUT
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZQCSUTF8Converter.h"

namespace {

bool convert(char const* codeset, std::istream& in, std::ostream& out) {
    std::string const text{std::istreambuf_iterator<char>(in), {}};
    ZQCSUTF8Converter const converter(codeset, nullptr);
    ZBuffer utf8;
    unsigned long place = 0;
    if (!converter.tryConvertToUTF8(text.data(), text.size(), utf8, &place)) {
        std::cerr << "the character at byte " << place << " is not in " << codeset << "\n";
        return false;
    }
    auto const* const bytes = static_cast<char const*>(utf8.getBuffer());
    out.write(bytes, static_cast<std::streamsize>(utf8.getLength() - 1));  // 1: the NUL behind it
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 2) return convert(argv[1], std::cin, std::cout) ? 0 : 1;
        std::istringstream sample(
            "Gr\xfc\xdf"
            "e in ISO 8859-1\n");
        return convert("ISO-8859-1", sample, std::cout) ? 0 : 1;
    } catch (ZException& e) {
        e.dumpException();  // an unknown codeset
        return 2;
    }
}
