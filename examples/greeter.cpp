// A plug-in for the program plugins.cpp, and itself a user of the library.
#include "greeter.h"

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/zsnprintf.h"

#define TEXT_(word) #word
#define TEXT(word) TEXT_(word)
#define GREETER_API extern "C" __attribute__((visibility("default")))

GREETER_API greeter_start_function greeter_start;
GREETER_API greeter_greet_function greeter_greet;

int greeter_start(int interface) { return interface == GREETER_INTERFACE ? 0 : 1; }

int greeter_greet(char const* name, char* out, int size) {
    try {
        ZLCString greeting("Hello, ");
        greeting += name;
        greeting += "! (said with release " TEXT(ZFC_TAG) ")";
        return zsnprintf(out, size, "%s", greeting.getChars());
    } catch (ZException& e) {
        e.dumpException();  // exceptions do not leave the plug-in
        return -1;
    }
}
