#include "Z/ZLayeredProperties.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/config/cache/names.h"
#include "Z/config/properties_edit.h"
#include "Z/threads/forked_child.h"

using Name = std::pair<std::string, std::string>;  // a stanza and a key

namespace {

constexpr char sourceName[] = "src/Z/ZLayeredProperties";

[[nodiscard]] bool endsIn(std::string_view text, std::string_view ending) {
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

[[nodiscard]] bool isSetting(std::string_view fileName) {
    return fileName[0] != '.' && endsIn(fileName, ".conf");
}

[[noreturn]] void raiseUnreadable(std::string const& path, int error) {
    zraise(ZPropertiesIOException(path.c_str(), "opendir()", error), sourceName, __LINE__);
}

/// In byte order.
[[nodiscard]] std::vector<std::string> filesIn(std::string const& path) {
    std::vector<std::string> files;
    std::unique_ptr<DIR, int (*)(DIR*)> const directory(opendir(path.c_str()), closedir);
    if (!directory && errno != ENOENT) raiseUnreadable(path, errno);
    if (!directory) return files;
    errno = 0;
    while (dirent const* const entry = readdir(directory.get()))
        if (isSetting(entry->d_name)) files.push_back(path + "/" + entry->d_name);
    if (errno != 0) raiseUnreadable(path, errno);
    std::sort(files.begin(), files.end());
    return files;
}

/// As variables of the environment have it, in lower case.
[[nodiscard]] std::string plainName(std::string_view name) {
    std::string plain(name);
    for (char& c : plain) {
        bool const isCapital = c >= 'A' && c <= 'Z';
        bool const isOther = !(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9');
        c = isCapital ? static_cast<char>(c - 'A' + 'a') : isOther ? '_' : c;
    }
    return plain;
}

[[nodiscard]] bool isMissing(ZPropertiesIOException const& e) {
    return e.excerrno() == ENOENT && std::string_view(e.api()) == "fopen(r)";
}

}  // namespace

struct ZLayeredProperties::Places {
    enum class Kind { file, optionalFile, directory, environment };
    struct Place {
        Kind kind;
        std::string name;  // a path, or a prefix
    };

    void add(Kind kind, char const* name) {
        zfc::config::require(name, sourceName, __LINE__);
        all.push_back({kind, name});
    }

    std::vector<Place> all;                // the weakest first
    std::shared_ptr<Merged const> merged;  // never null
};

/// What one load has read.
class ZLayeredProperties::Merged {
  public:
    void add(Places::Place const& place);

    [[nodiscard]] ZStanzaFileProperties const& values() const { return all; }
    [[nodiscard]] char const* originOf(char const* stanza, char const* key) const {
        auto const found = origins.find({stanza, key});
        return found == origins.end() ? "" : found->second.c_str();
    }

  private:
    void addFile(std::string const& path, bool isOptional);
    void addAll(ZStanzaFileProperties const& file, std::string const& path);
    void addEnvironment(std::string const& prefix);
    void addVariable(std::string const& variable, std::string_view rest, char const* value);
    void replace(Name const& name, ZArrayList const& values, bool isObfuscated,
                 std::string const& origin);
    [[nodiscard]] std::vector<Name> namesLike(Name const& plain) const;

    ZStanzaFileProperties all{0};
    std::map<Name, std::string> origins;
};

void ZLayeredProperties::Merged::add(Places::Place const& place) {
    switch (place.kind) {
        case Places::Kind::file:
        case Places::Kind::optionalFile:
            return addFile(place.name, place.kind == Places::Kind::optionalFile);
        case Places::Kind::directory:
            for (std::string const& path : filesIn(place.name))
                addFile(path, true);  // it may be gone by now
            return;
        case Places::Kind::environment:
            return addEnvironment(place.name);
    }
}

void ZLayeredProperties::Merged::addFile(std::string const& path, bool isOptional) {
    try {
        addAll(ZStanzaFileProperties(path.c_str(), 0), path);
    } catch (ZPropertiesIOException const& e) {
        if (!isOptional || !isMissing(e)) throw;
    }
}

void ZLayeredProperties::Merged::addAll(ZStanzaFileProperties const& file,
                                        std::string const& path) {
    for (ZPropertiesIterator stanzas(file); stanzas.next();) {
        // Where the file's secrets are is no setting.
        if (std::string_view(stanzas.getName()) == zfc::cache::companionStanza) continue;
        all.addStanza(stanzas.getName());
        for (ZPropertiesIterator keys(file, stanzas.getName()); keys.next();) {
            Name const name(stanzas.getName(), keys.getName());
            char const* const stanza = name.first.c_str();
            char const* const key = name.second.c_str();
            ZArrayList values(1, 1);
            file.getValues(stanza, key, values, zpropLocalCodeset);
            replace(name, values, file.isObfuscated(stanza, key), path);
        }
    }
}

void ZLayeredProperties::Merged::replace(Name const& name, ZArrayList const& values,
                                         bool isObfuscated, std::string const& origin) {
    char const* const stanza = name.first.c_str();
    char const* const key = name.second.c_str();
    // A place may keep out of sight what another one shows.
    all.deleteKey(stanza, key);
    if (values.isEmpty())
        all.setValue(stanza, key, nullptr);
    else
        all.addValues(stanza, key, values, isObfuscated ? 1 : 0);
    origins[name] = origin;
}

void ZLayeredProperties::Merged::addEnvironment(std::string const& prefix) {
    for (char* const* variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        std::string_view const entry(*variable);
        std::size_t const end = entry.find('=');
        bool const isOurs = end != std::string_view::npos && end + 1 < entry.size() &&
                            end > prefix.size() && entry.substr(0, prefix.size()) == prefix;
        if (!isOurs) continue;
        std::string const name(entry.substr(0, end));
        addVariable(name, std::string_view(name).substr(prefix.size()), *variable + end + 1);
    }
}

void ZLayeredProperties::Merged::addVariable(std::string const& variable, std::string_view rest,
                                             char const* value) {
    constexpr std::string_view between = "__";
    std::size_t const middle = rest.find(between);
    bool const isNamed =
        middle != std::string_view::npos && middle > 0 && middle + between.size() < rest.size();
    if (!isNamed) return;
    Name const plain(plainName(rest.substr(0, middle)),
                     plainName(rest.substr(middle + between.size())));
    ZArrayList values(1, 1);
    ZLCString text(value);
    values.add(&text);
    for (Name const& name : namesLike(plain))
        replace(name, values, all.isObfuscated(name.first.c_str(), name.second.c_str()), variable);
}

/// The keys that look so; the plain name itself where there is none.
std::vector<Name> ZLayeredProperties::Merged::namesLike(Name const& plain) const {
    std::vector<Name> found;
    for (auto const& [name, origin] : origins)
        if (plainName(name.first) == plain.first && plainName(name.second) == plain.second)
            found.push_back(name);
    if (found.empty()) found.push_back(plain);
    return found;
}

// ----------------------------------------------------------------------------------------- reading

ZLayeredProperties::ZLayeredProperties() : places(std::make_unique<Places>()) {
    places->merged = std::make_shared<Merged>();
}

ZLayeredProperties::~ZLayeredProperties() = default;

void ZLayeredProperties::addFile(char const* path, Presence presence) {
    places->add(presence == Presence::optional ? Places::Kind::optionalFile : Places::Kind::file,
                path);
}

void ZLayeredProperties::addDirectory(char const* path) {
    places->add(Places::Kind::directory, path);
}

void ZLayeredProperties::addEnvironment(char const* prefix) {
    places->add(Places::Kind::environment, prefix);
}

void ZLayeredProperties::load() {
    std::shared_ptr<Merged const> latest;
    {
        auto const fresh = std::make_shared<Merged>();
        for (Places::Place const& place : places->all)
            fresh->add(place);
        latest = fresh;
    }
    // What it takes the place of is freed behind the moment in which nobody may fork.
    ZNoFork const whileChanged;
    places->merged.swap(latest);
}

/// For a read, which keeps it alive. No lock: the child of a fork would find it taken.
std::shared_ptr<ZLayeredProperties::Merged const> ZLayeredProperties::merged() const {
    ZNoFork const whileCopied;
    return places->merged;
}

ZLCString ZLayeredProperties::getOrigin(char const* stanza, char const* key) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    zfc::config::require(key, sourceName, __LINE__);
    return merged()->originOf(stanza, key);
}

bool ZLayeredProperties::exists(char const* stanza, char const* key) const {
    return merged()->values().exists(stanza, key);
}

bool ZLayeredProperties::exists(char const* stanza) const {
    return merged()->values().exists(stanza);
}

bool ZLayeredProperties::isObfuscated(char const* stanza, char const* key) const {
    return merged()->values().isObfuscated(stanza, key);
}

bool ZLayeredProperties::isObfuscated(char const* stanza) const {
    return merged()->values().isObfuscated(stanza);
}

void ZLayeredProperties::getValue(char const* stanza, char const* key, ZAbstractMutableString& out,
                                  int required, char const* defaultValue) const {
    merged()->values().getValue(stanza, key, out, required, defaultValue);
}

unsigned int ZLayeredProperties::getIntegerValue(char const* stanza, char const* key, int required,
                                                 unsigned int defaultValue) const {
    return merged()->values().getIntegerValue(stanza, key, required, defaultValue);
}

int ZLayeredProperties::getBooleanValue(char const* stanza, char const* key, int required,
                                        int defaultValue) const {
    return merged()->values().getBooleanValue(stanza, key, required, defaultValue);
}

void ZLayeredProperties::getValues(char const* stanza, char const* key, ZArrayList& values,
                                   ZPropertyStringType type) const {
    merged()->values().getValues(stanza, key, values, type);
}

unsigned int ZLayeredProperties::numValues(char const* stanza) const {
    return merged()->values().numValues(stanza);
}

unsigned int ZLayeredProperties::numValues(char const* stanza, char const* key) const {
    return merged()->values().numValues(stanza, key);
}

unsigned int ZLayeredProperties::count() const { return merged()->values().count(); }

unsigned int ZLayeredProperties::count(char const* stanza) const {
    return merged()->values().count(stanza);
}

void ZLayeredProperties::list() const { merged()->values().list(); }
