// Any text with any delimiters, in UTF-8 and in a local codeset of several bytes a character: its
// characters and its tokens are those of a slow walk over whole characters, and a malformed
// character raises its exception, no more.
#include <optional>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8String.h"
#include "Z/zqcsutil.h"
#include "fuzz_input.h"

namespace {

using fuzz::expect;
using fuzz::Input;
using Texts = std::vector<std::string>;

/// The characters of a text; nothing when one is malformed.
std::optional<Texts> charactersOf(ZCodesetHandle cs, std::string const& text) {
    Texts characters;
    for (std::size_t at = 0; at < text.size();) {
        int const length = zmblen(cs, text.c_str() + at, static_cast<unsigned>(text.size() - at));
        if (length <= 0) return std::nullopt;
        characters.push_back(text.substr(at, static_cast<std::size_t>(length)));
        at += static_cast<std::size_t>(length);
    }
    return characters;
}

Texts tokensOf(Texts const& characters, Texts const& delimiters) {
    Texts tokens;
    bool isInside = false;
    for (auto const& character : characters) {
        bool const isDelimiter =
            std::find(delimiters.begin(), delimiters.end(), character) != delimiters.end();
        if (!isDelimiter && !isInside) tokens.emplace_back();
        if (!isDelimiter) tokens.back() += character;
        isInside = !isDelimiter;
    }
    return tokens;
}

template <class Iterator>
std::optional<Texts> all(Iterator& iterator) try {
    Texts texts;
    while (iterator.hasMore())
        texts.emplace_back(iterator.getNext()->getChars());
    return texts;
} catch (ZQCSMBLenException const&) {
    return std::nullopt;
}

template <class String>
void check(ZCodesetHandle cs, std::string const& text, std::string const& delimiters) {
    String const source(text.c_str());
    String const set(delimiters.c_str());
    String target;
    auto const characters = charactersOf(cs, text);
    auto const delimiterCharacters = charactersOf(cs, delimiters);

    ZStringIterator iterator(source, target);
    expect(all(iterator) == characters, "other characters");
    ZStringTokenizer tokenizer(source, target, set);
    auto const tokens = all(tokenizer);
    if (!characters || !delimiterCharacters) return;  // tokens before a malformed one are as well
    expect(tokens == tokensOf(*characters, *delimiterCharacters), "other tokens");
    expect(source.getCharCount() == static_cast<int>(characters->size()), "another count");
    tokenizer.reset();
    ZArrayList list(1, 1);
    tokenizer.list(list);
    expect(list.size() == tokens->size(), "another list");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LC_ALL", "ja_JP.eucJP", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    std::string const delimiters = input.text();
    std::string const text = input.text();
    check<ZUTF8String>(zgetUTF8Handle(), text, delimiters);
    check<ZLCString>(zgetLCSHandle(), text, delimiters);
    return 0;
}
