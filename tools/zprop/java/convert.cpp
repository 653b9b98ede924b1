#include "zprop/java/convert.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "Z/ZList.h"
#include "zprop/java/file.h"

namespace zprop {
namespace {

constexpr char blanks[] = " \t\v\f\r";

/// What the target would not have.
class Losses {
  public:
    explicit Losses(std::string file) : source(std::move(file)) {}

    void add(std::string const& what) { lines.push_back(source + ": " + what); }
    void addKey(std::string const& key, std::string const& why) {
        add("key \"" + key + "\": " + why);
    }
    void addLine(std::size_t number, std::string const& why) {
        lines.push_back(source + ":" + std::to_string(number) + ": " + why);
    }
    /// Throws when there are any, with a message for each.
    void refuse() const {
        if (lines.empty()) return;
        auto messages = lines;
        messages.push_back(source + ": not converted, since this would be lost");
        throw Failure(Exit::notThereOrInvalid, messages);
    }

  private:
    std::string source;
    std::vector<std::string> lines;
};

// ------------------------------------------------------------------------------ to a stanza file

struct Place {
    std::string stanza;
    std::string key;
};

/// Where a key goes; an empty stanza when it has none.
Place placeOf(std::string const& key, ConvertRequest const& request) {
    if (!request.stanza.empty()) return {request.stanza, key};
    std::size_t const dot = key.find('.');
    if (dot == std::string::npos || dot + 1 == key.size()) return {"", key};
    return {key.substr(0, dot), key.substr(dot + 1)};
}

bool hasBlanksAround(std::string const& text) {
    return !text.empty() && (std::string(blanks).find(text.front()) != std::string::npos ||
                             std::string(blanks).find(text.back()) != std::string::npos);
}

/// Sets the pair, or tells why it cannot be kept; null when it is.
char const* put(ZStanzaFileProperties& properties, Place const& place, std::string const& value) {
    if (place.stanza.empty()) return "no stanza before a \".\"; --stanza puts all keys into one";
    if (hasBlanksAround(value)) return "blanks around its value";
    if (value.find('\0') != std::string::npos) return "a NUL in its value";
    try {
        properties.setValue(place.stanza.c_str(), place.key.c_str(), value.c_str());
        return nullptr;
    } catch (ZInvalidParameterException&) {
        return "key or value would not read back from a stanza file";
    }
}

char const* putPair(ZStanzaFileProperties& properties, ConvertRequest const& request,
                    JavaPair const& pair) {
    try {
        return put(properties, placeOf(inLocal(pair.key), request), inLocal(pair.value));
    } catch (ZFromUTF8Exception&) {
        return "text that the local codeset does not have";
    }
}

bool isContinued(std::string const& line) {
    auto const end = std::find_if(line.rbegin(), line.rend(), [](char c) { return c != '\\'; });
    return (end - line.rbegin()) % 2 == 1;
}

/// Tells the comment lines of a properties file that have text.
void addJavaComments(std::string const& file, Losses& losses) {
    bool belongsAbove = false;
    std::size_t number = 0;
    for (auto const& line : linesOf(file)) {
        ++number;
        std::size_t const start = line.find_first_not_of(" \t\f");
        bool const isComment = !belongsAbove && start != std::string::npos &&
                               (line[start] == '#' || line[start] == '!');
        belongsAbove = !isComment && isContinued(line);
        if (isComment && line.find_first_not_of(" \t\f#!") != std::string::npos)
            losses.addLine(number, "comment; --drop-comments lets them go");
    }
}

/// The pairs of the source as stanzas.
std::unique_ptr<ZStanzaFileProperties> asStanzas(ConvertRequest const& request,
                                                 Deadline& deadline) {
    ZJavaPropertiesFile source(request.source.c_str(), request.encoding);
    load(source, deadline);
    Losses losses(request.source);
    if (!request.dropComments) addJavaComments(request.source, losses);
    auto properties = std::make_unique<ZStanzaFileProperties>(1);
    for (auto const& pair : pairsOf(source)) {
        char const* const why = putPair(*properties, request, pair);
        if (why != nullptr) losses.addKey(pair.key, why);
    }
    losses.refuse();
    return properties;
}

// -------------------------------------------------------------------------- to a properties file

/// Tells the comment lines of a stanza file.
void addComments(std::string const& file, Losses& losses) {
    std::ifstream stream(file, std::ios::binary);
    std::string line;
    for (std::size_t number = 1; std::getline(stream, line); ++number) {
        std::size_t const start = line.find_first_not_of(blanks);
        if (start != std::string::npos && line[start] == '#')
            losses.addLine(number, "comment; --drop-comments lets them go");
    }
}

/// Fills a properties file, in memory, from a stanza file.
class JavaWriter {
  public:
    JavaWriter(ConvertRequest const& asked, ZStanzaFileProperties const& from,
               ZJavaPropertiesFile& to)
        : request(asked), source(from), losses(asked.source), target(to) {}

    void convert() {
        if (!request.dropComments) addComments(request.source, losses);
        ZPropertiesIterator stanzas(source);
        while (stanzas.next())
            addStanza(stanzas.getName());
        losses.refuse();
    }

  private:
    void addStanza(std::string const& stanza) {
        bool const isWhole = stanza == request.stanza;
        if (!request.stanza.empty() && !isWhole)
            return losses.add("stanza \"" + stanza + "\": not the one of --stanza");
        if (!isWhole && stanza.find('.') != std::string::npos)
            return losses.add("stanza \"" + stanza + "\": keys could not be told from its name");
        bool hasKeys = false;
        ZPropertiesIterator keys(source, stanza.c_str());
        for (; keys.next(); hasKeys = true)
            addKey(stanza, keys.getName(), isWhole ? "" : stanza + ".");
        if (!hasKeys) losses.add("stanza \"" + stanza + "\": has no keys");
    }

    void addKey(std::string const& stanza, std::string const& key, std::string const& prefix) {
        if (source.isObfuscated(stanza.c_str(), key.c_str()))
            return losses.addKey(prefix + key, "its value is obfuscated");
        ZArrayList values(1, 1);
        source.getValues(stanza.c_str(), key.c_str(), values, zpropUTF8);
        if (values.size() > 1) return losses.addKey(prefix + key, "has several values");
        ZUTF8String text;
        if (values.size() == 1) text = static_cast<ZUTF8String const&>(*values.get(0));
        ZUTF8String const name = inUtf8(prefix + key);
        // "a.b" of stanza "c" is "b" of "c.a" too.
        if (target.contains(name)) return losses.addKey(prefix + key, "would be there twice");
        target.setValue(name, text);
    }

    ConvertRequest const& request;
    ZStanzaFileProperties const& source;
    Losses losses;
    ZJavaPropertiesFile& target;
};

// -------------------------------------------------------------------------------------- the target

/// The target, made empty with the permissions of the source before it has a byte; it goes again
/// when it is not kept.
class Target {
  public:
    Target(std::string target, std::string const& source) : file(std::move(target)) {
        struct stat like {};
        if (stat(source.c_str(), &like) != 0) failIO(source, "stat()");
        // For the owner alone until it is in its group.
        fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ownersOwn);
        if (fd < 0 && errno == EEXIST)
            throw Failure(Exit::notThereOrInvalid, file + ": is there already");
        if (fd < 0) failIO(file, "open()");
        try {
            mode = modeLike(like);
            setMode(mode | ownersOwn);  // a store has to open it
        } catch (Failure&) {
            end();
            throw;
        }
    }
    ~Target() { end(); }
    Target(Target const&) = delete;
    Target& operator=(Target const&) = delete;

    void keep() {
        setMode(mode);
        kept = true;
    }

  private:
    static constexpr mode_t ownersOwn = S_IRUSR | S_IWUSR;

    /// Gives the file to the source's owner and group where that is allowed; the mode it may have.
    [[nodiscard]] mode_t modeLike(struct stat const& like) const {
        struct stat made {};
        if (fstat(fd, &made) != 0) failIO(file, "fstat()");
        mode_t const asked = like.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
        bool const isOfGroup =
            made.st_gid == like.st_gid || fchown(fd, static_cast<uid_t>(-1), like.st_gid) == 0;
        if (made.st_uid != like.st_uid)  // allowed to few, and nobody gets more without it
            static_cast<void>(fchown(fd, like.st_uid, static_cast<gid_t>(-1)) == 0);
        if (isOfGroup) return asked;
        // Another group may not have what that of the source has; nor may the members of that one,
        // now among the others, have what they have.
        return (asked & S_IRWXU) | (asked & (asked >> 3U) & S_IRWXO);
    }

    void setMode(mode_t bits) const {
        if (fchmod(fd, bits) != 0) failIO(file, "fchmod()");
    }

    void end() const {
        if (!kept) unlink(file.c_str());
        close(fd);
    }

    std::string file;
    int fd = -1;
    mode_t mode = 0;  // in the end
    bool kept = false;
};

/// The format that the ending of a file's name says; nothing without an ending.
std::optional<Format> saidBy(std::string const& file) {
    std::size_t const name = file.rfind('/') + 1;
    std::size_t const dot = file.rfind('.');
    if (dot == std::string::npos || dot <= name) return std::nullopt;
    return formatOf(file, std::nullopt);
}

void requireFitting(ConvertRequest const& request) {
    if (request.target == "-")
        throw Failure(Exit::wrongUsage,
                      "\"-\" is standard output, where no file is made; one of that name is ./-");
    if (access(request.target.c_str(), F_OK) == 0)
        throw Failure(Exit::notThereOrInvalid, request.target + ": is there already");
    auto const said = saidBy(request.target);
    if (request.isFormatGiven || !said || *said != request.from) return;
    throw Failure(Exit::wrongUsage, request.target + ": its ending says that it is a " +
                                        (request.from == Format::java ? "properties" : "stanza") +
                                        " file, which it would not be; --format " +
                                        (request.from == Format::java ? "java" : "stanza") +
                                        ", the format of " + request.source + ", lets it");
}

void write(ConvertRequest const& request, Deadline& deadline, std::function<void()> const& store) {
    Target target(request.target, request.source);
    retryWhileLocked(deadline, store);
    target.keep();
}

}  // namespace

Exit convert(ConvertRequest const& request, Deadline& deadline) {
    requireFitting(request);
    if (request.from == Format::java) {
        auto const properties = asStanzas(request, deadline);
        write(request, deadline, [&] { properties->store(request.target.c_str()); });
        return Exit::done;
    }
    Properties const source = openForReading(request.source, deadline);
    ZJavaPropertiesFile target(request.target.c_str(), request.encoding);
    JavaWriter(request, *source, target).convert();
    write(request, deadline, [&] { target.store(); });
    return Exit::done;
}

}  // namespace zprop
