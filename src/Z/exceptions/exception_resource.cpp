/// The resource family of the exception tree: locks and lock files.
#include "Z/ZException.h"

ZResourceException::ZResourceException(int number, int result)
    : ZResourceException(number, "ZResourceException", result) {}
ZResourceException::ZResourceException(int number, char const* className, int result)
    : ZZException(number, className), rc(result) {}
void ZResourceException::print() { printinternal(this, rc); }

ZCreateResourceException::ZCreateResourceException(int number, int result)
    : ZResourceException(number, "ZCreateResourceException", result) {}

ZLockResourceException::ZLockResourceException(int number, int result)
    : ZResourceException(number, "ZLockResourceException", result) {}

ZUnlockResourceException::ZUnlockResourceException(int number, int result)
    : ZResourceException(number, "ZUnlockResourceException", result) {}

ZReadResourceException::ZReadResourceException(int number, int result)
    : ZResourceException(number, "ZReadResourceException", result) {}

ZWriteResourceException::ZWriteResourceException(int number, int result)
    : ZResourceException(number, "ZWriteResourceException", result) {}

ZOpenResourceException::ZOpenResourceException(int number, int result, char const* lockFileName)
    : ZResourceException(number, "ZOpenResourceException", result), lockFile(lockFileName) {}
void ZOpenResourceException::print() { printinternal(this, rc, lockFile.getChars()); }

ZCloseResourceException::ZCloseResourceException(int number, int result, char const* lockFileName)
    : ZResourceException(number, "ZCloseResourceException", result), lockFile(lockFileName) {}
void ZCloseResourceException::print() { printinternal(this, rc, lockFile.getChars()); }

ZInvalidResourceStateException::ZInvalidResourceStateException(char const* stateName)
    : ZResourceException(32, "ZInvalidResourceStateException", -1), state(stateName) {}
void ZInvalidResourceStateException::print() { printinternal(this, state.getChars()); }
