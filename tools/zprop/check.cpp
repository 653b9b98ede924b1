#include <iostream>

#include "zprop/java_commands.h"
#include "zprop/read_commands.h"

namespace zprop {
namespace {

/// The caret's line: tabs stay tabs, so that it stands below the fault on any terminal.
std::string caretLine(std::string const& line, std::size_t column) {
    std::string text = line.substr(0, column);
    for (char& c : text) {
        if (c != '\t') c = ' ';
    }
    return text + "^";
}

Exit checkOne(std::string const& file, std::optional<Format> format, double waitSeconds,
              Encoding encoding) {
    try {
        Deadline deadline(waitSeconds);
        if (formatOf(file, format) == Format::java) return checkJava({file, encoding}, deadline);
        auto const properties = openForReading(file, deadline);
        return Exit::done;
    } catch (ZPropertiesInvalidDataException& e) {
        LineFault const fault = faultOf(e);
        std::cout << e.propFile() << ":" << e.badline() << ": " << fault.reason << "\n"
                  << e.baddata() << "\n"
                  << caretLine(e.baddata(), fault.column) << "\n";
        return Exit::notThereOrInvalid;
    } catch (ZException& e) {
        Failure const failure = failureOf(e);
        std::cerr << "zprop: " << failure.what() << "\n";
        return failure.exitCode();
    } catch (Failure& failure) {
        std::cerr << "zprop: " << failure.what() << "\n";
        return failure.exitCode();
    }
}

std::string counted(std::size_t count, char const* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

Exit check(std::vector<std::string> const& files, std::optional<Format> format, double waitSeconds,
           Encoding encoding) {
    std::size_t invalid = 0;
    std::size_t unreadable = 0;
    for (auto const& file : files) {
        Exit const result = checkOne(file, format, waitSeconds, encoding);
        if (result == Exit::notThereOrInvalid) ++invalid;
        if (result == Exit::inputOutput) ++unreadable;
    }
    std::cout << counted(files.size(), "file") << " checked, " << invalid << " invalid";
    if (unreadable != 0) std::cout << ", " << unreadable << " not readable";
    std::cout << "\n";
    if (unreadable != 0) return Exit::inputOutput;
    return invalid != 0 ? Exit::notThereOrInvalid : Exit::done;
}

}  // namespace zprop
