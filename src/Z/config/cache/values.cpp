/// The values of keys: the first plain one stands in the key's record, all others in lists.
#include "Z/config/cache/records.h"

namespace zfc::cache {
// ------------------------------------------------------------------------------------- reading

std::uint32_t Records::plainCount(Index key) const {
    Key const& record = keys[key];
    if (record.value == nullptr) return 0;
    return record.more == none ? 1 : 1 + lists[record.more].count;
}

std::uint32_t Records::obfuscatedCount(Index key) const {
    Index const list = keys[key].obfuscated;
    return list == none ? 0 : lists[list].count;
}

std::string_view Records::textOf(Index value) const {
    return {values[value].text, values[value].length};
}

Index Records::valueNumber(Index list, std::uint32_t i) const {
    return i == 0 ? lists[list].first : values[valueBefore(list, i)].next;
}

/// Goes on from where the last search ended, which is not behind the value in front of `i`: that
/// one is what taking value `i` out leaves in place.
Index Records::valueBefore(Index list, std::uint32_t i) const {
    if (recentValue.list != list || recentValue.number >= i)
        recentValue = {list, lists[list].first, 0};
    for (; recentValue.number + 1 < i; ++recentValue.number)
        recentValue.value = values[recentValue.value].next;
    return recentValue.value;
}

std::string_view Records::valueAt(Index key, Obfuscated kind, std::uint32_t i) const {
    Key const& record = keys[key];
    if (kind == Obfuscated::yes)
        return i < obfuscatedCount(key) ? textOf(valueNumber(record.obfuscated, i))
                                        : std::string_view();
    if (i >= plainCount(key)) return {};
    if (i == 0) return {record.value, record.valueLength};
    return textOf(valueNumber(record.more, i - 1));
}

std::string_view Records::lastValue(Index key, Obfuscated kind) const {
    Key const& record = keys[key];
    Index const list = kind == Obfuscated::yes ? record.obfuscated : record.more;
    if (list != none) return textOf(lists[list].last);
    if (kind == Obfuscated::yes || record.value == nullptr) return {};
    return {record.value, record.valueLength};
}

// --------------------------------------------------------------------------------------- lists

Index Records::newValue(std::string_view text) {
    Index const i = values.allocate();
    values[i] = {text.data(), static_cast<std::uint32_t>(text.size()), none};
    return i;
}

Index Records::newList(Index key) {
    Index const i = lists.allocate();
    lists[i] = {none, none, 0, key, none, none};
    return i;
}

void Records::append(Index list, Index value) {
    ValueList& record = lists[list];
    (record.first == none ? record.first : values[record.last].next) = value;
    record.last = value;
    ++record.count;
    texts.startUse(values[value].length);
}

void Records::takeOut(Index list, std::uint32_t i) {
    ValueList& record = lists[list];
    Index const before = i == 0 ? none : valueBefore(list, i);
    if (before == none && recentValue.list == list) recentValue = {};
    Index const value = before == none ? record.first : values[before].next;
    (before == none ? record.first : values[before].next) = values[value].next;
    if (record.last == value) record.last = before;
    --record.count;
    texts.endUse(values[value].length);
    values.release(value);
}

void Records::dropList(Index list) {
    while (lists[list].count > 0)
        takeOut(list, 0);
    lists.release(list);
}

void Records::replaceText(Index list, std::uint32_t i, std::string_view text) {
    Value& value = values[valueNumber(list, i)];
    texts.endUse(value.length);
    value.text = text.data();
    value.length = static_cast<std::uint32_t>(text.size());
    texts.startUse(value.length);
}

// -------------------------------------------------------------------------------- plain values

void Records::setFirstPlain(Index key, std::string_view text) {
    Key& record = keys[key];
    if (record.value != nullptr) texts.endUse(record.valueLength);
    record.value = text.data();
    record.valueLength = static_cast<std::uint32_t>(text.size());
    if (record.value != nullptr) texts.startUse(record.valueLength);
}

void Records::addPlain(Index key, std::string_view text) {
    Key& record = keys[key];
    if (record.value == nullptr) {
        setFirstPlain(key, text);
        return;
    }
    Index const value = newValue(text);
    if (record.more == none) record.more = newList(key);
    append(record.more, value);
}

void Records::removeFurther(Index key, std::uint32_t i) {
    Key& record = keys[key];
    takeOut(record.more, i);
    if (lists[record.more].count > 0) return;
    lists.release(record.more);
    record.more = none;
}

/// Takes the first plain value out; the second one becomes the first.
void Records::shiftPlain(Index key) {
    Key const& record = keys[key];
    if (record.more == none) {
        setFirstPlain(key, {});
        return;
    }
    setFirstPlain(key, textOf(lists[record.more].first));
    removeFurther(key, 0);
}

void Records::clearPlain(Index key) {
    Key& record = keys[key];
    setFirstPlain(key, {});
    if (record.more != none) dropList(record.more);
    record.more = none;
}

// --------------------------------------------------------------------------- obfuscated values

void Records::addObfuscated(Index key, std::string_view text) {
    Key& record = keys[key];
    Index const value = newValue(text);
    if (record.obfuscated == none) {
        record.obfuscated = newList(key);
        linkLast(lists, obfuscatedLists, record.obfuscated);
        ++obfuscatedKeyCount;
        ++stanzas[record.stanza].obfuscatedKeys;
    }
    append(record.obfuscated, value);
}

void Records::clearObfuscated(Index key) {
    Key& record = keys[key];
    if (record.obfuscated == none) return;
    unlink(lists, obfuscatedLists, record.obfuscated);
    --obfuscatedKeyCount;
    --stanzas[record.stanza].obfuscatedKeys;
    dropList(record.obfuscated);
    record.obfuscated = none;
}

// --------------------------------------------------------------------------------- either kind

void Records::adoptValue(Index key, std::string_view text, Obfuscated kind) {
    if (kind == Obfuscated::yes)
        addObfuscated(key, text);
    else
        addPlain(key, text);
}

void Records::changeValue(Index key, Obfuscated kind, std::uint32_t i, std::string_view text) {
    std::string_view const copy = texts.copy(text);
    if (kind == Obfuscated::yes)
        replaceText(keys[key].obfuscated, i, copy);
    else if (i == 0)
        setFirstPlain(key, copy);
    else
        replaceText(keys[key].more, i - 1, copy);
}

void Records::removeValue(Index key, Obfuscated kind, std::uint32_t i) {
    if (kind == Obfuscated::no) {
        if (i == 0)
            shiftPlain(key);
        else
            removeFurther(key, i - 1);
        return;
    }
    if (obfuscatedCount(key) == 1)
        clearObfuscated(key);
    else
        takeOut(keys[key].obfuscated, i);
}

void Records::clearValues(Index key) {
    clearPlain(key);
    clearObfuscated(key);
}

}  // namespace zfc::cache
