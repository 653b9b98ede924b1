// Reloads a file that somebody broke, then one that is mended, and tells what changed.
#include <fstream>
#include <iostream>

#include "Z/ZException.h"
#include "Z/ZStanzaFileProperties.h"

namespace {

// [observer]
class Watch : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*settings*/, ZObservedParm const& notice) override {
        auto const& change = static_cast<ZPropertyChanged const&>(notice);
        bool const isGone = change.getChangeType() == ZPropertyChanged::deleted;
        char const* const key = change.getKey() != nullptr ? change.getKey() : "the stanza";
        std::cout << change.getStanza() << ": " << key << (isGone ? " is gone\n" : " is set\n");
    }
};
// [/observer]

void reload(ZStanzaFileProperties& settings) {
    // [reload]
    try {
        settings.reload();
    } catch (ZPropertiesInvalidDataException const& e) {  // every value is what it was
        std::cout << e.propFile() << ", line " << e.badline() << ": " << e.baddata() << "\n";
    }
    // [/reload]
}

}  // namespace

int main() {
    ZStanzaFileProperties settings("app.conf", 1);
    settings.setAttributes(ZPCache::keepLastGood, nullptr);
    Watch watch;
    settings.addObserver(&watch);

    std::ofstream("app.conf") << "[server]\nhost = west.example\nport 8080\n";
    reload(settings);
    std::cout << "port " << settings.getIntegerValue("server", "port") << "\n";

    std::ofstream("app.conf") << "[server]\nhost = west.example\nport = 8080\n";
    reload(settings);
    settings.deleteObserver(&watch);
}
