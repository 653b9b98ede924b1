#include <iostream>

#include "zprop/java/commands.h"
#include "zprop/reads/read_commands.h"
#include "zprop/reads/scan.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

/// What was found in all files.
struct Counts {
    std::size_t invalid = 0;
    std::size_t unreadable = 0;
    std::size_t warnings = 0;
};

void tell(std::string const& file, Finding const& finding) {
    std::cout << shown(file) << ":" << pictureOf(finding);
}

/// The faults of a text that the library refuses; false: there is none, as somebody mended it.
bool tellFaults(std::string const& file) {
    auto const faults = scan(bytesOf(file)).faults;
    for (Finding const& fault : faults)
        tell(file, fault);
    return !faults.empty();
}

void tellLosses(std::string const& file, Scan const& found, Counts& counts) {
    for (Finding loss : found.losses) {
        loss.reason = "warning: " + loss.reason + "; an edit would lose it";
        tell(file, loss);
        ++counts.warnings;
    }
}

Exit checkStanzaFile(std::string const& file, Deadline& deadline, Counts& counts) {
    try {
        auto const properties = openForReading(file, deadline);
        tellLosses(file, scan(bytesOf(file)), counts);
        return Exit::done;
    } catch (CompanionFailure& e) {
        Scan const found = scan(bytesOf(file));
        tellLosses(file, found, counts);
        std::cout << shown(file) << ":" << found.companionLine << ": " << shown(e.cause().reason)
                  << "\n";
        return e.exitCode();
    } catch (ZPropertiesInvalidDataException&) {
        if (!tellFaults(file)) throw;
        return Exit::notThereOrInvalid;
    }
}

Exit checkOne(std::string const& file, std::optional<Format> format, double waitSeconds,
              Encoding encoding, Counts& counts) {
    try {
        Deadline deadline(waitSeconds);
        if (formatOf(file, format) == Format::java)
            return checkJava({file, encoding}, counts.warnings, deadline);
        return checkStanzaFile(file, deadline, counts);
    } catch (ZException& e) {
        return report(failureOf(e));
    } catch (Failure& failure) {
        return report(failure);
    }
}

std::string counted(std::size_t count, char const* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

Exit check(std::vector<std::string> const& files, std::optional<Format> format, double waitSeconds,
           Encoding encoding) {
    Counts counts;
    for (auto const& file : files) {
        Exit const result = checkOne(file, format, waitSeconds, encoding, counts);
        if (result == Exit::notThereOrInvalid) ++counts.invalid;
        if (result == Exit::inputOutput) ++counts.unreadable;
    }
    std::cout << counted(files.size(), "file") << " checked, " << counts.invalid << " invalid";
    if (counts.unreadable != 0) std::cout << ", " << counts.unreadable << " not readable";
    if (counts.warnings != 0) std::cout << ", " << counted(counts.warnings, "warning");
    std::cout << "\n";
    if (counts.unreadable != 0) return Exit::inputOutput;
    return counts.invalid != 0 ? Exit::notThereOrInvalid : Exit::done;
}

}  // namespace zprop
