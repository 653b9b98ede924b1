#include "torture/judge.h"

#include <sys/wait.h>

#include <set>

#include "Z/ZException.h"
#include "torture/process.h"

namespace torture {
namespace {

using Generations = std::set<unsigned int>;

struct Loaded {
    explicit Loaded(Subject const& s) : subject(s), properties(s.path.c_str(), 1) {}

    Subject const& subject;
    ZStanzaFileProperties properties;
    Generations plain;
    Generations secret;
};

std::string valueIn(ZStanzaFileProperties const& properties, Item const& item) {
    ZLCString value;
    properties.getValue(item.stanza.c_str(), item.key.c_str(), value);
    return value.getChars();
}

void collectGenerations(Loaded& loaded, Content const& content) {
    for (Item const& item : content) {
        unsigned int const generation = generationOf(valueIn(loaded.properties, item));
        if (generation == 0) continue;
        bool const isSecret = loaded.properties.isObfuscated(item.stanza.c_str(), item.key.c_str());
        (isSecret ? loaded.secret : loaded.plain).insert(generation);
    }
}

/// A value that every generation has, in one file or the other, is there.
void findLostMove(Loaded const& loaded, Finding& finding) {
    if (loaded.subject.cell.kind < Kind::hide) return;
    Content const odd = contentOf(loaded.subject.cell, 1);
    Content const even = contentOf(loaded.subject.cell, 2);
    for (std::size_t i = 0; i < odd.size(); ++i) {
        bool const isAlways = odd[i].moves && !odd[i].value.empty() && !even[i].value.empty();
        if (isAlways && valueIn(loaded.properties, odd[i]).empty())
            finding.add(neither, "[" + odd[i].stanza + "] " + odd[i].key);
    }
}

/// Every value as `content` has it.
void compare(Loaded const& loaded, Content const& content, Finding& finding) {
    unsigned int expected = 0;
    unsigned int found = 0;
    for (Item const& item : content) {
        std::string const value = valueIn(loaded.properties, item);
        std::string const place = "[" + item.stanza + "] " + item.key;
        expected += item.value.empty() ? 0 : 1;
        if (value.empty() && !item.value.empty())
            finding.add(torn, place + " is gone");
        else if (value != item.value)
            finding.add(torn, place + " holds another value");
        else if (!value.empty() && loaded.properties.isObfuscated(
                                       item.stanza.c_str(), item.key.c_str()) != item.isSecret)
            finding.add(differ, place + " is in the other file");
    }
    for (unsigned int i = 0; i < 10; ++i)
        found += loaded.properties.numValues(("s" + std::to_string(i)).c_str());
    if (found != expected) finding.add(torn, "there are " + std::to_string(found) + " values");
}

std::string listOf(Generations const& generations) {
    std::string text;
    for (unsigned int const generation : generations)
        text += " " + std::to_string(generation);
    return text;
}

/// The object that was looked at, with a content that is one generation's when nothing was found.
void examine(Loaded& loaded, unsigned int acknowledged, Finding& finding) {
    collectGenerations(loaded, contentOf(loaded.subject.cell, 2));
    if (loaded.plain.empty()) return finding.add(torn, "no generation is told");
    finding.generation = *loaded.plain.begin();
    std::string const told =
        "main file:" + listOf(loaded.plain) + ", companion:" + listOf(loaded.secret);
    bool const isMixed = loaded.plain.size() > 1 || loaded.secret.size() > 1;
    if (isMixed) finding.add(mixed, told);
    if (!loaded.secret.empty() && loaded.plain != loaded.secret) finding.add(differ, told);
    findLostMove(loaded, finding);
    if (finding.faults == 0)
        compare(loaded, contentOf(loaded.subject.cell, finding.generation), finding);
    if (!isMixed && finding.generation < acknowledged) finding.add(lost, told);
}

/// Stores the next generation, over whatever was found.
void storeNext(Loaded& loaded, Finding& finding) {
    if ((finding.faults & ~(1U << lost)) != 0) return;
    Cell const& cell = loaded.subject.cell;
    try {
        change(loaded.properties, contentOf(cell, finding.generation),
               contentOf(cell, finding.generation + 1));
        loaded.properties.store();
        ++finding.generation;
    } catch (ZException const& e) {
        finding.add(stuck, textOf(e));
    }
}

Finding look(Subject const& subject, unsigned int acknowledged, bool stores) {
    Finding finding;
    try {
        Loaded loaded(subject);
        examine(loaded, acknowledged, finding);
        if (stores) storeNext(loaded, finding);
    } catch (ZException const& e) {
        finding.add(torn, textOf(e));
    }
    return finding;
}

Finding lookFromOutside(Subject const& subject, unsigned int acknowledged, bool stores) {
    Finding finding;
    shared().reason[0] = '\0';
    int const status = inChild([&] {
        Finding const inside = look(subject, acknowledged, stores);
        shared().found = inside.faults;
        shared().generation = inside.generation;
        shared().tell(inside.reason);
    });
    if (status != 0) {
        bool const isSlow = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
        finding.add(isSlow ? hung : torn, "loading ended with status " + std::to_string(status));
        return finding;
    }
    finding.faults = shared().found;
    finding.generation = shared().generation;
    finding.reason = shared().reason;
    return finding;
}

}  // namespace

char const* nameOf(Fault fault) {
    static char const* const names[] = {"torn",  "mixed",    "lost",       "neither", "differ",
                                        "stuck", "leftover", "descriptor", "hung"};
    return names[fault];
}

void Count::add(unsigned int mask) {
    ++runs;
    for (unsigned int i = 0; i < faultCount; ++i)
        faults[i] += mask >> i & 1U;
}

bool Count::isClean() const { return faults == decltype(faults){}; }

Count& Count::operator+=(Count const& other) {
    runs += other.runs;
    for (unsigned int i = 0; i < faultCount; ++i)
        faults[i] += other.faults[i];
    return *this;
}

std::string Subject::directory() const { return path.substr(0, path.rfind('/')); }

void Finding::add(Fault fault, std::string const& why) {
    if (faults == 0) reason = std::string(nameOf(fault)) + ": " + why;
    faults |= 1U << fault;
}

Finding judge(Subject const& subject, unsigned int acknowledged) {
    return lookFromOutside(subject, acknowledged, false);
}

Finding judgeAndStore(Subject const& subject, unsigned int acknowledged) {
    Finding finding = lookFromOutside(subject, acknowledged, true);
    if (finding.faults == 0) findLeftovers(subject, finding.generation, finding);
    return finding;
}

void findLeftovers(Subject const& subject, unsigned int generation, Finding& finding) {
    std::set<std::string> needed{subject.path};
    for (Item const& item : contentOf(subject.cell, generation)) {
        if (item.isSecret && !item.value.empty()) needed.insert(subject.companion());
    }
    for (auto const& [name, file] : filesOf(subject.directory())) {
        if (needed.count(name) == 0) finding.add(leftover, name);
    }
}

void prepare(Subject const& subject, unsigned int generation) {
    putFiles(subject.directory(), {});
    int const status = inChild([&] {
        ZStanzaFileProperties properties(1);
        change(properties, {}, contentOf(subject.cell, generation));
        properties.store(subject.path.c_str());
    });
    if (status != 0) die("cannot prepare " + subject.path);
}

}  // namespace torture
