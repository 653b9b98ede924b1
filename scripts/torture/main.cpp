/// Tries to break what the library stores. Started by scripts/torture.sh.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Z/ZException.h"
#include "torture/modes.h"
#include "torture/process.h"

namespace torture {

Table::Table(char const* title) {
    std::printf("\n%s\n\n| %-49s | %5s |", title, "cell", "runs");
    for (unsigned int i = 0; i < faultCount; ++i)
        std::printf(" %s |", nameOf(static_cast<Fault>(i)));
    std::printf("\n|%s|%s|", std::string(51, '-').c_str(), std::string(7, '-').c_str());
    for (unsigned int i = 0; i < faultCount; ++i)
        std::printf("%s|",
                    std::string(std::strlen(nameOf(static_cast<Fault>(i))) + 2, '-').c_str());
    std::printf("\n");
}

void Table::add(std::string const& cell, Count const& count) {
    std::printf("| %-49s | %5u |", cell.c_str(), count.runs);
    for (unsigned int i = 0; i < faultCount; ++i) {
        auto const width = static_cast<int>(std::strlen(nameOf(static_cast<Fault>(i))));
        std::printf(" %*u |", width, count.faults[i]);
    }
    std::printf("\n");
    std::fflush(stdout);
    sum += count;
}

void Table::note(Cell const& cell, std::string const& reason) {
    notes.push_back(nameOf(cell) + ": " + reason);
}

bool Table::finish() {
    add("all", sum);
    if (!notes.empty()) std::printf("\nthe first of each kind:\n");
    for (std::string const& note : notes)
        std::printf("  %s\n", note.c_str());
    return sum.isClean();
}

namespace {

constexpr char usage[] =
    "usage: torture calls|kills|random|forks|cancels|exits [--seconds N] [--kills N] [--seed N]\n"
    "               [--dir DIR]... [--all]\n"
    "       torture program FILE SECONDS\n";

[[noreturn]] void dieOfUsage() {
    std::fputs(usage, stderr);
    std::exit(2);
}

unsigned int numberOf(char const* text) {
    char* end = nullptr;
    unsigned long const number = text != nullptr ? std::strtoul(text, &end, 10) : 0;
    if (text == nullptr || *text == '\0' || *end != '\0') dieOfUsage();
    return static_cast<unsigned int>(number);
}

Options optionsOf(char** words) {
    Options options;
    for (; *words != nullptr; ++words) {
        std::string const word = *words;
        if (word == "--all") {
            options.tellsAll = true;
            continue;
        }
        char const* const value = *++words;
        if (value == nullptr) dieOfUsage();
        if (word == "--dir")
            options.directories.emplace_back(value);
        else if (word == "--seconds")
            options.seconds = numberOf(value);
        else if (word == "--kills")
            options.kills = numberOf(value);
        else if (word == "--seed")
            options.seed = numberOf(value);
        else
            dieOfUsage();
    }
    if (options.directories.empty()) options.directories.emplace_back(".");
    return options;
}

bool run(std::string const& mode, char** words) {
    if (mode == "program" && words[0] != nullptr) return runProgram(words[0], numberOf(words[1]));
    Options const options = optionsOf(words);
    if (mode == "calls") return runCalls(options);
    if (mode == "kills") return runKills(options);
    if (mode == "random") return runRandomFiles(options);
    if (mode == "forks") return runForks(options);
    if (mode == "cancels") return runCancels(options);
    if (mode == "exits") return runExits(options);
    dieOfUsage();
}

}  // namespace
}  // namespace torture

int main(int argc, char** argv) {
    setenv("QCSDIR", TORTURE_QCSDIR, 0);
    if (argc < 2) torture::dieOfUsage();
    try {
        return torture::run(argv[1], argv + 2) ? 0 : 1;
    } catch (ZException const& e) {
        torture::die(torture::textOf(e));
    }
}
