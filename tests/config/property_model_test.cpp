// link: static
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZList.h"
#include "Z/ZSCFData.h"
#include "support/property_model.h"
#include "support/records_check.h"
#include "support/streams.h"

namespace {

using testsupport::fileOf;
using testsupport::PropertyModel;
using testsupport::Texts;
using testsupport::writtenBy;
using zfc::cache::RecordsCheck;

struct Cache : ZSCFData {
    Cache() { setAttributes(keepComments, nullptr); }
    [[nodiscard]] zfc::cache::Records const& inner() const { return *records; }
};

/// Does the same to a cache and to the model, at random, and compares them.
class Twins {
  public:
    explicit Twins(unsigned int seed) : random(seed) {}

    void step() {
        s = pick({"s", "t", "u", " v "});
        k = pick({"k1", "k2", "k3", "a b", "x#"});
        constexpr void (Twins::*operations[])() = {
            &Twins::setLine,     &Twins::setLine,     &Twins::setLine,   &Twins::addLine,
            &Twins::addValue,    &Twins::addValue,    &Twins::add,       &Twins::set,
            &Twins::changeValue, &Twins::removeValue, &Twins::removeKey, &Twins::removeStanza,
            &Twins::dropLine,    &Twins::dropLines,   &Twins::comment,   &Twins::read,
            &Twins::read};
        (this->*operations[below(std::size(operations))])();
    }

    void compare() {
        RecordsCheck const check(cache.inner());
        ASSERT_EQ(written(cache), model.written());
        ASSERT_EQ(collected([&](auto visit) { cache.forEachStanza(visit); }), model.stanzaNames());
        for (PropertyModel::Stanza const& stanza : model.stanzas)
            compareStanza(stanza);
        ZArrayList items(0, 1);
        cache.getObfuscatedItems(items);
        ASSERT_EQ(items.size(), model.items.size());
        for (unsigned int i = 0; i < items.size(); ++i) {
            auto const& [stanza, key] = model.items[i];
            ASSERT_TRUE(*items.get(i) == ZObfuscatedItem(stanza.c_str(), key.c_str()));
        }
    }

    /// A copy is whole without the original, and an emptied cache starts anew.
    void copyAndStartAnew() {
        std::unique_ptr<ZObject> const copy(cache.clone());
        cache.clear();
        RecordsCheck const check(cache.inner());
        std::string const text = written(static_cast<ZSCFData&>(*copy));
        EXPECT_EQ(text, model.written());
        model = PropertyModel();
        model.read(text);
        cache.be_read("f", fileOf(text).get());
    }

  private:
    static std::string written(ZSCFData& file) {
        return writtenBy([&](FILE* out) { file.be_write("f", out); });
    }
    void compareStanza(PropertyModel::Stanza const& stanza) {
        char const* const name = stanza.name.c_str();
        ASSERT_EQ(collected([&](auto visit) { cache.forEachKey(name, visit); }),
                  model.keyNames(stanza.name));
        unsigned int values = 0;
        for (PropertyModel::Key const& key : stanza.keys) {
            ASSERT_EQ(valuesOf(name, key, ZPCache::plainValues), key.plain);
            ASSERT_EQ(valuesOf(name, key, ZPCache::obfuscatedValues), key.secret);
            Texts const& seen = key.plain.empty() ? key.secret : key.plain;
            for (auto i = static_cast<unsigned int>(seen.size()); i-- > 0;)
                ASSERT_EQ(cache.valueAt(name, key.name.c_str(), i), seen[i]);
            values += cache.countValues(name, key.name.c_str());
        }
        ASSERT_EQ(values, cache.countValues(name));
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
    std::string pick(Texts const& from) { return from[below(from.size())]; }
    std::string someValue() { return pick({"", "1", "two", "a = b # c", " spaced "}); }
    std::string someComment() {
        return pick({"#k1=5", "# k 1 = x", "#k1", "#k2=", "##k3=", "#\tk2=", "# a b = 1", "#",
                     "#x#=1", "#=", "# k3 = #k1="});
    }
    bool oneIn(unsigned int bound) { return below(bound) == 0; }

    void setLine() {
        std::string const value = someValue();
        bool const secret = oneIn(4);
        cache.addLine(s.c_str(), k.c_str(), value.c_str(), secret ? 1 : 0);
        model.clearValues(s, k);
        model.addValue(s, k, value, secret);
        model.placeKey(s, k);
    }
    void addLine() {
        bool const whole = oneIn(2);
        cache.addLine(s.c_str(), whole ? nullptr : k.c_str(), 0);
        model.makeStanza(s);
        model.placeStanza(s);
        if (whole) return;
        model.makeKey(s, k);
        model.placeKey(s, k);
    }
    void addValue() {
        std::string const value = "v" + someValue();
        bool const secret = oneIn(4);
        cache.addValue(s.c_str(), k.c_str(), value.c_str(), secret ? 1 : 0);
        model.addValue(s, k, value, secret);
        model.placeKey(s, k);
    }
    void add() {
        std::string const value = someValue();
        bool const secret = oneIn(2);
        cache.add(s.c_str(), k.c_str(), value.c_str(), secret ? 1 : 0);
        model.addValue(s, k, value, secret);
    }
    void set() {
        std::string const value = someValue();
        bool const secret = oneIn(2);
        if (secret)
            cache.setObfuscated(s.c_str(), k.c_str(), value.c_str());
        else
            cache.set(s.c_str(), k.c_str(), value.c_str());
        model.clearValues(s, k);
        model.addValue(s, k, value, secret);
    }
    void changeValue() {
        unsigned int const i = below(5);
        PropertyModel::Key* const known = model.key(s, k);
        bool const isThere = known != nullptr && i < known->seen().size();
        ASSERT_EQ(cache.changeValue(s.c_str(), k.c_str(), i, "changed"), isThere);
        if (isThere) known->seen()[i] = "changed";
    }
    void removeValue() {
        unsigned int const i = below(5);
        PropertyModel::Key* const known = model.key(s, k);
        bool const isThere = known != nullptr && i < known->seen().size();
        ASSERT_EQ(cache.removeValue(s.c_str(), k.c_str(), i), isThere);
        if (!isThere) return;
        known->seen().erase(known->seen().begin() + i);
        if (known->secret.empty()) model.dropItem(s, k);
    }
    void removeKey() {
        cache.remove(s.c_str(), k.c_str());
        model.removeKey(s, k);
    }
    void removeStanza() {
        cache.remove(s.c_str());
        model.removeStanza(s);
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
        cache.be_read("f", fileOf(text).get());
        model.read(text);
    }
    std::string someLine() {
        if (oneIn(4)) return pick({"k1", "k2", "k4", "a b"}) + " = " + someValue();
        return oneIn(3) ? "" : someComment();
    }

    std::mt19937 random;
    Cache cache;
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
