// Loads a plug-in library and has it greet each name.
//
//     plugins LIBRARY NAME...
#include <iostream>

#include "Z/ZException.h"
#include "Z/ZSharedLibrary.h"
#include "greeter.h"

namespace {

// [class]
class Greeter : public ZSharedLibrary {
  public:
    explicit Greeter(char const* library) : ZSharedLibrary(library) {
        setLocalScope(1);      // several plug-ins may have functions of the same names
        setLazyResolution(0);  // what a plug-in lacks is found out now, not at its first call
    }

    /// The greeting for `name`; empty when the plug-in has none.
    ZLCString greeting(char const* name) {
        char text[200];
        return greet(name, text, sizeof text) >= 0 ? ZLCString(text) : ZLCString();
    }

  private:
    /// Runs when the library has been loaded; anything but 0 fails the load.
    int initialize() override {
        greet = function<greeter_greet_function>("greeter_greet");
        return function<greeter_start_function>("greeter_start")(GREETER_INTERFACE);
    }

    template <class Function>
    Function* function(char const* name) {
        return reinterpret_cast<Function*>(resolveSymbol(name));
    }

    greeter_greet_function* greet = nullptr;
};
// [/class]

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: plugins LIBRARY NAME...\n";
        return 2;
    }
    try {
        // [use]
        Greeter greeter(argv[1]);
        greeter.loadLibrary();
        for (int i = 2; i < argc; ++i)
            std::cout << greeter.greeting(argv[i]).getChars() << "\n";
        greeter.unloadLibrary();
        // [/use]
    } catch (ZException& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
