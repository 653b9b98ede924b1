// The resource family of the exception tree: locks and lock files.
#include "Z/ZException.h"

ZResourceException::ZResourceException(int number, int code)
    : ZResourceException(number, "ZResourceException", code) {}
ZResourceException::ZResourceException(int number, char const* className, int code)
    : ZZException(number, className), rc(code) {}
void ZResourceException::print() {
    printinternal(this, rc);
}

ZCreateResourceException::ZCreateResourceException(int number, int code)
    : ZResourceException(number, "ZCreateResourceException", code) {}

ZLockResourceException::ZLockResourceException(int number, int code)
    : ZResourceException(number, "ZLockResourceException", code) {}

ZUnlockResourceException::ZUnlockResourceException(int number, int code)
    : ZResourceException(number, "ZUnlockResourceException", code) {}

ZReadResourceException::ZReadResourceException(int number, int code)
    : ZResourceException(number, "ZReadResourceException", code) {}

ZWriteResourceException::ZWriteResourceException(int number, int code)
    : ZResourceException(number, "ZWriteResourceException", code) {}

ZOpenResourceException::ZOpenResourceException(int number, int code, char const* file)
    : ZResourceException(number, "ZOpenResourceException", code), lockFile(file) {}
void ZOpenResourceException::print() {
    printinternal(this, rc, lockFile.getChars());
}

ZCloseResourceException::ZCloseResourceException(int number, int code, char const* file)
    : ZResourceException(number, "ZCloseResourceException", code), lockFile(file) {}
void ZCloseResourceException::print() {
    printinternal(this, rc, lockFile.getChars());
}

ZInvalidResourceStateException::ZInvalidResourceStateException(char const* stateName)
    : ZResourceException(32, "ZInvalidResourceStateException", -1), state(stateName) {}
void ZInvalidResourceStateException::print() {
    printinternal(this, state.getChars());
}
