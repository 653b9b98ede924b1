/// The invariants of the property cache's records. For programs that link the static library.
#ifndef ZFC_TESTS_SUPPORT_RECORDS_CHECK_H
#define ZFC_TESTS_SUPPORT_RECORDS_CHECK_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string_view>

#include "Z/zpcache_records.h"

namespace zpcache {

/// Fails the test for everything in `records` that does not fit together.
struct RecordsCheck {
    Records const& records;
    std::size_t bytes = 0;             // of the texts in use, their NULs counted
    std::uint32_t keyCount = 0;        // found by walking
    std::uint32_t stanzaCount = 0;     // found by walking
    std::uint32_t obfuscatedKeys = 0;  // found by walking

    explicit RecordsCheck(Records const& checked) : records(checked) { checkAll(); }

    /// Memory of all texts, garbage counted.
    [[nodiscard]] std::size_t bytesHeld() const { return records.texts.bytesHeld(); }

    void checkAll() {
        checkFile();
        for (Index i = records.placedStanzas.first; i != none; i = records.stanzas[i].next)
            checkStanza(i, true);
        for (Index i = records.unplacedStanzas.first; i != none; i = records.stanzas[i].next)
            checkStanza(i, false);
        checkObfuscatedLists();
        for (auto const& [stanza, noted] : records.templates)
            checkTemplates(stanza, noted);
        EXPECT_EQ(stanzaCount, records.stanzaTable.size());
        EXPECT_EQ(keyCount, records.keyTable.size());
        EXPECT_EQ(bytes, records.texts.bytesUsed());
    }

    /// One walk over the file: the chain itself, headers, owners and segments.
    void checkFile() {
        Index before = none;
        Index stanza = none;
        std::uint32_t segment = 0;
        for (Index i = records.file.first; i != none; before = i, i = records.lines[i].next) {
            Line const& line = records.lines[i];
            EXPECT_EQ(line.prev, before);
            if (line.kind == ZPropLine::header) {
                Index const expected =
                    stanza == none ? records.placedStanzas.first : records.stanzas[stanza].next;
                EXPECT_EQ(line.owner, expected);
                EXPECT_EQ(records.stanzas[line.owner].header, i);
                stanza = line.owner;
                segment = 0;
            }
            if (stanza != none) {
                EXPECT_EQ(line.segment, segment);
            }
            if (line.kind == ZPropLine::blank) ++segment;
            if (line.kind == ZPropLine::comment) checkText({line.text, line.length});
            if (line.kind == ZPropLine::key) checkKeyLine(i, stanza);
        }
        EXPECT_EQ(records.file.last, before);
        EXPECT_EQ(records.placedStanzas.last, stanza);
    }

    void checkStanza(Index i, bool isPlaced) {
        Stanza const& stanza = records.stanzas[i];
        ++stanzaCount;
        checkText(records.stanzaName(i));
        EXPECT_EQ(records.findStanza(records.stanzaName(i)), i);
        EXPECT_EQ(stanza.header != none, isPlaced);
        std::uint32_t keysBefore = keyCount;
        std::uint32_t obfuscatedBefore = obfuscatedKeys;
        records.eachKey(i, [this](Index key) { checkKey(key); });
        EXPECT_EQ(keyCount - keysBefore, stanza.keyCount);
        EXPECT_EQ(obfuscatedKeys - obfuscatedBefore, stanza.obfuscatedKeys);
        for (Index line = stanza.unplaced.first; line != none; line = records.lines[line].next) {
            EXPECT_EQ(records.lines[line].segment, unplaced);
            checkKeyLine(line, i);
        }
        if (isPlaced) checkPlacedStanza(i);
    }

    void checkPlacedStanza(Index i) {
        Stanza const& stanza = records.stanzas[i];
        std::uint32_t blanks = 0;
        std::uint32_t comments = 0;
        bool seenTail = stanza.tail == stanza.header;
        bool seenCommentEnd = stanza.commentEnd == stanza.header;
        bool inComments = true;
        Index const end = records.endOfLines(i);
        for (Index at = records.lines[stanza.header].next; at != end; at = records.lines[at].next) {
            std::uint16_t const kind = records.lines[at].kind;
            inComments = inComments && kind == ZPropLine::comment;
            if (at == stanza.commentEnd) {
                EXPECT_TRUE(inComments) << "the noted comment is not below the header";
                seenCommentEnd = true;
            }
            if (seenTail) {
                EXPECT_NE(kind, ZPropLine::key) << "a key behind the noted line";
            }
            seenTail = seenTail || at == stanza.tail;
            blanks += kind == ZPropLine::blank;
            comments += kind == ZPropLine::comment;
        }
        EXPECT_TRUE(seenTail && seenCommentEnd);
        EXPECT_EQ(blanks, stanza.blankLines);
        EXPECT_EQ(comments, stanza.comments);
    }

    /// What is noted for placing keys is what a fresh look at the lines gives.
    void checkTemplates(Index stanza, Records::Templates const& noted) {
        ASSERT_NE(records.stanzas[stanza].header, none);
        Records::Templates fresh;
        Index const end = records.endOfLines(stanza);
        for (Index i = records.stanzas[stanza].header; i != end; i = records.lines[i].next) {
            Line const& line = records.lines[i];
            if (line.kind == ZPropLine::blank) fresh.blanks.push_back(i);
            if (line.kind == ZPropLine::comment)
                Records::noteTemplate(fresh, {line.text, line.length}, line.segment);
        }
        EXPECT_TRUE(fresh.blanks == noted.blanks);
        EXPECT_TRUE(fresh.segments == noted.segments);
    }

    void checkKeyLine(Index line, Index stanza) {
        Index const key = records.lines[line].owner;
        EXPECT_EQ(records.keys[key].line, line);
        EXPECT_EQ(records.keys[key].stanza, stanza);
    }

    void checkKey(Index i) {
        Key const& key = records.keys[i];
        ++keyCount;
        checkText(records.keyName(i));
        EXPECT_EQ(records.findKey(records.stanzaName(key.stanza), records.keyName(i)), i);
        std::uint32_t plain = 0;
        records.eachPlain(i, [&](std::string_view value) { checkText(value), ++plain; });
        EXPECT_EQ(plain, records.plainCount(i));
        if (key.value == nullptr) {
            EXPECT_EQ(key.more, none);
        }
        std::uint32_t secret = 0;
        records.eachObfuscated(i, [&](std::string_view value) { checkText(value), ++secret; });
        EXPECT_EQ(secret, records.obfuscatedCount(i));
        obfuscatedKeys += secret > 0;
        checkEndOf(key.more);
        checkEndOf(key.obfuscated);
    }

    void checkEndOf(Index list) {
        if (list == none) return;
        Index const last = records.lists[list].last;
        EXPECT_EQ(records.values[last].next, none);
        EXPECT_EQ(records.valueNumber(list, records.lists[list].count - 1), last);
    }

    void checkObfuscatedLists() {
        std::uint32_t count = 0;
        for (Index i = records.obfuscatedLists.first; i != none; i = records.lists[i].next) {
            EXPECT_EQ(records.keys[records.lists[i].key].obfuscated, i);
            EXPECT_GT(records.lists[i].count, 0U);
            ++count;
        }
        EXPECT_EQ(count, obfuscatedKeys);
        EXPECT_EQ(count, records.obfuscatedKeys());
    }

    void checkText(std::string_view text) {
        EXPECT_EQ(text.data()[text.size()], '\0');
        EXPECT_EQ(text.find('\0'), std::string_view::npos);
        bytes += text.size() + 1;
    }
};

}  // namespace zpcache

#endif
