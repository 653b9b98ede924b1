#include "zprop/edits/secret.h"

#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>

#include "zprop/failure.h"

namespace zprop {
namespace {

volatile std::sig_atomic_t caught = 0;  // the signal that ended the reading; 0: none

/// Turns the echo of the terminal off until its end. A signal that would end the process waits
/// until the echo is on again.
class EchoOff {
  public:
    EchoOff() {
        if (tcgetattr(STDIN_FILENO, &before) != 0) failIO("standard input", "tcgetattr()");
        struct sigaction noted {};
        noted.sa_handler = [](int signal) { caught = signal; };  // without SA_RESTART: read() ends
        for (std::size_t i = 0; i < signals.size(); ++i)
            sigaction(signals[i], &noted, &old[i]);
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0)
            failIO("standard input", "tcsetattr()");
    }
    ~EchoOff() {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
        for (std::size_t i = 0; i < signals.size(); ++i)
            sigaction(signals[i], &old[i], nullptr);
        if (caught != 0) std::raise(caught);
    }
    EchoOff(EchoOff const&) = delete;
    EchoOff& operator=(EchoOff const&) = delete;

  private:
    static constexpr std::array<int, 5> signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
    std::array<struct sigaction, signals.size()> old{};
    termios before{};
};

/// One line of the terminal, or all of any other input.
std::string readInput(bool isTerminal) {
    std::string text;
    char block[4096];
    while (caught == 0 && !(isTerminal && !text.empty() && text.back() == '\n')) {
        ssize_t const n = read(STDIN_FILENO, block, sizeof block);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) failIO("standard input", "read()");
        if (n == 0) break;
        text.append(block, static_cast<std::size_t>(n));
    }
    return text;
}

std::string askForSecret() {
    EchoOff const silent;
    std::cerr << "Value: ";
    return readInput(true);
}

}  // namespace

std::string readSecret() {
    std::string text = isatty(STDIN_FILENO) != 0 ? askForSecret() : readInput(false);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (text.empty()) throw Failure(Exit::wrongUsage, "standard input holds no value");
    if (text.find('\0') != std::string::npos)
        throw Failure(Exit::notThereOrInvalid, "standard input: NUL byte in the value");
    return text;
}

}  // namespace zprop
