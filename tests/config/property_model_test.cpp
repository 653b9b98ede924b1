// link: static
// Every sequence of operations does to a cache what it does to the model.
#include <memory>
#include <random>

#include "Z/ZList.h"
#include "support/property_model.h"
#include "support/records_check.h"

namespace {

using testsupport::CheckedCache;
using testsupport::PropertyModel;
using testsupport::Texts;

/// Does the same to a cache and to the model, at random, and compares them.
class Twins {
  public:
    explicit Twins(unsigned int seed) : random(seed) {}

    void step() {
        s = pick({"s", "t", "u", " v "});
        k = pick({"k1", "k2", "k3", "a b", "x#"});
        constexpr void (Twins::*operations[])() = {
            &Twins::setOrAdd,     &Twins::setOrAdd,  &Twins::setOrAdd,    &Twins::setOrAdd,
            &Twins::setOrAdd,     &Twins::setOrAdd,  &Twins::changeValue, &Twins::removeValue,
            &Twins::removeKey,    &Twins::dropLines, &Twins::comment,     &Twins::read,
            &Twins::removeStanza, &Twins::dropLine,  &Twins::read};
        (this->*operations[below(std::size(operations))])();
    }

    void compare() {
        cache.check();
        ASSERT_EQ(cache.written(), model.written());
        Texts stanzas = collected([&](auto visit) { cache.forEachStanza(visit); });
        ASSERT_EQ(stanzas.size(), model.stanzas.size());
        ASSERT_EQ(cache.count(), model.stanzas.size());
        for (std::size_t i = 0; i < stanzas.size(); ++i) {
            ASSERT_EQ(stanzas[i], model.stanzas[i].name);
            compareStanza(model.stanzas[i]);
        }
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
        std::string const text = testsupport::writtenBy(
            [&](FILE* out) { static_cast<ZSCFData&>(*copy).be_write("f", out); });
        EXPECT_EQ(text, model.written());
        model = PropertyModel();
        model.read(text);
        cache.read(text);
    }

  private:
    void compareStanza(PropertyModel::Stanza& stanza) {
        char const* const name = stanza.name.c_str();
        ASSERT_EQ(collected([&](auto visit) { cache.forEachKey(name, visit); }),
                  PropertyModel::keyNames(stanza));
        ASSERT_EQ(cache.keyCount(name), stanza.keys.size());
        unsigned int values = 0;
        bool hidden = false;
        for (PropertyModel::Key& key : stanza.keys) {
            ASSERT_EQ(valuesOf(name, key, ZPCache::plainValues), key.plain);
            ASSERT_EQ(valuesOf(name, key, ZPCache::obfuscatedValues), key.secret);
            for (auto i = static_cast<unsigned int>(key.seen().size()); i-- > 0;)
                ASSERT_EQ(cache.valueAt(name, key.name.c_str(), i), key.seen()[i]);
            ASSERT_EQ(cache.countValues(name, key.name.c_str()), key.seen().size());
            ASSERT_EQ(cache.isObfuscated(name, key.name.c_str()), !key.secret.empty());
            values += static_cast<unsigned int>(key.seen().size());
            hidden |= !key.secret.empty();
        }
        ASSERT_EQ(values, cache.countValues(name));
        ASSERT_EQ(hidden, cache.isObfuscated(name));
    }
    template <class Walk>
    static Texts collected(Walk walk) {
        Texts all;
        walk([&](char const* text, unsigned int length) { all.emplace_back(text, length); });
        return all;
    }
    Texts valuesOf(char const* stanza, PropertyModel::Key const& key,
                   ZPCache::get_type_e type) const {
        return collected(
            [&](auto visit) { cache.forEachValue(stanza, key.name.c_str(), type, visit); });
    }

    unsigned int below(std::size_t bound) { return static_cast<unsigned int>(random() % bound); }
    bool oneIn(unsigned int bound) { return below(bound) == 0; }
    std::string pick(Texts const& from) { return from[below(from.size())]; }
    std::string someValue() { return pick({"", "1", "two", "a = b # c", " spaced "}); }
    std::string someComment() {
        return pick({"#k1=5", "# k 1 = x", "#k1", "#k2=", "##k3=", "#\tk2=", "# a b = 1", "#",
                     "#x#=1", "#=", "# k3 = #k1="});
    }
    std::string someLine() {
        if (oneIn(4)) return pick({"k1", "k2", "k4", "a b"}) + " = " + someValue();
        return oneIn(3) ? "" : someComment();
    }

    /// Replaces the values of a key or adds one, with or without a line in the file.
    void setOrAdd() {
        bool const replaces = oneIn(2);
        bool const places = !oneIn(3);
        bool const secret = oneIn(3);
        std::string const value = someValue();
        if (places && !replaces && value.empty() && oneIn(2)) {
            cache.addLine(s.c_str(), nullptr, 0);
            static_cast<void>(model.placeStanza(s));
            return;
        }
        if (replaces && places)
            cache.addLine(s.c_str(), k.c_str(), value.c_str(), secret ? 1 : 0);
        else if (replaces && secret)
            cache.setObfuscated(s.c_str(), k.c_str(), value.c_str());
        else if (replaces)
            cache.set(s.c_str(), k.c_str(), value.c_str());
        else if (!places)
            cache.add(s.c_str(), k.c_str(), value.c_str(), secret ? 1 : 0);
        else if (value.empty())
            cache.addLine(s.c_str(), k.c_str(), 0);
        else
            cache.addValue(s.c_str(), k.c_str(), value.c_str(), secret ? 1 : 0);
        if (replaces) model.clearValues(s, k);
        model.addValue(s, k, value, secret);
        if (places) model.placeKey(s, k);
    }
    /// The values that a change of number `i` concerns; null when there is none of that number.
    Texts* valuesWith(unsigned int i) {
        PropertyModel::Key* const known = model.key(s, k);
        return known != nullptr && i < known->seen().size() ? &known->seen() : nullptr;
    }
    void changeValue() {
        unsigned int const i = below(5);
        Texts* const values = valuesWith(i);
        ASSERT_EQ(cache.changeValue(s.c_str(), k.c_str(), i, "changed"), values != nullptr);
        if (values != nullptr) (*values)[i] = "changed";
    }
    void removeValue() {
        unsigned int const i = below(5);
        Texts* const values = valuesWith(i);
        ASSERT_EQ(cache.removeValue(s.c_str(), k.c_str(), i), values != nullptr);
        if (values == nullptr) return;
        values->erase(values->begin() + i);
        if (model.key(s, k)->secret.empty()) model.dropItem(s, k);
    }
    void removeKey() {
        cache.remove(s.c_str(), k.c_str());
        if (model.key(s, k) != nullptr) model.removeKey(s, k);
    }
    void removeStanza() {
        cache.remove(s.c_str());
        if (model.stanza(s) != nullptr) model.removeStanza(s);
    }
    void dropLine() {
        cache.delLine(s.c_str(), k.c_str());
        if (model.key(s, k) != nullptr) model.dropKeyLine(s, k);
    }
    void dropLines() {
        cache.delLine(s.c_str());
        if (model.stanza(s) != nullptr) model.dropLines(s);
    }
    void comment() {
        std::string const text = someComment();
        if (oneIn(3)) {
            cache.addFileComment(text.c_str());
            model.addFileComment(text);
        } else if (oneIn(2) && model.stanza(s) != nullptr) {
            cache.addLineComment(s.c_str(), text.c_str());
            model.addStanzaComment(s, text);
        } else if (model.key(s, k) != nullptr) {
            cache.addLineComment(s.c_str(), k.c_str(), text.c_str());
            model.addKeyComment(s, k, text);
        }
    }
    /// A few lines, with a stanza when there is none of that name.
    void read() {
        std::string text;
        for (unsigned int i = below(4); i > 0; --i)
            text += (oneIn(2) ? "" : someComment()) + "\n";
        if (model.stanza(s) == nullptr) {
            text += "[" + s + "]\n";
            for (unsigned int i = below(14); i > 0; --i)
                text += someLine() + "\n";
        }
        cache.read(text);
        model.read(text);
    }

    std::mt19937 random;
    CheckedCache cache;
    PropertyModel model;
    std::string s;  // the stanza of this step
    std::string k;  // and the key
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
