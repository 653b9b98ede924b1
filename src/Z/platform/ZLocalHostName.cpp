#include "Z/ZLocalHostName.h"

#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/zfree.h"

namespace {

constexpr char sourceName[] = "src/Z/ZLocalHostName";

/// The lines that reports name; programs that read reports know them.
constexpr int lineOfMemory = 50;
constexpr int lineOfHostName = 69;
constexpr int lineOfLookUp = 82;

// POSIX: a host's name has at most 255 bytes, so it is never cut off without its NUL.
constexpr std::size_t nameSize = 256;
/// Of what the resolver stores beside the name: all aliases and addresses of the machine.
constexpr std::size_t firstEntrySize = 1024;
// Where it ends with a resolver that always wants more.
constexpr std::size_t largestEntrySize = 1U << 24U;

using Block = std::unique_ptr<char, ZFree>;

Block allocate(std::size_t size) {
    Block block(static_cast<char*>(std::malloc(size)));
    if (!block) zraise(ZOutOfMemoryException(), sourceName, lineOfMemory);
    return block;
}

/// Sets `out` to the official name of the host; false, with the `errno` in `error`, when the
/// resolver has none. Uses the look-up that threads may make at once.
bool lookUp(char const* host, ZLCString& out, int& error) {
    for (std::size_t size = firstEntrySize;; size *= 2) {
        Block const storage = allocate(size);
        hostent entry{};
        hostent* found = nullptr;
        int reason = 0;
        int const rc = gethostbyname_r(host, &entry, storage.get(), size, &found, &reason);
        // At once: freeing the storage may change it.
        error = errno;
        if (rc == ERANGE && size < largestEntrySize) continue;
        if (rc == 0 && found != nullptr) out = found->h_name;
        return rc == 0 && found != nullptr;
    }
}

}  // namespace

ZLocalHostName::~ZLocalHostName() = default;

ZLCString ZLocalHostName::getLocalHostName() {
    ZLCString official;
    int error = 0;
    Block const host = allocate(nameSize);
    if (gethostname(host.get(), nameSize) != 0)
        zreportFailure(sourceName, lineOfHostName, Message::hostNameFailed, errno);
    else if (!lookUp(host.get(), official, error))
        zreportFailure(sourceName, lineOfLookUp, Message::hostLookUpFailed, error);
    return official;
}
