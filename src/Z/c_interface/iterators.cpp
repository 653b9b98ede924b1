#include <cstring>

#include "Z/ZList.h"
#include "Z/c_interface/handles.h"

namespace {

using zfc::c_interface::answered;
using zfc::c_interface::edited;
using zfc::c_interface::guarded;
using zfc::c_interface::isHandle;
using zfc::c_interface::refusedArgument;

constexpr char sourceName[] = "src/Z/zproperties_c";

[[noreturn]] void raiseNotOffered() {
    zraise(ZPropertiesIteratorException(""), sourceName, __LINE__);
}

/// The values handed out since the iterator moved: an edit or a second question must not take the
/// memory of one that the caller still holds.
class HandedOut {
  public:
    char const* give(char const* text) {
        if (text == nullptr) return nullptr;
        // Asked again and again, a value takes memory once.
        if (texts.size() == 0 || std::strcmp(last(), text) != 0) {
            ZLCString copy(text);
            texts.add(&copy);
        }
        return last();
    }
    void clear() { texts.removeAll(); }

  private:
    [[nodiscard]] char const* last() const {
        return static_cast<ZLCString const*>(texts.get(texts.size() - 1))->getChars();
    }

    ZArrayList texts{1, 1};  // ZLCString, owned
};

}  // namespace

ZPROP_iter_handle::~ZPROP_iter_handle() = default;

unsigned int ZPROP_iter_handle::numValues() { raiseNotOffered(); }
void ZPROP_iter_handle::addValue(char const*) { raiseNotOffered(); }
void ZPROP_iter_handle::changeValue(char const*) { raiseNotOffered(); }
void ZPROP_iter_handle::removeValue() { raiseNotOffered(); }

/// Over the keys of one stanza.
struct ZPROP_stz_iter_handle : ZPROP_iter_handle {
    ZPROP_stz_iter_handle(ZStanzaFileProperties& properties, char const* stanza)
        : ZPROP_iter_handle(zfc::c_interface::overKeys), iterator(properties, stanza) {}

    bool next() override {
        values.clear();
        return iterator.next();
    }
    char const* key() override { return iterator.getName(); }
    char const* value() override { return values.give(iterator.getValue()); }
    unsigned int numKeys() override { return iterator.size(); }

    ZStanzaIterator iterator;
    HandedOut values;
};

/// Over the values of one key.
struct ZPROP_stzvalue_iter_handle : ZPROP_iter_handle {
    ZPROP_stzvalue_iter_handle(ZStanzaFileProperties& properties, char const* stanza,
                               char const* ofKey)
        : ZPROP_iter_handle(zfc::c_interface::overValues),
          iterator(properties, stanza, ofKey),
          keyName(ofKey) {}

    bool next() override {
        values.clear();
        bool const moved = iterator.next();
        if (moved) current = iterator.getValue();
        return moved;
    }
    char const* key() override { return keyName.getChars(); }
    char const* value() override {
        static_cast<void>(iterator.getValue());  // raises where there is none
        return values.give(current.getChars());
    }
    unsigned int numKeys() override { return 1; }
    unsigned int numValues() override { return iterator.size(); }
    void addValue(char const* text) override { iterator.addValue(text); }
    void changeValue(char const* text) override {
        iterator.changeValue(text);
        current = iterator.getValue();
    }
    void removeValue() override { iterator.removeValue(); }

    ZStanzaValueIterator iterator;
    ZLCString current;  // a copy of the value moved to
    ZLCString keyName;
    HandedOut values;
};

int zstzPropIter_init(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                      ZPROP_iter_handle** iterator) {
    if (iterator == nullptr) return refusedArgument();
    // In any case: a caller that ignores the code must not have a stray pointer for a handle.
    *iterator = nullptr;
    if (!isHandle(handle) || stanza == nullptr) return refusedArgument();
    return guarded(ZPROP_INVALID_ARGUMENT, ZPROP_IO_ERROR, [&] {
        if (key == nullptr) {
            *iterator = new ZPROP_stz_iter_handle(handle->properties, stanza);
        } else {
            *iterator = new ZPROP_stzvalue_iter_handle(handle->properties, stanza, key);
        }
    });
}

int zstzPropIter_next(ZPROP_iter_handle* iterator, int* rc) {
    return answered<int>(isHandle(iterator), rc, [&] { return iterator->next(); });
}

char const* zstzPropIter_getKey(ZPROP_iter_handle* iterator, int* rc) {
    return answered<char const*>(isHandle(iterator), rc, [&] { return iterator->key(); });
}

char const* zstzPropIter_getValue(ZPROP_iter_handle* iterator, int* rc) {
    return answered<char const*>(isHandle(iterator), rc, [&] { return iterator->value(); });
}

int zstzPropIter_numKeys(ZPROP_iter_handle* iterator, int* rc) {
    return answered<int>(isHandle(iterator), rc, [&] { return iterator->numKeys(); });
}

int zstzPropIter_numValues(ZPROP_iter_handle* iterator, int* rc) {
    return answered<int>(isHandle(iterator), rc, [&] { return iterator->numValues(); });
}

int zstzPropIter_addValue(ZPROP_iter_handle* iterator, char const* value) {
    return edited(isHandle(iterator) && value != nullptr, [&] { iterator->addValue(value); });
}

int zstzPropIter_chgValue(ZPROP_iter_handle* iterator, char const* value) {
    return edited(isHandle(iterator) && value != nullptr, [&] { iterator->changeValue(value); });
}

int zstzPropIter_rmvValue(ZPROP_iter_handle* iterator) {
    return edited(isHandle(iterator), [&] { iterator->removeValue(); });
}

int zstzPropIter_close(ZPROP_iter_handle* iterator) {
    if (!isHandle(iterator)) return refusedArgument();
    return guarded(ZPROP_IO_ERROR, ZPROP_IO_ERROR, [&] { delete iterator; });
}
