#include "Z/ZFileLock.h"

ZStubProcessReadWriteFileLock::ZStubProcessReadWriteFileLock(char const* name,
                                                             char const* directory)
    : ZAbstractProcessReadWriteFileLock(name, directory) {}
ZStubProcessReadWriteFileLock::ZStubProcessReadWriteFileLock(char const* name)
    : ZAbstractProcessReadWriteFileLock(name) {}
ZStubProcessReadWriteFileLock::ZStubProcessReadWriteFileLock(
    ZStubProcessReadWriteFileLock const& other)
    : ZAbstractProcessReadWriteFileLock(other), stubSequence(other.stubSequence.load()) {}
ZStubProcessReadWriteFileLock::~ZStubProcessReadWriteFileLock() = default;

ZObject* ZStubProcessReadWriteFileLock::clone() const {
    return new ZStubProcessReadWriteFileLock(*this);
}

void ZStubProcessReadWriteFileLock::lockFile(zlockstate /*mode*/) {}
void ZStubProcessReadWriteFileLock::unlockFile() {}
void ZStubProcessReadWriteFileLock::lockFileRange(zlockstate /*mode*/, unsigned int /*start*/,
                                                  unsigned int /*length*/) {}
void ZStubProcessReadWriteFileLock::unlockFileRange(unsigned int /*start*/,
                                                    unsigned int /*length*/) {}
void ZStubProcessReadWriteFileLock::writeBytes(void* /*buffer*/, unsigned int /*offset*/,
                                               unsigned int /*length*/) {}
void ZStubProcessReadWriteFileLock::readBytes(void* /*buffer*/, unsigned int /*offset*/,
                                              unsigned int /*length*/) {}

void ZStubProcessReadWriteFileLock::readSequenceNumber(unsigned long* number) {
    if (number != nullptr) *number = stubSequence;
}

void ZStubProcessReadWriteFileLock::writeSequenceNumber(unsigned long number) {
    stubSequence = static_cast<unsigned int>(number);
}
