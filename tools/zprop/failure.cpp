#include "zprop/failure.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "zprop/reads/scan.h"
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

Failure recovery(ZPropertiesRecoveryException const& e) {
    constexpr int setAside = 58;
    std::string const what = std::string(e.configFile()) + ": its recovery copy ";
    std::string const copy = e.propFile();
    return {Exit::inputOutput,
            what + (e.getCode() == setAside ? "was set aside as " + copy : copy + " is ignored") +
                ": " + e.reason()};
}

Failure invalidValue(ZPropertiesInvalidValueException const& e) {
    bool const isBool = dynamic_cast<ZPropertiesInvalidBoolValueException const*>(&e) != nullptr;
    return {Exit::notThereOrInvalid, std::string(e.propFile()) + ": value " + quoted(e.value()) +
                                         " of " + place(e.category(), e.key()) + " is no " +
                                         (isBool ? "boolean" : "number")};
}

/// Whether something else than a file stands where the companion is named.
bool isSpecial(char const* file) {
    struct stat status {};
    return stat(file, &status) == 0 && !S_ISREG(status.st_mode);
}

/// What both exceptions about a companion file tell.
template <class Exception>
CompanionTrouble troubleWith(Exception const& e, bool isLost) {
    return {e.configFile(), e.propFile(),
            std::string("the companion file of its obfuscated values, ") + e.propFile() +
                ", cannot be used: " + e.reason(),
            isLost};
}

}  // namespace

Failure Failure::with(std::string const& text) const {
    std::vector<std::string> messages;
    for (std::string const& line : lines)
        messages.push_back(text + line);
    return {code, messages};
}

void failIO(std::string const& file, char const* operation) {
    throw Failure(Exit::inputOutput, file + ": " + operation + ": " + std::strerror(errno));
}

Exit report(Failure const& failure) {
    for (std::string const& message : failure.messages())
        std::cerr << "zprop: " << shown(message) << "\n";
    return failure.exitCode();
}

void warn(std::string const& message) { std::cerr << "zprop: " << shown(message) << "\n"; }

std::string bytesOf(std::string const& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string bytes;
    // By blocks: byte by byte it takes longer than to load the file.
    std::array<char, 65536> block;
    while (stream.read(block.data(), block.size()), stream.gcount() > 0)
        bytes.append(block.data(), static_cast<std::size_t>(stream.gcount()));
    return bytes;
}

Failure failureOf(ZException& e) {
    if (auto const trouble = troubleOf(e)) return CompanionFailure(*trouble);
    if (auto const* data = dynamic_cast<ZPropertiesInvalidDataException*>(&e))
        return invalidData(*data);
    if (auto const* copy = dynamic_cast<ZPropertiesRecoveryException*>(&e)) return recovery(*copy);
    if (auto const* missing = dynamic_cast<ZPropertiesMissingPropertyException*>(&e)) {
        return {Exit::notThereOrInvalid, std::string(missing->propFile()) + ": there is no " +
                                             place(missing->category(), missing->key())};
    }
    if (auto const* value = dynamic_cast<ZPropertiesInvalidValueException*>(&e))
        return invalidValue(*value);
    if (auto const* io = dynamic_cast<ZPropertiesIOException*>(&e)) {
        std::string const file = io->propFile();
        if (io->excerrno() == EINVAL && isSpecial(file.c_str()))
            return {Exit::inputOutput, file + ": is no regular file"};
        return {Exit::inputOutput, file + ": " + io->api() + ": " + std::strerror(io->excerrno())};
    }
    if (dynamic_cast<ZOutOfMemoryException*>(&e) != nullptr)
        return {Exit::inputOutput, "memory is exhausted"};
    if (dynamic_cast<ZFromUTF8Exception*>(&e) != nullptr)
        return {Exit::inputOutput, "text of the file has no form in the local codeset"};
    if (dynamic_cast<ZToUTF8Exception*>(&e) != nullptr)
        return {Exit::inputOutput,
                "text is not in the local codeset (LC_ALL, LC_CTYPE or LANG name another one)"};
    return {Exit::inputOutput,
            std::string(e.getName()) + " (message " + std::to_string(e.getCode()) + ")"};
}

std::optional<CompanionTrouble> troubleOf(ZException const& e) {
    if (auto const* io = dynamic_cast<ZPropertiesCompanionIOException const*>(&e))
        return troubleWith(*io, io->excerrno() == EINVAL && !isSpecial(io->propFile()));
    if (auto const* data = dynamic_cast<ZPropertiesCompanionDataException const*>(&e))
        return troubleWith(*data, true);
    return std::nullopt;
}

}  // namespace zprop
