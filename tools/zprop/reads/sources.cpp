#include "zprop/reads/sources.h"

#include <algorithm>
#include <filesystem>

#include "zprop/reads/answers.h"
#include "zprop/reads/scan.h"

namespace zprop {
namespace {

std::unique_ptr<ZLayeredProperties> readLayers(GetRequest const& request, Deadline& deadline) {
    auto layered = std::make_unique<ZLayeredProperties>();
    layered->addFile(request.file.c_str());
    for (std::string const& layer : request.layers) {
        std::error_code unknown;  // what is not there is a file that may come
        if (std::filesystem::is_directory(layer, unknown))
            layered->addDirectory(layer.c_str());
        else
            layered->addFile(layer.c_str(), ZLayeredProperties::Presence::optional);
    }
    if (!request.environment.empty()) layered->addEnvironment(request.environment.c_str());
    retryWhileLocked(deadline, [&] { layered->load(); });
    return layered;
}

/// The lines of these values, or of the key without one; none when the file has other values now.
std::vector<std::size_t> linesOf(std::vector<Assignment> const& assignments,
                                 std::vector<std::string> const& values) {
    std::vector<std::size_t> lines;
    std::vector<std::string> found;
    for (Assignment const& assignment : assignments) {
        if (assignment.value.empty() != values.empty()) continue;
        lines.push_back(assignment.line);
        if (!values.empty()) found.push_back(assignment.value);
    }
    if (found != values) lines.clear();
    return lines;
}

}  // namespace

Sources::Sources(GetRequest const& asked, Deadline& deadline) : request(asked) {
    if (request.isLayered())
        layered = readLayers(request, deadline);
    else
        file = openForAnswers(request.file, deadline);
}

ZPropertiesInterface const& Sources::values() const {
    if (layered) return *layered;
    return *file;
}

std::optional<CompanionTrouble> const& Sources::trouble() const {
    static std::optional<CompanionTrouble> const no;
    return file ? file->trouble : no;
}

std::string Sources::name() const {
    return layered ? request.file + " and what lies over it" : request.file;
}

std::vector<std::string> Sources::placesOf(std::string const& stanza,
                                           std::string const& key) const {
    std::string const origin =
        layered ? layered->getOrigin(stanza.c_str(), key.c_str()).getChars() : request.file;
    auto const given = valuesOf(values(), stanza, key);
    std::size_t const count = std::max<std::size_t>(given.size(), 1);
    if (isVariable(origin)) return std::vector<std::string>(count, "$" + origin);
    bool const isObfuscated = values().isObfuscated(stanza.c_str(), key.c_str());
    auto const lines = isObfuscated ? std::vector<std::size_t>()
                                    : linesOf(assignmentsOf(bytesOf(origin), stanza, key), given);
    std::vector<std::string> places;
    for (std::size_t i = 0; i < count; ++i)
        places.push_back(i < lines.size() ? origin + ":" + std::to_string(lines[i]) : origin);
    return places;
}

/// It is neither one of the files nor in one of the directories.
bool Sources::isVariable(std::string const& origin) const {
    std::string const folder = origin.substr(0, std::min(origin.rfind('/'), origin.size()));
    bool const isLayer =
        std::any_of(request.layers.begin(), request.layers.end(), [&](std::string const& layer) {
            return origin == layer || (folder != origin && folder == layer);
        });
    return origin != request.file && !isLayer;
}

}  // namespace zprop
