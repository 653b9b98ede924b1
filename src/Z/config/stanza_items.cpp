#include "Z/ZException.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/zfree.h"
#include "Z/zproperties_c.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr char sourceName[] = "src/Z/ZStanzaFileProperties";

/// A text of the C allocator.
char* copyOf(char const* text) {
    char* const copy = strdup(text);
    if (copy == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return copy;
}

/// An array of texts that ends with null, both of the C allocator.
class Texts {
  public:
    explicit Texts(std::size_t count)
        : array(static_cast<char**>(std::calloc(count + 1, sizeof(char*)))) {
        if (array == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
    ~Texts() {
        if (array == nullptr) return;
        for (char** text = array; *text != nullptr; ++text)
            std::free(*text);
        std::free(array);
    }
    Texts(Texts const&) = delete;
    Texts& operator=(Texts const&) = delete;

    void add(char const* text) { array[used++] = copyOf(text); }
    [[nodiscard]] char** release() { return std::exchange(array, nullptr); }

  private:
    char** array;
    std::size_t used = 0;
};

/// So that a caller may free all answers whatever happens.
void clearAnswer(ZStzFileItem const& item) {
    if (item.result == nullptr) return;
    if (item.type == ZPROP_ITEM_STRING) *static_cast<char**>(item.result) = nullptr;
    if (item.type == ZPROP_ITEM_LIST) *static_cast<char***>(item.result) = nullptr;
}

}  // namespace

void ZStanzaFileProperties::getItems(ZStzFileItem* items, int count) const {
    if (count < 0 || (items == nullptr && count != 0))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    for (int i = 0; i < count; ++i)
        clearAnswer(items[i]);
    ZPropResourceLock const hold(propLock);
    for (int i = 0; i < count; ++i)
        answer(items[i]);
}

void ZStanzaFileProperties::answer(ZStzFileItem const& item) const {
    if (item.result == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    int const required = item.optional == 1 ? 0 : 1;
    switch (item.type) {
        case ZPROP_ITEM_BOOLEAN:
            *static_cast<int*>(item.result) = getBooleanValue(item.stanza, item.key, required);
            break;
        case ZPROP_ITEM_INTEGER:
            *static_cast<int*>(item.result) =
                static_cast<int>(getIntegerValue(item.stanza, item.key, required));
            break;
        case ZPROP_ITEM_STRING:
            answerText(item, required);
            break;
        case ZPROP_ITEM_LIST:
            answerList(item, required);
            break;
        default:
            zraise(ZInvalidParameterException(), sourceName, __LINE__);
    }
}

void ZStanzaFileProperties::answerText(ZStzFileItem const& item, int required) const {
    ZLCString text;
    getValue(item.stanza, item.key, text, required);
    if (!text.isEmpty()) *static_cast<char**>(item.result) = copyOf(text.getChars());
}

void ZStanzaFileProperties::answerList(ZStzFileItem const& item, int required) const {
    ZLCString last;
    getValue(item.stanza, item.key, last, required);  // raises where nothing is there
    Texts texts(numValues(item.stanza, item.key));
    values().forEachValue(item.stanza, item.key, ZPCache::plainElseObfuscated,
                          [&](char const* text, unsigned int) { texts.add(text); });
    *static_cast<char***>(item.result) = texts.release();
}
