// Text in UTF-8, in the local codeset and in one that is named: bytes, characters, conversions.
#include <iostream>
#include <string_view>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/zqcsutil.h"
#include "Z/zstd.h"

int main() {
    // [walk]
    ZUTF8String const word("Gr\u00fc\u00dfe");
    std::cout << word.getLength() << " bytes, " << word.getCharCount() << " characters:";
    for (std::string_view const character : zfc::Characters(word))
        std::cout << " " << character;
    // [/walk]
    ZUTF8String capitals(word);
    capitals.upper();  // the sharp s has no capital of one character
    std::cout << "\ncapitals: " << capitals << "\n";

    // [local]
    ZLCString const local(word);  // converted; empty where the local codeset lacks a character
    std::cout << (local.isEmpty() ? "not in " : "also in ") << zgetLocalCodesetName() << "\n";
    // [/local]

    // [named]
    ZQCSUTF8Converter latin1("ISO-8859-1", nullptr);  // whatever the process's codeset is
    ZBuffer bytes;
    if (latin1.tryConvertToLocal(word.getChars(), word.getLength(), bytes))
        std::cout << bytes.getLength() - 1 << " bytes in " << latin1.getLocalCodeSet() << "\n";
    unsigned long place = 0;
    ZUTF8String const price("10 \u20ac");
    if (!latin1.tryConvertToLocal(price.getChars(), price.getLength(), bytes, &place))
        std::cout << "the character at byte " << place << " is not in it\n";
    // [/named]

    try {
        static_cast<void>(ZQCSUTF8Converter("no-such-codeset", nullptr));
    } catch (ZCodesetException const& e) {
        std::cout << "message " << e.getCode() << ": no such codeset\n";
    }
}
