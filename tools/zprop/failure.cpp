#include "zprop/failure.h"

#include <cstring>
#include <fstream>

namespace zprop {
namespace {

constexpr char blanks[] = " \t\v\f\r";

std::string quoted(char const* text) { return std::string("\"") + text + "\""; }

std::string place(char const* stanza, char const* key) {
    return "key " + quoted(key) + " in stanza " + quoted(stanza);
}

/// The bytes of a file's line as they are; the error shows them up to the first NUL only.
std::string rawLine(char const* file, int number) {
    std::ifstream stream(file, std::ios::binary);
    std::string line;
    for (int i = 0; i < number; ++i) {
        if (!std::getline(stream, line)) return {};
    }
    return line;
}

LineFault headerFault(std::string const& line, std::size_t bracket) {
    if (line.find(']', bracket) == std::string::npos)
        return {"stanza header without \"]\"", line.size()};
    return {"this stanza stands in the file already", bracket + 1};
}

LineFault keyFault(std::string const& line, std::size_t start) {
    std::size_t const equals = line.find('=', start);
    if (equals == start) return {"no key before \"=\"", start};
    if (equals == std::string::npos)
        return {"neither stanza header, comment nor key = value", start};
    return {"key line before the first stanza header", start};
}

}  // namespace

LineFault faultOf(ZPropertiesInvalidDataException const& e) {
    std::string const line = e.baddata();
    if (e.badline() == 0) return {"the companion file of obfuscated values is damaged", 0};
    std::size_t const nul = rawLine(e.propFile(), e.badline()).find('\0');
    if (nul != std::string::npos) return {"NUL byte", nul};
    std::size_t const start = line.find_first_not_of(blanks);
    if (start == std::string::npos) return {"invalid line", 0};
    if (line.compare(start, 3, "\xEF\xBB\xBF") == 0)
        return {"byte order mark; the file must begin with its text", start};
    return line[start] == '[' ? headerFault(line, start) : keyFault(line, start);
}

Failure failureOf(ZException& e) {
    if (auto const* data = dynamic_cast<ZPropertiesInvalidDataException*>(&e)) {
        return {Exit::notThereOrInvalid, std::string(data->propFile()) + ":" +
                                             std::to_string(data->badline()) + ": " +
                                             faultOf(*data).reason};
    }
    if (auto const* missing = dynamic_cast<ZPropertiesMissingPropertyException*>(&e)) {
        return {Exit::notThereOrInvalid, std::string(missing->propFile()) + ": there is no " +
                                             place(missing->category(), missing->key())};
    }
    if (auto const* value = dynamic_cast<ZPropertiesInvalidValueException*>(&e)) {
        bool const isBool = dynamic_cast<ZPropertiesInvalidBoolValueException*>(&e) != nullptr;
        return {Exit::notThereOrInvalid, std::string(value->propFile()) + ": value " +
                                             quoted(value->value()) + " of " +
                                             place(value->category(), value->key()) + " is no " +
                                             (isBool ? "boolean" : "number")};
    }
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

}  // namespace zprop
