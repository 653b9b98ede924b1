#include "Z/zproperties_c.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "Z/c_interface/handles.h"

using zfc::c_interface::answered;
using zfc::c_interface::edited;
using zfc::c_interface::guarded;
using zfc::c_interface::isHandle;
using zfc::c_interface::refusedArgument;

ZPROP_handle::~ZPROP_handle() = default;

ZPROP_stz_handle::ZPROP_stz_handle(char const* file, ZPROPOpenMode openMode)
    : ZPROP_handle(openMode), properties(file, 1) {}

ZPROP_stz_handle::~ZPROP_stz_handle() = default;

namespace {

constexpr char sourceName[] = "src/Z/zproperties_c";
constexpr std::uint32_t guardWord = 0xc0ffeeee;

/// A block of the C allocator: the guard word, then the text, whose address is the answer.
char* guardedCopy(ZLCString const& text) {
    std::size_t const size = std::size_t{text.getLength()} + 1;
    auto* const block = static_cast<char*>(std::malloc(sizeof guardWord + size));
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    // The caller has the address of the text alone: this tells zstzPropFree() that it is one of
    // ours.
    std::memcpy(block, &guardWord, sizeof guardWord);
    std::memcpy(block + sizeof guardWord, text.getChars(), size);
    return block + sizeof guardWord;
}

void freeText(ZStzFileItem const& item) {
    auto& text = *static_cast<char**>(item.result);
    // Null behind it, so that freeing the same items again does nothing.
    std::free(std::exchange(text, nullptr));
}

void freeList(ZStzFileItem const& item) {
    auto& list = *static_cast<char***>(item.result);
    if (list == nullptr) return;
    for (char** text = list; *text != nullptr; ++text)
        std::free(*text);
    std::free(std::exchange(list, nullptr));
}

/// C code may pass any number as the enumeration; reading it as one would be undefined.
bool isOpenMode(ZPROPOpenMode const& mode) {
    int number = 0;
    static_assert(sizeof number == sizeof mode);
    std::memcpy(&number, &mode, sizeof number);
    return number == ZPROP_OPEN_READ || number == ZPROP_OPEN_WRITE;
}

}  // namespace

// ----------------------------------------------------------------------------------------- files

int zstzPropOpen(ZPROP_stz_handle** handle, char const* file, ZPROPOpenMode mode) {
    if (handle == nullptr) return refusedArgument();
    // In any case: a caller that ignores the code must not have a stray pointer for a handle.
    *handle = nullptr;
    if (file == nullptr || !isOpenMode(mode)) return refusedArgument();
    return guarded(ZPROP_IO_ERROR, ZPROP_IO_ERROR,
                   [&] { *handle = new ZPROP_stz_handle(file, mode); });
}

int zstzPropClose(ZPROP_stz_handle* handle) {
    if (!isHandle(handle)) return refusedArgument();
    return guarded(ZPROP_IO_ERROR, ZPROP_IO_ERROR, [&] { delete handle; });
}

int zstzPropStore(ZPROP_stz_handle* handle, char const* file) {
    if (!isHandle(handle)) return refusedArgument();
    return guarded(ZPROP_IO_ERROR, ZPROP_IO_ERROR, [&] { handle->properties.store(file); });
}

int zstzPropUpdate(ZPROP_stz_handle* handle, unsigned int milliseconds, ZPROPUpdate edit,
                   void* data) {
    if (!isHandle(handle) || edit == nullptr) return refusedArgument();
    bool gaveUp = false;
    auto const run = [&](ZStanzaFileProperties&) {
        int answer = 0;
        int const code =
            guarded(ZPROP_EDIT_ERROR, ZPROP_EDIT_ERROR, [&] { answer = edit(handle, data); });
        gaveUp = code != ZPROP_OK || answer != 0;
        // Whatever is thrown here undoes the edits.
        if (gaveUp) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    };
    int const code = guarded(ZPROP_INVALID_ARGUMENT, ZPROP_IO_ERROR,
                             [&] { handle->properties.updateFile(run, milliseconds); });
    return gaveUp ? ZPROP_EDIT_ERROR : code;
}

// --------------------------------------------------------------------------------------- reading

int zstzPropExists(ZPROP_stz_handle* handle, char const* stanza, char const* key, int* rc) {
    return answered<int>(isHandle(handle) && stanza != nullptr, rc, [&] {
        ZStanzaFileProperties const& properties = handle->properties;
        return key == nullptr ? properties.exists(stanza) : properties.exists(stanza, key);
    });
}

int zstzPropNumStanzas(ZPROP_stz_handle* handle, int* rc) {
    return answered<int>(isHandle(handle), rc, [&] { return handle->properties.count(); });
}

int zstzPropNumKeys(ZPROP_stz_handle* handle, char const* stanza, int* rc) {
    return answered<int>(isHandle(handle) && stanza != nullptr, rc,
                         [&] { return handle->properties.count(stanza); });
}

int zstzPropNumValues(ZPROP_stz_handle* handle, char const* stanza, char const* key, int* rc) {
    return answered<int>(isHandle(handle) && stanza != nullptr && key != nullptr, rc,
                         [&] { return handle->properties.numValues(stanza, key); });
}

char* zstzPropGetStringValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                             int required, int* rc) {
    return answered<char*>(isHandle(handle) && stanza != nullptr && key != nullptr, rc, [&] {
        ZLCString text;
        handle->properties.getValue(stanza, key, text, required);
        return text.isEmpty() ? nullptr : guardedCopy(text);
    });
}

unsigned int zstzPropGetIntegerValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                     int required, int* rc) {
    return answered<unsigned int>(isHandle(handle) && stanza != nullptr && key != nullptr, rc, [&] {
        return handle->properties.getIntegerValue(stanza, key, required);
    });
}

int zstzPropGetBooleanValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                            int required, int* rc) {
    return answered<int>(isHandle(handle) && stanza != nullptr && key != nullptr, rc,
                         [&] { return handle->properties.getBooleanValue(stanza, key, required); });
}

int zstzPropGetValues(ZPROP_stz_handle* handle, ZStzFileItem* items, int count) {
    if (!isHandle(handle)) return refusedArgument();
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

void zstzPropFree(char* text) {
    if (text == nullptr) return;
    char* const block = text - sizeof guardWord;
    std::uint32_t found = 0;
    // By its bytes: what anybody may pass is aligned to nothing.
    std::memcpy(&found, block, sizeof found);
    if (found != guardWord) return;
    explicit_bzero(block, sizeof guardWord);  // so that the text is not freed twice
    std::free(block);
}

// --------------------------------------------------------------------------------------- editing

int zstzPropSetStringValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                           char const* value) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr,
                  [&] { handle->properties.setValue(stanza, key, value, 0); });
}

int zstzPropSetIntegerValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                            unsigned int value) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr,
                  [&] { handle->properties.setIntegerValue(stanza, key, value); });
}

int zstzPropSetBooleanValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                            int value) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr,
                  [&] { handle->properties.setBooleanValue(stanza, key, value); });
}

int zstzPropRemoveKey(ZPROP_stz_handle* handle, char const* stanza, char const* key) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr,
                  [&] { handle->properties.deleteKey(stanza, key); });
}

int zstzPropRemoveStanza(ZPROP_stz_handle* handle, char const* stanza) {
    return edited(isHandle(handle) && stanza != nullptr,
                  [&] { handle->properties.deleteStanza(stanza); });
}

int zstzPropAddFileComment(ZPROP_stz_handle* handle, char const* text) {
    return edited(isHandle(handle) && text != nullptr,
                  [&] { handle->properties.addFileComment(text); });
}

int zstzPropAddStanzaComment(ZPROP_stz_handle* handle, char const* stanza, char const* text) {
    return edited(isHandle(handle) && stanza != nullptr && text != nullptr,
                  [&] { handle->properties.addStanzaComment(stanza, text); });
}

int zstzPropAddLineComment(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                           char const* text) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr && text != nullptr,
                  [&] { handle->properties.addEntryComment(stanza, key, text); });
}
