// link: static
// Every sequence of operations does to a cache what it does to the model.
#include <functional>
#include <initializer_list>
#include <memory>
#include <random>

#include "Z/ZList.h"
#include "support/property_model.h"
#include "support/records_check.h"

namespace {

using namespace testsupport;

#define BOTH(operation) [&] { cache.operation, model.operation; }

/// Does the same to a cache and to the model, at random, and compares them.
class Twins {
  public:
    explicit Twins(unsigned int seed) : random(seed) {}

    /// One operation, of whatever stanza and key.
    void step() {
        char const* const s = pick({"s", "t", "u", " v "});
        char const* const k = pick({"k1", "k2", "k3", "a b", "x#"});
        char const* const value = pick(values);
        char const* const comment = pick(comments);
        bool const secret = below(3) == 0;
        unsigned int const i = below(5);  // may be beyond the last value
        std::function<void()> const operations[] = {
            BOTH(addLine(s, nullptr, 0)),
            BOTH(addLine(s, k, 0)),
            BOTH(addLine(s, k, value, secret)),
            BOTH(addValue(s, k, "new", secret)),
            BOTH(add(s, k, value, secret)),
            BOTH(set(s, k, value)),
            BOTH(setObfuscated(s, k, value)),
            BOTH(remove(s, k)),
            BOTH(remove(s)),
            BOTH(delLine(s, k)),
            BOTH(delLine(s)),
            BOTH(addFileComment(comment)),
            [&] {
                if (model.stanza(s) != nullptr) BOTH(addLineComment(s, comment))();
            },
            [&] {
                if (model.key(s, k) != nullptr) BOTH(addLineComment(s, k, comment))();
            },
            [&] { ASSERT_EQ(cache.changeValue(s, k, i, "!"), model.changeValue(s, k, i, "!")); },
            [&] { ASSERT_EQ(cache.removeValue(s, k, i), model.removeValue(s, k, i)); },
            [&] { read(s); }};
        operations[below(std::size(operations))]();
    }

    void compare() {
        cache.check();
        ASSERT_EQ(cache.written(), model.written());
        ASSERT_EQ(cache.count(), model.stanzas.size());
        auto expected = model.stanzas.begin();
        cache.forEachStanza([&](char const* name, unsigned int length) {
            ASSERT_EQ(std::string(name, length), expected->name);
            compareStanza(*expected++);
        });
        ASSERT_TRUE(expected == model.stanzas.end());
        ZArrayList items(0, 1);
        cache.getObfuscatedItems(items);
        ASSERT_EQ(items.size(), model.items.size());
        ASSERT_EQ(cache.obfuscatedCount(), model.items.size());
        for (unsigned int i = 0; i < items.size(); ++i) {
            auto const& [stanza, key] = model.items[i];
            ASSERT_TRUE(*items.get(i) == ZObfuscatedItem(stanza.c_str(), key.c_str()));
        }
    }

    /// A copy is whole without the original, and an emptied cache starts anew.
    void copyAndStartAnew() {
        std::unique_ptr<ZObject> const copy(cache.clone());
        cache.clear();
        cache.check();
        std::string const text =
            writtenBy([&](FILE* out) { static_cast<ZSCFData&>(*copy).be_write("f", out); });
        EXPECT_EQ(text, model.written());
        model = PropertyModel();
        model.read(text);
        cache.read(text);
    }

  private:
    void compareStanza(PropertyModel::Stanza& stanza) {
        char const* const name = stanza.name.c_str();
        Texts names;
        std::size_t count = 0;
        bool hidden = false;
        for (PropertyModel::Line& line : stanza.lines) {
            if (line.kind != ZPropLine::key) continue;
            names.push_back(line.text);
            char const* const key = line.text.c_str();
            ASSERT_EQ(cache.values(name, key, ZPCache::plainValues), line.plain);
            ASSERT_EQ(cache.values(name, key, ZPCache::obfuscatedValues), line.secret);
            for (auto i = static_cast<unsigned int>(line.seen().size()); i-- > 0;)
                ASSERT_EQ(cache.valueAt(name, key, i), line.seen()[i]);
            ASSERT_EQ(cache.countValues(name, key), line.seen().size());
            ASSERT_EQ(cache.isObfuscated(name, key), !line.secret.empty());
            count += line.seen().size();
            hidden |= !line.secret.empty();
        }
        ASSERT_EQ(cache.countValues(name), count);
        ASSERT_EQ(cache.isObfuscated(name), hidden);
        ASSERT_EQ(cache.keyCount(name), names.size());
        Texts listed;
        cache.forEachKey(name, [&](char const* k, unsigned int n) { listed.emplace_back(k, n); });
        ASSERT_EQ(listed, names);
    }

    unsigned int below(std::size_t bound) { return static_cast<unsigned int>(random() % bound); }
    bool oneIn(unsigned int bound) { return below(bound) == 0; }
    char const* pick(std::initializer_list<char const*> from) {
        return from.begin()[below(from.size())];
    }
    /// A few lines, with a stanza when there is none of that name.
    void read(std::string const& stanza) {
        std::string text;
        for (unsigned int i = below(4); i > 0; --i)
            text += std::string(oneIn(2) ? "" : pick(comments)) + "\n";
        if (model.stanza(stanza) == nullptr) {
            text += "[" + stanza + "]\n";
            for (unsigned int i = below(14); i > 0; --i)
                text += someLine() + "\n";
        }
        BOTH(read(text))();
    }
    std::string someLine() {
        if (oneIn(4)) return pick({"k1", "k2", "k4", "a b"}) + std::string(" = ") + pick(values);
        return oneIn(3) ? "" : pick(comments);
    }

    static constexpr std::initializer_list<char const*> values = {"", "1", "two", "a = b # c",
                                                                  " spaced "};
    static constexpr std::initializer_list<char const*> comments = {
        "#k1=5",     "# k 1 = x", "#k1",   "#k2=", "##k3=",      "#\tk2=",
        "# a b = 1", "#",         "#x#=1", "#=",   "# k3 = #k1="};
    std::mt19937 random;
    CheckedCache cache;
    PropertyModel model;
};

TEST(PropertyModelTest, everySequenceOfOperationsDoesWhatIsDescribed) {
    for (unsigned int seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Twins twins(seed);
        for (int i = 0; i < 60 && !HasFailure(); ++i) {
            twins.step();
            twins.compare();
        }
        if (HasFailure()) return;
        twins.copyAndStartAnew();
        twins.compare();
    }
}

}  // namespace
