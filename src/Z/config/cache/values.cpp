#include "Z/config/cache/values.h"

#include "Z/utility/undo.h"

namespace zfc::cache {

Values::Values(Values const& other, Texts& memory)
    : texts(memory),
      values(other.values),
      lists(other.lists),
      obfuscatedLists(other.obfuscatedLists),
      obfuscatedKeyCount(other.obfuscatedKeyCount),
      obfuscatedOfStanza(other.obfuscatedOfStanza) {}

// ------------------------------------------------------------------------------------- reading

std::uint32_t Values::count(Key const& key, Obfuscated kind) const {
    if (kind == Obfuscated::yes) return countOf(key.obfuscated);
    return key.value == nullptr ? 0 : 1 + countOf(key.more);
}

Index Values::valueNumber(Index list, std::uint32_t i) const {
    return i == 0 ? lists[list].first : values[valueBefore(list, i)].next;
}

/// Goes on from where the last search ended, which is not behind the value in front of `i`: that
/// one is what taking value `i` out leaves in place.
Index Values::valueBefore(Index list, std::uint32_t i) const {
    if (recentValue.list != list || recentValue.number >= i)
        recentValue = {list, lists[list].first, 0};
    for (; recentValue.number + 1 < i; ++recentValue.number)
        recentValue.value = values[recentValue.value].next;
    return recentValue.value;
}

std::string_view Values::at(Key const& key, Obfuscated kind, std::uint32_t i) const {
    if (i >= count(key, kind)) return {};
    if (kind == Obfuscated::yes) return values[valueNumber(key.obfuscated, i)].getText();
    if (i == 0) return {key.value, key.valueLength};
    return values[valueNumber(key.more, i - 1)].getText();
}

// --------------------------------------------------------------------------------------- lists

Index Values::newValue(std::string_view text) {
    Index const i = values.allocate();
    values[i] = {text.data(), static_cast<std::uint32_t>(text.size()), none};
    return i;
}

Index Values::newList(Index key) {
    Index const i = lists.allocate();
    lists[i] = {none, none, 0, key, none, none};
    return i;
}

void Values::append(Index list, Index value) {
    ValueList& record = lists[list];
    (record.first == none ? record.first : values[record.last].next) = value;
    record.last = value;
    ++record.count;
    texts.startUse(values[value].length);
}

void Values::takeOut(Index list, std::uint32_t i) {
    ValueList& record = lists[list];
    Index const before = i == 0 ? none : valueBefore(list, i);
    // The place found last was counted from the value that goes.
    if (before == none && recentValue.list == list) recentValue = {};
    Index const value = before == none ? record.first : values[before].next;
    (before == none ? record.first : values[before].next) = values[value].next;
    if (record.last == value) record.last = before;
    --record.count;
    // Before the release, which writes over the record.
    texts.endUse(values[value].length);
    values.release(value);
}

void Values::dropList(Index list) {
    while (lists[list].count > 0)
        takeOut(list, 0);
    lists.release(list);
}

void Values::replaceText(Index list, std::uint32_t i, std::string_view text) {
    Value& value = values[valueNumber(list, i)];
    texts.endUse(value.length);
    value.text = text.data();
    value.length = static_cast<std::uint32_t>(text.size());
    texts.startUse(value.length);
}

void Values::moveList(Texts& fresh, Index list) {
    if (list == none) return;
    for (Index i = lists[list].first; i != none; i = values[i].next)
        fresh.moveIn(values[i].text, values[i].length);
}

// -------------------------------------------------------------------------------- plain values

void Values::setFirstPlain(Key& key, std::string_view text) {
    if (key.value != nullptr) texts.endUse(key.valueLength);
    key.value = text.data();
    key.valueLength = static_cast<std::uint32_t>(text.size());
    if (key.value != nullptr) texts.startUse(key.valueLength);
}

void Values::addPlain(Key& key, Index number, std::string_view text) {
    if (key.value == nullptr) return setFirstPlain(key, text);
    Index const value = newValue(text);
    ZUndo releasing([&] { values.release(value); });
    if (key.more == none) key.more = newList(number);
    releasing.keep();
    append(key.more, value);
}

void Values::removeFurther(Key& key, std::uint32_t i) {
    takeOut(key.more, i);
    if (lists[key.more].count > 0) return;
    lists.release(key.more);
    key.more = none;
}

/// Takes the first plain value out; the second one becomes the first.
void Values::shiftPlain(Key& key) {
    if (key.more == none) return setFirstPlain(key, {});
    // Its text counts twice until the list drops it in the next line.
    setFirstPlain(key, values[lists[key.more].first].getText());
    removeFurther(key, 0);
}

void Values::clearPlain(Key& key) {
    setFirstPlain(key, {});
    if (key.more != none) dropList(key.more);
    key.more = none;
}

// --------------------------------------------------------------------------- obfuscated values

void Values::addObfuscated(Key& key, Index number, std::string_view text) {
    // Before anything else, because it may fail.
    if (obfuscatedOfStanza.size() <= key.stanza) obfuscatedOfStanza.resize(key.stanza + 1);
    Index const value = newValue(text);
    ZUndo releasing([&] { values.release(value); });
    if (key.obfuscated == none) {
        key.obfuscated = newList(number);
        linkLast(lists, obfuscatedLists, key.obfuscated);
        ++obfuscatedKeyCount;
        ++obfuscatedOfStanza[key.stanza];
    }
    releasing.keep();
    append(key.obfuscated, value);
}

void Values::clearObfuscated(Key& key) {
    if (key.obfuscated == none) return;
    // While its record still has its neighbours.
    unlink(lists, obfuscatedLists, key.obfuscated);
    --obfuscatedKeyCount;
    --obfuscatedOfStanza[key.stanza];
    dropList(key.obfuscated);
    key.obfuscated = none;
}

// --------------------------------------------------------------------------------- either kind

void Values::add(Key& key, Index number, std::string_view text, Obfuscated kind) {
    if (kind == Obfuscated::yes)
        addObfuscated(key, number, text);
    else
        addPlain(key, number, text);
}

void Values::change(Key& key, Obfuscated kind, std::uint32_t i, std::string_view text) {
    if (kind == Obfuscated::yes)
        replaceText(key.obfuscated, i, text);
    else if (i == 0)
        setFirstPlain(key, text);
    else
        replaceText(key.more, i - 1, text);
}

void Values::remove(Key& key, Obfuscated kind, std::uint32_t i) {
    if (kind == Obfuscated::no) {
        if (i == 0)
            shiftPlain(key);
        else
            removeFurther(key, i - 1);
        return;
    }
    // With an empty list the key would still count as obfuscated.
    if (countOf(key.obfuscated) == 1)
        clearObfuscated(key);
    else
        takeOut(key.obfuscated, i);
}

void Values::clear(Key& key) {
    clearPlain(key);
    clearObfuscated(key);
}

bool Values::overwrite(Key& key, std::string_view text) {
    bool const isOnly = key.value != nullptr && key.more == none && key.obfuscated == none;
    if (!isOnly || text.size() > key.valueLength) return false;
    texts.endUse(key.valueLength);
    texts.overwrite(key.value, text);
    key.valueLength = static_cast<std::uint32_t>(text.size());
    texts.startUse(key.valueLength);
    return true;
}

void Values::move(Texts& fresh, Key& key) {
    if (key.value != nullptr) fresh.moveIn(key.value, key.valueLength);
    moveList(fresh, key.more);
    moveList(fresh, key.obfuscated);
}

}  // namespace zfc::cache
