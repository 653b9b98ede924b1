#include "Z/c_interface/handles.h"
#include "Z/zfree.h"

#include <cstdlib>
#include <cstring>

namespace {

using zfc::c_interface::answered;
using zfc::c_interface::guarded;
using zfc::c_interface::isHandle;

constexpr char sourceName[] = "src/Z/zproperties_c";
constexpr std::uint32_t guardWord = 0xc0ffeeee;

/// A block of the C allocator: the guard word, then the text, whose address is the answer.
char* guardedCopy(ZLCString const& text) {
    std::size_t const size = std::size_t{text.getLength()} + 1;
    auto* const block = static_cast<char*>(std::malloc(sizeof guardWord + size));
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    std::memcpy(block, &guardWord, sizeof guardWord);
    std::memcpy(block + sizeof guardWord, text.getChars(), size);
    return block + sizeof guardWord;
}

void freeText(ZStzFileItem const& item) {
    auto& text = *static_cast<char**>(item.result);
    std::free(std::exchange(text, nullptr));
}

void freeList(ZStzFileItem const& item) {
    auto& list = *static_cast<char***>(item.result);
    if (list == nullptr) return;
    for (char** text = list; *text != nullptr; ++text)
        std::free(*text);
    std::free(std::exchange(list, nullptr));
}

}  // namespace

char* zstzPropGetStringValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                             int required, int* rc) {
    return answered<char*>(isHandle(handle) && stanza != nullptr && key != nullptr, rc, [&] {
        ZLCString text;
        handle->properties.getValue(stanza, key, text, required);
        return text.isEmpty() ? nullptr : guardedCopy(text);
    });
}

void zstzPropFree(char* text) {
    if (text == nullptr) return;
    char* const block = text - sizeof guardWord;
    std::uint32_t found = 0;
    std::memcpy(&found, block, sizeof found);
    if (found != guardWord) return;
    explicit_bzero(block, sizeof guardWord);  // so that the text is not freed twice
    std::free(block);
}

int zstzPropGetValues(ZPROP_stz_handle* handle, ZStzFileItem* items, int count) {
    if (!isHandle(handle)) return ZPROP_INVALID_ARGUMENT;
    return guarded(ZPROP_INVALID_ARGUMENT, ZPROP_IO_ERROR,
                   [&] { handle->properties.getItems(items, count); });
}

void zstzPropFreeValuesList(ZPROP_stz_handle* handle, ZStzFileItem* items, int count) {
    if (!isHandle(handle) || items == nullptr) return;
    for (int i = 0; i < count; ++i) {
        if (items[i].result == nullptr) continue;
        if (items[i].type == ZPROP_ITEM_STRING) freeText(items[i]);
        if (items[i].type == ZPROP_ITEM_LIST) freeList(items[i]);
    }
}
