/// Runs the main() of a tool as often as one likes, in a scratch directory and with input and
/// output in memory.
#ifndef ZFC_FUZZ_TOOL_RUN_H
#define ZFC_FUZZ_TOOL_RUN_H

#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "memory_file.h"
#include "scratch.h"

namespace fuzz {

struct Outcome {
    int status;
    std::string output;
};

class Tool {
  public:
    Tool(char const* toolName, int (*toolMain)(int, char**)) : name(toolName), main(toolMain) {}

    /// The words come behind the tool's name; none of them has a NUL.
    [[nodiscard]] Outcome run(std::vector<std::string> words,
                              std::string const& standardInput = {}) const {
        words.insert(words.begin(), name);
        std::vector<char*> argv;
        for (auto& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        input.set(standardInput);
        input.stand(STDIN_FILENO);
        std::rewind(stdin);
        std::cin.clear();
        Captured const output(std::cout);
        Captured const errors(std::cerr);
        int const status = main(static_cast<int>(words.size()), argv.data());
        return {status, output.text()};
    }

  private:
    class Captured {
      public:
        explicit Captured(std::ostream& captured)
            : stream(captured), before(captured.rdbuf(buffer.rdbuf())) {}
        ~Captured() { stream.rdbuf(before); }
        Captured(Captured const&) = delete;
        Captured& operator=(Captured const&) = delete;
        [[nodiscard]] std::string text() const { return buffer.str(); }

      private:
        std::ostringstream buffer;
        std::ostream& stream;
        std::streambuf* before;
    };

    char const* name;
    int (*main)(int, char**);
    MemoryFile input;
};

}  // namespace fuzz

#endif
