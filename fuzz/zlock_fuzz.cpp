// Command lines of zlock, with any bytes as the lock file; commands are noted, not run. Taken from
// the input as they are: done or refused, and what is refused changes no file. Made of the input:
// the command, its status, the number and the file are what the manual says.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "fuzz_input.h"
#include "lock_model.h"
#include "scratch.h"
#include "tool_run.h"
#include "zlock/run.h"

int zlock_main(int argc, char** argv);

namespace {

using fuzz::expect;
using fuzz::Input;
using fuzz::LockModel;
using fuzz::Scratch;
using Lock = ZUnixProcessReadWriteFileLock;
using Words = std::vector<std::string>;

/// What runCommand() was last called with, and what it says.
struct Command {
    std::optional<Words> words;
    std::string number;  // in the environment
    int status = 0;
};
Command command;

constexpr char lockName[] = "x";
constexpr char lockFile[] = "._zplx";

/// What a word of one byte stands for.
constexpr char const* known[] = {
    "--read",          "--protect", "--write", "--status", "--no-wait", "--wait",
    "--conflict-exit", "--dir",     "--mode",  "0660",     "7",         ".",
    lockName,          "--",        "sub",     "--help"};

std::string wordOf(Input& input) {
    std::string const text = input.text();
    std::size_t const number = text.size() == 1 ? static_cast<unsigned char>(text[0]) - 1U : 255;
    return number < std::size(known) ? known[number] : fuzz::confined(text);
}

fuzz::Outcome zlock(Words const& words) {
    static fuzz::Tool const tool("zlock", zlock_main);
    command.words.reset();
    unsetenv("ZLOCK_SEQUENCE");
    return tool.run(words);
}

void checkRaw(Input& input, Scratch const& scratch) {
    Words words;
    while (words.size() < 12 && !input.isAtEnd())
        words.push_back(wordOf(input));
    auto const before = scratch.content();
    int const status = zlock(words).status;
    auto const mark = std::find(words.begin(), words.end(), "--");
    if (command.words) {
        expect(status == command.status, "another status than the command's");
        expect(mark != words.end() && *command.words == Words(mark + 1, words.end()),
               "another command than was given");
        return;
    }
    expect(status >= 0 && status <= 3, "a status that is none");
    expect(scratch.content() == before, "a file that was changed for no command");
}

/// A request with its words, and what it must come to.
class Request {
  public:
    Request(Input& input, Scratch const& where, std::string const& bytes) : scratch(where) {
        constexpr char const* modes[] = {"--write", "--read", "--protect", nullptr};
        unsigned int const mode = input.below(4);
        if (modes[mode] != nullptr) words.emplace_back(modes[mode]);
        reads = mode == 1;
        held = static_cast<Lock::zlockstate>(input.below(3));  // by somebody else
        isThere = !bytes.empty() || input.below(2) == 1;
        file.bytes = bytes;
        if (held != Lock::zlockUnset) words.emplace_back("--no-wait");
        conflictStatus = static_cast<int>(input.byte());
        words.insert(words.end(), {"--conflict-exit", std::to_string(conflictStatus)});
        addMode(input.below(64) * 8 + input.below(8) | 0600U);
        words.insert(words.end(), {lockName, "--", "run"});
        for (int i = 0; i < 3 && !input.isAtEnd(); ++i)
            words.push_back(wordOf(input));
        command.status = static_cast<int>(input.byte());
    }

    void check() {
        if (isThere) scratch.write(lockFile, file.bytes);
        Lock other(lockName, scratch.path().c_str());
        if (held != Lock::zlockUnset) hold(other);
        unsigned int const before = file.number();
        bool const isGranted = held == Lock::zlockUnset || (held == Lock::zlockRead && reads);
        int const status = zlock(words).status;
        expect(command.words.has_value() == isGranted, "a command that is, or is not, run");
        expect(status == (isGranted ? command.status : conflictStatus), "another status");
        if (isGranted) noteRun(before);
        expect(scratch.content()[lockFile] == file.bytes, "other bytes in the file");
        if (!isThere) expect(modeOfFile() == fileMode, "another mode of the file");
    }
    void checkStatus() const {
        auto const before = scratch.content();
        auto const outcome = zlock({"--status", lockName});
        expect(outcome.status == (file.isWhole() ? 0 : 3), "another status");
        expect(scratch.content() == before, "a file that was changed by a look at it");
        std::string const number = "sequence: " + std::to_string(file.number()) + "\n";
        expect(!file.isWhole() || outcome.output.compare(0, number.size(), number) == 0,
               "another number is told");
    }

  private:
    void addMode(unsigned int mode) {
        std::string const text{static_cast<char>('0' + mode / 64),
                               static_cast<char>('0' + mode / 8 % 8),
                               static_cast<char>('0' + mode % 8)};
        fileMode = mode;
        words.insert(words.end(), {"--mode", text});
    }
    void hold(Lock& other) {
        if (!isThere) other.setLockFileMode(fileMode);
        other.lock(held);
        file.setPid(getpid());
    }
    void noteRun(unsigned int before) {
        Words const expected(std::find(words.begin(), words.end(), "--") + 1, words.end());
        expect(*command.words == expected, "another command than was given");
        expect(command.number == std::to_string(before), "another number for the command");
        file.setPid(getpid());
        bool const changes = !reads && (command.status == 0 || command.status >= 128);
        if (!reads) file.setNumber(changes ? LockModel::after(before) : before);
    }
    [[nodiscard]] unsigned int modeOfFile() const {
        struct stat status {};
        expect(stat(scratch.path(lockFile).c_str(), &status) == 0, "a file that is not there");
        return status.st_mode & 0777U;
    }

    Scratch const& scratch;
    Words words;
    LockModel file;
    Lock::zlockstate held;
    unsigned int fileMode = 0;
    int conflictStatus;
    bool reads;
    bool isThere;
};

}  // namespace

int zlock::runCommand(char* const* argv) {
    command.words.emplace();
    for (; *argv != nullptr; ++argv)
        command.words->emplace_back(*argv);
    char const* const number = std::getenv("ZLOCK_SEQUENCE");
    command.number = number == nullptr ? "" : number;
    return command.status;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LC_ALL", "C.UTF-8", 1);
    return 0;
}

/// The steps with the words that they take, and behind FF FE the file.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Scratch const scratch;
    auto const [steps, bytes] = fuzz::partsOf(data, size);
    Input input(data, steps);
    scratch.clear();
    fuzz::Inside const there(scratch);
    command.status = static_cast<int>(input.byte());
    if (input.below(2) == 0) {
        if (!bytes.empty()) scratch.write(lockFile, bytes);
        checkRaw(input, scratch);
        return 0;
    }
    Request request(input, scratch, bytes);
    request.check();
    request.checkStatus();
    return 0;
}
