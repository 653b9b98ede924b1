// Our side of the comparison with Java; java.sh runs both, Pairs.java says what PAIRS is.
//
//   java_pairs store PAIRS FILE     stores the pairs
//   java_pairs check PAIRS FILE     loads FILE and compares; 1 when it differs
#include <cstdio>
#include <fstream>
#include <string>

#include "Z/ZJavaProperties.h"
#include "Z/zutfconvert.h"

namespace {

/// Each UTF-16 unit by itself, as the escapes of a file are read.
ZUTF8String textOf(std::string const& hex) {
    ZUTF8String text;
    for (std::size_t at = 0; hex != "-" && at < hex.size(); at += 4) {
        auto const unit = static_cast<unsigned short>(std::stoul(hex.substr(at, 4), nullptr, 16));
        unsigned char bytes[4];
        unsigned char* end = bytes;
        unsigned short const* from = &unit;
        zconvert_UTF16_to_UTF8(&from, from + 1, &end, bytes + sizeof bytes);
        for (unsigned char const* byte = bytes; byte < end; ++byte)
            text.append(static_cast<char>(*byte));
    }
    return text;
}

int check(ZJavaProperties const& loaded, ZJavaProperties const& expected) {
    ZArrayList keys(1, 0);
    expected.listKeys(keys);
    unsigned int wrong = 0;
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZUTF8String const&>(*keys.get(i));
        ZUTF8String value;
        ZUTF8String right;
        loaded.getValue(key, value);
        expected.getValue(key, right);
        if (loaded.contains(key) && value == right) continue;
        std::printf("key \"%s\" is \"%s\", not \"%s\"\n", key.getChars(), value.getChars(),
                    right.getChars());
        ++wrong;
    }
    ZArrayList all(1, 0);
    loaded.listKeys(all);
    if (all.size() != keys.size()) std::printf("%u pairs, not %u\n", all.size(), keys.size());
    return wrong == 0 && all.size() == keys.size() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    ZJavaProperties pairs;
    std::ifstream list(argv[2]);
    for (std::string key, value; list >> key >> value;)
        pairs.setValue(textOf(key), textOf(value));
    if (std::string(argv[1]) == "store") {
        pairs.store(argv[3]);
        return 0;
    }
    ZJavaProperties loaded;
    return loaded.load(argv[3]) == 1 ? check(loaded, pairs) : 1;
}
