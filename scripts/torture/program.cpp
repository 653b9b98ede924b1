/// One of the programs that edit a file at the same time: the one that uses the library.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "Z/ZException.h"
#include "torture/modes.h"

namespace torture {
namespace {

constexpr unsigned int patience = 60000;  // milliseconds

/// Sets one key of whatever object it is called with, or of the one that it knows.
struct AddKey {
    ZStanzaFileProperties* properties;
    std::string key;

    template <class... Arguments>
    int operator()(Arguments&&... /*ignored*/) const {
        properties->setValue("api", key.c_str(), key.c_str());
        return 1;
    }
};

template <class Properties, class = void>
struct HasUpdate : std::false_type {};
template <class Properties>
struct HasUpdate<Properties, std::void_t<decltype(std::declval<Properties&>().updateFile(
                                 std::declval<AddKey>(), 1))>> : std::true_type {};

bool isLocked(ZPropertiesIOException const& e) { return std::strcmp(e.api(), "fcntl()") == 0; }

/// Nothing holds the lock between loading and storing: what others add then is lost.
template <class Properties>
void loadAndStore(Properties& properties, std::string const& key) {
    for (;;) {
        try {
            properties.reload();
            AddKey{&properties, key}();
            properties.store();
            return;
        } catch (ZPropertiesIOException const& e) {
            if (!isLocked(e)) throw;
            usleep(500);
        }
    }
}

template <class Properties>
void addKey(Properties& properties, std::string const& key) {
    if constexpr (HasUpdate<Properties>::value)
        properties.updateFile(AddKey{&properties, key}, patience);
    else
        loadAndStore(properties, key);
}

}  // namespace

bool runProgram(std::string const& file, unsigned int seconds) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    ZStanzaFileProperties properties(1);
    while (properties.getFileName().isEmpty()) {
        try {
            properties.load(file.c_str());
        } catch (ZPropertiesIOException const& e) {
            if (!isLocked(e)) throw;
        }
    }
    unsigned int count = 0;
    while (std::chrono::steady_clock::now() < end) {
        addKey(properties, "n" + std::to_string(count++));
        usleep(1000);  // the others want to have the file too
    }
    std::printf("%u\n", count);
    return true;
}

}  // namespace torture
