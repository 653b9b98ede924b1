#include <iostream>

#include "zprop/reads/answers.h"
#include "zprop/reads/read_commands.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

using Names = std::vector<std::string>;

/// The names of both, those of `from` first, each once.
Names inEither(Names names, Names const& others,
               std::function<bool(std::string const&)> const& isKnown) {
    for (auto const& name : others) {
        if (!isKnown(name)) names.push_back(name);
    }
    return names;
}

/// What two files hold, compared key by key.
class Comparison {
  public:
    Comparison(Document const& older, Document const& newer, bool revealed)
        : from(older), to(newer), reveal(revealed) {}

    bool run() {
        auto const isKnown = [&](std::string const& name) { return from.exists(name.c_str()); };
        for (auto const& stanza : inEither(stanzasOf(from), stanzasOf(to), isKnown)) {
            if (!isAboutCompanion(stanza)) compareStanza(stanza);
        }
        return differs;
    }

  private:
    /// Each file has a companion of its own, and says so here; what it holds is compared.
    static bool isAboutCompanion(std::string const& stanza) {
        return stanza == "configuration-database";
    }

    void compareStanza(std::string const& stanza) {
        bool const wasThere = stanza.empty() || from.exists(stanza.c_str());
        bool const isThere = stanza.empty() || to.exists(stanza.c_str());
        headed = false;
        if (wasThere != isThere) tell(stanza, (wasThere ? "-[" : "+[") + shown(stanza) + "]");
        auto const isKnown = [&](std::string const& key) {
            return from.exists(stanza.c_str(), key.c_str());
        };
        for (auto const& key : inEither(keysOf(from, stanza), keysOf(to, stanza), isKnown))
            compareKey(stanza, key);
    }

    void compareKey(std::string const& stanza, std::string const& key) {
        bool const wasThere = from.exists(stanza.c_str(), key.c_str());
        bool const isThere = to.exists(stanza.c_str(), key.c_str());
        bool const isSame = wasThere == isThere &&
                            from.isObfuscated(stanza.c_str(), key.c_str()) ==
                                to.isObfuscated(stanza.c_str(), key.c_str()) &&
                            valuesOf(from, stanza, key) == valuesOf(to, stanza, key);
        if (isSame) return;
        if (wasThere) tellKey('-', from, stanza, key);
        if (isThere) tellKey('+', to, stanza, key);
    }

    void tellKey(char sign, Document const& file, std::string const& stanza,
                 std::string const& key) {
        bool const isHidden = !reveal && file.isObfuscated(stanza.c_str(), key.c_str());
        Names const values = valuesOf(file, stanza, key);
        if (values.empty()) tell(stanza, sign + shown(key) + " =");
        for (auto const& value : values)
            tell(stanza, sign + shown(key) + " = " + (isHidden ? hiddenText : shown(value)));
    }

    void tell(std::string const& stanza, std::string const& line) {
        if (!headed && line[1] != '[') std::cout << " [" << shown(stanza) << "]\n";
        std::cout << line << "\n";
        headed = differs = true;
    }

    Document const& from;
    Document const& to;
    bool reveal;
    bool headed = false;  // the stanza's name was printed
    bool differs = false;
};

}  // namespace

Exit diff(DiffRequest const& request, Deadline& deadline) {
    // Without its companion file it is not known whether one differs.
    Properties const from = openForReading(request.from, deadline);
    Properties const to = openForReading(request.to, deadline);
    bool const differs = Comparison(*from, *to, request.reveal).run();
    return differs ? Exit::notThereOrInvalid : Exit::done;
}

}  // namespace zprop
