#include "zprop/failure.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "zprop/scan.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

std::string quoted(char const* text) { return std::string("\"") + text + "\""; }

std::string place(char const* stanza, char const* key) {
    return "key " + quoted(key) + " in stanza " + quoted(stanza);
}

std::string atLine(std::string const& file, std::size_t line, std::string const& reason) {
    return file + ":" + std::to_string(line) + ": " + reason;
}

/// The file is looked through again, for all that is wrong with it.
Failure invalidData(ZPropertiesInvalidDataException const& e) {
    std::string const file = e.propFile();
    std::vector<std::string> messages;
    for (Finding const& fault : scan(bytesOf(file)).faults)
        messages.push_back(atLine(file, fault.line, fault.reason));
    // Somebody mended it meanwhile, or it is a line that cannot be written.
    if (messages.empty())
        messages.push_back(atLine(file, static_cast<std::size_t>(e.badline()), "invalid line"));
    return {Exit::notThereOrInvalid, messages};
}

Failure invalidValue(ZPropertiesInvalidValueException const& e) {
    bool const isBool = dynamic_cast<ZPropertiesInvalidBoolValueException const*>(&e) != nullptr;
    return {Exit::notThereOrInvalid, std::string(e.propFile()) + ": value " + quoted(e.value()) +
                                         " of " + place(e.category(), e.key()) + " is no " +
                                         (isBool ? "boolean" : "number")};
}

/// Why a companion file that is no file with bytes cannot be used, whatever mapping it says; empty:
/// it is one.
std::string stateOf(std::string const& file, bool& isLost) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        isLost = errno == ENOENT || errno == ENOTDIR;
        return isLost ? "is missing" : std::string("cannot be read: ") + std::strerror(errno);
    }
    isLost = S_ISREG(status.st_mode) && status.st_size == 0;
    if (isLost) return "is empty";
    return S_ISREG(status.st_mode) ? "" : "is no regular file";
}

}  // namespace

Failure Failure::with(std::string const& text) const {
    std::vector<std::string> messages;
    for (std::string const& line : lines)
        messages.push_back(text + line);
    return {code, messages};
}

Exit report(Failure const& failure) {
    for (std::string const& message : failure.messages())
        std::cerr << "zprop: " << shown(message) << "\n";
    return failure.exitCode();
}

void warn(std::string const& message) { std::cerr << "zprop: " << shown(message) << "\n"; }

std::string bytesOf(std::string const& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Failure failureOf(ZException& e) {
    if (isAboutCompanion(e)) {
        CompanionTrouble const trouble = troubleOf(e);
        return {trouble.exitCode(), trouble.reason};
    }
    if (auto const* data = dynamic_cast<ZPropertiesInvalidDataException*>(&e))
        return invalidData(*data);
    if (auto const* missing = dynamic_cast<ZPropertiesMissingPropertyException*>(&e)) {
        return {Exit::notThereOrInvalid, std::string(missing->propFile()) + ": there is no " +
                                             place(missing->category(), missing->key())};
    }
    if (auto const* value = dynamic_cast<ZPropertiesInvalidValueException*>(&e))
        return invalidValue(*value);
    if (auto const* io = dynamic_cast<ZPropertiesIOException*>(&e)) {
        return {Exit::inputOutput, std::string(io->propFile()) + ": " + io->api() + ": " +
                                       std::strerror(io->excerrno())};
    }
    if (dynamic_cast<ZOutOfMemoryException*>(&e) != nullptr)
        return {Exit::inputOutput, "memory is exhausted"};
    if (dynamic_cast<ZToUTF8Exception*>(&e) != nullptr)
        return {Exit::inputOutput,
                "text is not in the local codeset (LC_ALL, LC_CTYPE or LANG name another one)"};
    return {Exit::inputOutput,
            std::string(e.getName()) + " (message " + std::to_string(e.getCode()) + ")"};
}

bool isAboutCompanion(ZException const& e) {
    if (auto const* io = dynamic_cast<ZPropertiesIOException const*>(&e))
        return std::strcmp(io->api(), "mapFile()") == 0;
    auto const* data = dynamic_cast<ZPropertiesInvalidDataException const*>(&e);
    return data != nullptr && data->badline() == 0;
}

CompanionTrouble troubleOf(ZException const& e) {
    CompanionTrouble trouble;
    auto const* io = dynamic_cast<ZPropertiesIOException const*>(&e);
    trouble.file = dynamic_cast<ZPropertiesException const&>(e).propFile();
    std::string why = stateOf(trouble.file, trouble.isLost);
    if (why.empty() && io != nullptr)
        why = std::string("cannot be read: ") + std::strerror(io->excerrno());
    if (why.empty()) {
        trouble.isLost = true;
        why = "is damaged, or holds more than --max-companion allows";
    }
    trouble.reason = "the companion file of its obfuscated values, " + trouble.file + ", " + why;
    return trouble;
}

}  // namespace zprop
