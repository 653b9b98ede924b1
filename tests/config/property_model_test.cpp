// link: static
// Every sequence of operations does to a cache what it does to the model.
#include <initializer_list>
#include <memory>
#include <random>

#include "Z/ZList.h"
#include "support/property_model.h"
#include "support/records_check.h"

namespace {

using namespace testsupport;

/// Does the same to a cache and to the model, at random, and compares them.
class Twins {
  public:
    explicit Twins(unsigned int seed) : random(seed) {}

    void step() {
        s = pick({"s", "t", "u", " v "});
        k = pick({"k1", "k2", "k3", "a b", "x#"});
        constexpr void (Twins::*operations[])() = {
            &Twins::setOrAdd,     &Twins::setOrAdd,  &Twins::setOrAdd,
            &Twins::setOrAdd,     &Twins::setOrAdd,  &Twins::setOrAdd,
            &Twins::removeKey,    &Twins::dropLines, &Twins::changeOrRemoveValue,
            &Twins::removeStanza, &Twins::dropLine,  &Twins::changeOrRemoveValue,
            &Twins::comment,      &Twins::read,      &Twins::placeStanza};
        (this->*operations[below(std::size(operations))])();
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
        cache.forEachKey(name,
                         [&](char const* key, unsigned int n) { names.emplace_back(key, n); });
        ASSERT_EQ(names, PropertyModel::keyNames(stanza));
        ASSERT_EQ(cache.keyCount(name), stanza.keys.size());
        std::size_t values = 0;
        bool hidden = false;
        for (PropertyModel::Key& key : stanza.keys) {
            char const* const keyName = key.name.c_str();
            ASSERT_EQ(cache.values(name, keyName, ZPCache::plainValues), key.plain);
            ASSERT_EQ(cache.values(name, keyName, ZPCache::obfuscatedValues), key.secret);
            for (auto i = static_cast<unsigned int>(key.seen().size()); i-- > 0;)
                ASSERT_EQ(cache.valueAt(name, keyName, i), key.seen()[i]);
            ASSERT_EQ(cache.countValues(name, keyName), key.seen().size());
            ASSERT_EQ(cache.isObfuscated(name, keyName), !key.secret.empty());
            values += key.seen().size();
            hidden |= !key.secret.empty();
        }
        ASSERT_EQ(cache.countValues(name), values);
        ASSERT_EQ(cache.isObfuscated(name), hidden);
    }

    unsigned int below(std::size_t bound) { return static_cast<unsigned int>(random() % bound); }
    bool oneIn(unsigned int bound) { return below(bound) == 0; }
    char const* pick(std::initializer_list<char const*> from) {
        return from.begin()[below(from.size())];
    }
    char const* someValue() { return pick({"", "1", "two", "a = b # c", " spaced "}); }
    char const* someComment() {
        return pick({"#k1=5", "# k 1 = x", "#k1", "#k2=", "##k3=", "#\tk2=", "# a b = 1", "#",
                     "#x#=1", "#=", "# k3 = #k1="});
    }
    std::string someLine() {
        if (oneIn(4)) return pick({"k1", "k2", "k4", "a b"}) + std::string(" = ") + someValue();
        return oneIn(3) ? "" : someComment();
    }

    void placeStanza() {
        cache.addLine(s, nullptr, 0);
        model.placeStanza(s);
    }
    /// Replaces the values of a key or adds one, with or without a line in the file.
    void setOrAdd() {
        bool const replaces = oneIn(2);
        bool const places = !oneIn(3);
        bool const secret = oneIn(3);
        char const* const value = someValue();
        if (replaces && places)
            cache.addLine(s, k, value, secret);
        else if (replaces && secret)
            cache.setObfuscated(s, k, value);
        else if (replaces)
            cache.set(s, k, value);
        else if (!places)
            cache.add(s, k, value, secret);
        else if (*value == '\0')
            cache.addLine(s, k, 0);
        else
            cache.addValue(s, k, value, secret);
        if (replaces) model.clearValues(s, k);
        model.addValue(s, k, value, secret);
        if (places) model.placeKey(s, k);
    }
    /// Of a number that may be beyond the last.
    void changeOrRemoveValue() {
        unsigned int const i = below(5);
        bool const removes = oneIn(2);
        PropertyModel::Key* const known = model.key(s, k);
        bool const isThere = known != nullptr && i < known->seen().size();
        ASSERT_EQ(removes ? cache.removeValue(s, k, i) : cache.changeValue(s, k, i, "changed"),
                  isThere);
        if (!isThere) return;
        Texts& values = known->seen();
        if (removes)
            values.erase(values.begin() + i);
        else
            values[i] = "changed";
        if (known->secret.empty()) model.dropItem(s, k);
    }
    void removeKey() {
        cache.remove(s, k);
        if (model.key(s, k) != nullptr) model.removeKey(s, k);
    }
    void removeStanza() {
        cache.remove(s);
        if (model.stanza(s) != nullptr) model.removeStanza(s);
    }
    void dropLine() {
        cache.delLine(s, k);
        if (model.key(s, k) != nullptr) model.dropKeyLine(s, k);
    }
    void dropLines() {
        cache.delLine(s);
        if (model.stanza(s) != nullptr) model.dropLines(s);
    }
    void comment() {
        char const* const text = someComment();
        if (oneIn(3)) {
            cache.addFileComment(text);
            model.addFileComment(text);
        } else if (oneIn(2) && model.stanza(s) != nullptr) {
            cache.addLineComment(s, text);
            model.addStanzaComment(s, text);
        } else if (model.key(s, k) != nullptr) {
            cache.addLineComment(s, k, text);
            model.addKeyComment(s, k, text);
        }
    }
    /// A few lines, with a stanza when there is none of that name.
    void read() {
        std::string text;
        for (unsigned int i = below(4); i > 0; --i)
            text += std::string(oneIn(2) ? "" : someComment()) + "\n";
        if (model.stanza(s) == nullptr) {
            text += "[" + std::string(s) + "]\n";
            for (unsigned int i = below(14); i > 0; --i)
                text += someLine() + "\n";
        }
        cache.read(text);
        model.read(text);
    }

    std::mt19937 random;
    CheckedCache cache;
    PropertyModel model;
    char const* s = "";  // the stanza of this step
    char const* k = "";  // and the key
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
