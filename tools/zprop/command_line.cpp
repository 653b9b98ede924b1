#include "zprop/command_line.h"

#include <cstdio>
#include <iostream>

namespace zprop {

Exit CommandLine::run() {
    try {
        Deadline deadline(waitSeconds);
        if (latin1 && !file.empty() && !isJava())
            throw Failure(Exit::wrongUsage, file + ": --latin1 is for .properties files");
        Exit const result = action(deadline);
        std::cout.flush();
        if (!std::cout || std::fflush(stdout) != 0)
            throw Failure(Exit::inputOutput, "standard output cannot be written");
        return result;
    } catch (ZException& e) {
        return report(failureOf(e));
    } catch (Failure& failure) {
        return report(failure);
    }
}

void CommandLine::requireStanzaFile(char const* what) const {
    if (isJava()) throw Failure(Exit::wrongUsage, std::string(what) + " is for stanza files");
}

void CommandLine::requireSameFormat() const {
    bool const isOther = formatOf(otherFile, format) != formatOf(file, format);
    if (isOther)
        throw Failure(Exit::wrongUsage,
                      "one of " + file + " and " + otherFile +
                          " is a stanza file and the other a .properties file; convert one before");
}

std::vector<std::string> CommandLine::takeWords(std::size_t count) const {
    std::vector<std::string> taken;
    if (isJava()) taken.emplace_back();
    for (auto const& word : words) {
        if (word) taken.push_back(*word);
    }
    bool const isStanzaMissing = !isJava() && !taken.empty() && taken.front().empty();
    if (taken.size() != count || isStanzaMissing || taken[1].empty())
        throw Failure(Exit::wrongUsage, file + ": needs " + (isJava() ? "KEY" : "STANZA and KEY") +
                                            (count > 2 ? " and VALUE" : "") +
                                            "; only a value may be empty");
    return taken;
}

}  // namespace zprop
