// Values as C++ types, one of them the program's own, and what a wrong value says.
#include <chrono>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZTypedValues.h"

// [own]
enum class Level { info, debug };

template <>
struct zfc::ValueType<Level> {
    static std::optional<Level> parse(std::string const& text) {
        if (text == "info") return Level::info;
        if (text == "debug") return Level::debug;
        return std::nullopt;
    }
    static ZLCString expected() { return "info or debug"; }
    static ZLCString write(Level level) { return level == Level::info ? "info" : "debug"; }
};
// [/own]

int main() {
    ZStanzaFileProperties conf("app.conf", 1);
    // [get]
    auto const port = zfc::get<std::uint16_t>(conf, "server", "port").value_or(80);
    auto const wait =
        zfc::get<std::chrono::milliseconds>(conf, "server", "timeout");               // nothing yet
    auto const peers = zfc::get<std::vector<std::string>>(conf, "server", "listen");  // all values
    zfc::set(conf, "server", "timeout", std::chrono::seconds(90));  // timeout = 90s
    zfc::set(conf, "cache", "room", zfc::Size{64 << 20});           // room = 64M
    // [/get]
    std::cout << port << (wait ? "" : ", no timeout, ") << peers->size() << " addresses\n";
    auto const room = zfc::get<zfc::Size>(conf, "cache", "room");
    std::cout << room->bytes << " bytes of cache, waits "
              << zfc::get<std::chrono::milliseconds>(conf, "server", "timeout")->count() << " ms\n";
    bool const debug = zfc::get<Level>(conf, "log", "level") == Level::debug;
    std::cout << (debug ? "debug\n" : "info\n");

    // [wrong]
    conf.setValue("server", "port", "70000");
    try {
        static_cast<void>(zfc::get<std::uint16_t>(conf, "server", "port"));
    } catch (ZPropertiesUnexpectedValueException const& wrong) {
        std::cout << wrong.text().getChars() << "\n";
    }
    // [/wrong]
}
