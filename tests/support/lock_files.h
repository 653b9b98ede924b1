/// Lock files of process locks, as the tests look at them.
#ifndef ZFC_TESTS_SUPPORT_LOCK_FILES_H
#define ZFC_TESTS_SUPPORT_LOCK_FILES_H

#include <cstring>
#include <string>

#include "support/processes.h"

namespace testsupport {

/// What a lock file holds.
struct LockWords {
    unsigned int sequence = 0;
    int pid = 0;
};

[[nodiscard]] inline LockWords lockWords(std::string const& path) {
    LockWords words;
    std::string const bytes = readFile(path);
    if (bytes.size() == sizeof words) std::memcpy(&words, bytes.data(), sizeof words);
    return words;
}

/// Makes a lock file with this number.
inline void writeSequence(std::string const& path, unsigned int sequence) {
    std::string bytes(2 * sizeof sequence, '\0');
    std::memcpy(bytes.data(), &sequence, sizeof sequence);
    writeFile(path, bytes);
}

}  // namespace testsupport

#endif
