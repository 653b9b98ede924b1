#include <fcntl.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "Z/ZList.h"
#include "Z/ZTypedValues.h"
#include "Z/c_interface/handles.h"
#include "Z/platform/descriptor.h"

namespace {

using zfc::c_interface::answered;
using zfc::c_interface::edited;
using zfc::c_interface::guarded;
using zfc::c_interface::isHandle;
using zfc::c_interface::refusedArgument;

constexpr char sourceName[] = "src/Z/zproperties_c";

template <class Number>
[[nodiscard]] Number numberOf(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                              int required, int* rc) {
    return answered<Number>(isHandle(handle) && stanza != nullptr && key != nullptr, rc, [&] {
        ZStanzaFileProperties const& properties = handle->properties;
        auto const number = zfc::get<Number>(properties, stanza, key);
        if (!number && required != 0)
            zraise(ZPropertiesMissingPropertyException(properties.getFileName().getChars(), stanza,
                                                       key),
                   sourceName, __LINE__);
        return number.value_or(Number{});
    });
}

/// The pointers and behind them the texts, in one block of the C allocator.
[[nodiscard]] char** namesOf(ZPropertiesIterator& walk) {
    std::size_t size = (std::size_t{walk.size()} + 1) * sizeof(char*);
    std::size_t const texts = size;
    while (walk.next())
        size += std::strlen(walk.getName()) + 1;
    auto* const block = static_cast<char*>(std::malloc(size));
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto** const names = reinterpret_cast<char**>(block);
    char** next = names;
    char* text = block + texts;
    for (walk.reset(); walk.next(); ++next) {
        *next = text;
        text = stpcpy(text, walk.getName()) + 1;
    }
    *next = nullptr;
    return names;
}

}  // namespace

int zstzPropCreate(ZPROP_stz_handle** handle, char const* file) {
    if (handle == nullptr) return refusedArgument();
    *handle = nullptr;
    if (file == nullptr) return refusedArgument();
    return guarded(ZPROP_IO_ERROR, ZPROP_IO_ERROR, [&] {
        constexpr mode_t anybody = 0666;  // as far as the umask lets them
        auto const made = zfc::platform::openFile(file, O_WRONLY | O_CREAT | O_EXCL, anybody);
        if (!made.isOpen())
            zraise(ZPropertiesIOException(file, "fopen(w)", errno), sourceName, __LINE__);
        *handle = new ZPROP_stz_handle(file, ZPROP_OPEN_WRITE);
    });
}

long long zstzPropGetInteger64Value(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                                    int required, int* rc) {
    return numberOf<long long>(handle, stanza, key, required, rc);
}

double zstzPropGetDoubleValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                              int required, int* rc) {
    return numberOf<double>(handle, stanza, key, required, rc);
}

int zstzPropSetInteger64Value(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                              long long value) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr,
                  [&] { zfc::set(handle->properties, stanza, key, value); });
}

int zstzPropSetDoubleValue(ZPROP_stz_handle* handle, char const* stanza, char const* key,
                           double value) {
    return edited(isHandle(handle) && stanza != nullptr && key != nullptr, [&] {
        if (!std::isfinite(value)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
        zfc::set(handle->properties, stanza, key, value);
    });
}

char** zstzPropGetStanzaNames(ZPROP_stz_handle* handle, int* rc) {
    return answered<char**>(isHandle(handle), rc, [&] {
        ZPropertiesIterator walk(handle->properties);
        return namesOf(walk);
    });
}

char** zstzPropGetKeyNames(ZPROP_stz_handle* handle, char const* stanza, int* rc) {
    return answered<char**>(isHandle(handle) && stanza != nullptr, rc, [&] {
        ZPropertiesIterator walk(handle->properties, stanza);
        return namesOf(walk);
    });
}

void zstzPropFreeNames(char** names) { std::free(names); }
