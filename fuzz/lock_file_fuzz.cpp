// Any bytes as a lock file, under any requests, and changed by others in between: what the lock
// tells and what it leaves in the file are what a model of the eight bytes says. What is no lock
// file is refused and left alone.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "fuzz_input.h"
#include "lock_model.h"
#include "scratch.h"

namespace {

using fuzz::expect;
using fuzz::Input;
using fuzz::Scratch;
using Lock = ZUnixProcessReadWriteFileLock;

constexpr char lockFile[] = "._zplx";

/// Runs a request; whether it was granted.
template <class Request>
bool granted(Request request) {
    try {
        return request();
    } catch (ZResourceException const&) {
        return false;
    }
}

/// What the file and the lock are after each request.
class Session {
  public:
    explicit Session(Scratch const& where, std::string const& bytes)
        : scratch(where), lock("x", where.path().c_str()) {
        file.bytes = bytes;
        scratch.write(lockFile, bytes);
    }
    ~Session() {
        while (lock.getLockState() != Lock::zlockUnset)
            lock.unlock(0);
    }
    Session(Session const&) = delete;
    Session& operator=(Session const&) = delete;

    void step(Input& input) {
        switch (input.below(8)) {
            case 0:
                return take(Lock::zlockRead, input.below(2) == 0);
            case 1:
                return take(input.below(2) == 0 ? Lock::zlockWrite : Lock::zlockProtect,
                            input.below(2) == 0);
            case 2:
                return giveBack(0);
            case 3:
                return giveBack(1);
            case 4:
                return advance();
            case 5:
                return replace(input.text());
            case 6:
                file.bytes = input.text();
                return scratch.write(lockFile, file.bytes);
            default:
                return lookAt();
        }
    }
    void check() const {
        expect(scratch.content()[lockFile] == file.bytes, "other bytes in the file");
        expect(lock.getLockState() == state(), "another state");
        expect(lock.getSequence() == sequence, "another number");
    }

  private:
    [[nodiscard]] Lock::zlockstate state() const {
        return writes ? Lock::zlockWrite : reads > 0 ? Lock::zlockRead : Lock::zlockUnset;
    }

    void take(Lock::zlockstate mode, bool isTry) {
        bool const isFree = !writes && reads == 0;
        bool const joins = mode == Lock::zlockRead && reads > 0;
        bool const isGranted = granted([&] {
            if (isTry) return lock.tryLock(mode);
            lock.lock(mode);
            return true;
        });
        expect(isGranted == (isFree || joins), "a request that is granted or refused for nothing");
        if (!isGranted) return;
        if (isFree) file.setPid(getpid());
        if (isFree) sequence = file.number();
        if (mode == Lock::zlockRead)
            ++reads;
        else
            writes = true;
    }
    void giveBack(int bump) {
        bool const isHeld = writes || reads > 0;
        bool const isDone = granted([&] {
            lock.unlock(bump);
            return true;
        });
        expect(isDone == isHeld, "an unlock that is taken or refused for nothing");
        if (writes && bump != 0) noteAdvanced();
        if (reads > 0) --reads;
        writes = false;
    }
    void advance() {
        bool const isDone = granted([&] { return lock.incSequence() == file.after(sequence); });
        expect(isDone == writes, "a number that moves, or does not, for nothing");
        if (writes) noteAdvanced();
    }
    void noteAdvanced() {
        sequence = file.after(sequence);
        file.setNumber(sequence);
    }
    /// Only a lock that nobody holds may get another file.
    void replace(std::string const& bytes) {
        if (state() != Lock::zlockUnset) return;
        unlink(scratch.path(lockFile).c_str());
        file.bytes = bytes;
        scratch.write(lockFile, bytes);
    }
    void lookAt() const {
        bool const isGood = granted([&] {
            auto const status = lock.fileStatus();
            bool const isSame = status.sequence == file.number() && status.holderPid == file.pid();
            expect(isSame && status.state == state(), "another status");
            return true;
        });
        expect(isGood == file.isWhole(), "a status that is told or refused for nothing");
    }

    Scratch const& scratch;
    Lock lock;
    fuzz::LockModel file;
    unsigned int sequence = 0;  // as the lock saw it last
    int reads = 0;
    bool writes = false;
};

/// Something that is no plain file under the lock's name; false when there is none of this kind.
bool plant(Scratch const& scratch, unsigned int kind, std::string const& bytes) {
    std::string const path = scratch.path(lockFile);
    std::string const other = scratch.path("other");
    scratch.write("other", bytes);
    switch (kind) {
        case 0:
            return symlink(other.c_str(), path.c_str()) == 0;
        case 1:
            return link(other.c_str(), path.c_str()) == 0;
        case 2:
            return mkdir(path.c_str(), 0700) == 0;
        case 3:
            return mkfifo(path.c_str(), 0600) == 0;
        default:
            return false;
    }
}

void checkPlanted(Scratch const& scratch, std::string const& bytes) {
    Lock lock("x", scratch.path().c_str());
    for (auto const mode : {Lock::zlockRead, Lock::zlockProtect, Lock::zlockWrite}) {
        expect(!granted([&] { return lock.tryLock(mode); }), "a lock on a planted file");
        expect(lock.getLockState() == Lock::zlockUnset, "a lock that was refused and is held");
    }
    expect(!granted([&] { return lock.fileStatus().sequence == 0; }),
           "the status of a planted file");
    expect(scratch.content()["other"] == bytes, "a planted file that was written");
}

}  // namespace

/// What the file is, the steps with the texts that they take, and behind FF FE the file.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Scratch const scratch;
    auto const [steps, bytes] = fuzz::partsOf(data, size);
    Input input(data, steps);
    scratch.clear();
    if (plant(scratch, input.below(32), bytes)) {
        checkPlanted(scratch, bytes);
        return 0;
    }
    Session session(scratch, bytes);
    session.check();
    for (int i = 0; i < 40 && !input.isAtEnd(); ++i) {
        session.step(input);
        session.check();
    }
    return 0;
}
