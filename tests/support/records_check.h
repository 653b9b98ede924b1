/// The invariants of the property cache's records. For programs that link the static library.
#ifndef ZFC_TESTS_SUPPORT_RECORDS_CHECK_H
#define ZFC_TESTS_SUPPORT_RECORDS_CHECK_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string_view>

#include "Z/config/cache/records.h"

namespace zfc::cache {

/// Fails the test for what in `records` does not fit together and no answer of the cache tells:
/// texts and keys that are held and not reached, counts, and what is noted for placing lines.
struct RecordsCheck {
    Records const& records;
    std::size_t bytes = 0;             // of the texts in use, their NULs counted
    std::uint32_t keyCount = 0;        // found by walking
    std::uint32_t stanzaCount = 0;     // found by walking
    std::uint32_t obfuscatedKeys = 0;  // found by walking

    explicit RecordsCheck(Records const& checked) : records(checked) {
        for (Index i = records.file.first; i != none; i = records.lines[i].next)
            if (Line const& line = records.lines[i]; line.kind == ZPropLine::comment)
                countText({line.text, line.length});
        for (Index i = records.placedStanzas.first; i != none; i = records.stanzas[i].next) {
            checkStanza(i);
            checkLinesOf(i);
        }
        for (Index i = records.unplacedStanzas.first; i != none; i = records.stanzas[i].next)
            checkStanza(i);
        EXPECT_EQ(stanzaCount, records.stanzaTable.size());
        EXPECT_EQ(obfuscatedKeys, records.obfuscatedKeys());
        EXPECT_EQ(bytes, records.texts.bytesUsed());
    }

    /// Memory of all texts, garbage counted.
    [[nodiscard]] std::size_t bytesHeld() const { return records.texts.bytesHeld(); }

    void checkStanza(Index i) {
        Stanza const& stanza = records.stanzas[i];
        std::uint32_t const keysBefore = keyCount;
        std::uint32_t const obfuscatedBefore = obfuscatedKeys;
        ++stanzaCount;
        countText(records.stanzaName(i));
        records.eachKey(i, [this](Index key) { checkKey(key); });
        EXPECT_EQ(keyCount - keysBefore, records.keyCount(i));
        EXPECT_EQ(obfuscatedKeys - obfuscatedBefore, stanza.obfuscatedKeys);
    }

    void checkKey(Index i) {
        std::uint32_t plain = 0;
        std::uint32_t secret = 0;
        ++keyCount;
        countText(records.keyName(i));
        records.eachPlain(i, [&](std::string_view value) { countText(value), ++plain; });
        records.eachObfuscated(i, [&](std::string_view value) { countText(value), ++secret; });
        EXPECT_EQ(plain, records.plainCount(i));
        EXPECT_EQ(secret, records.obfuscatedCount(i));
        obfuscatedKeys += secret > 0;
    }

    /// What is noted for placing keys is what a fresh look at the lines gives.
    void checkLinesOf(Index i) {
        Stanza const& stanza = records.stanzas[i];
        std::uint32_t comments = 0;
        std::uint32_t segment = 0;
        Records::Templates fresh;
        Index const end = records.endOfLines(i);
        for (Index at = stanza.header; at != end; at = records.lines[at].next) {
            Line const& line = records.lines[at];
            EXPECT_EQ(line.segment, segment);
            if (line.kind == ZPropLine::blank) fresh.blanks.push_back(at), ++segment;
            if (line.kind != ZPropLine::comment) continue;
            ++comments;
            Records::noteTemplate(fresh, {line.text, line.length}, line.segment);
        }
        EXPECT_EQ(segment, stanza.blankLines);
        EXPECT_EQ(comments, stanza.comments);
        auto const noted = records.templates.find(i);
        if (noted == records.templates.end()) return;
        EXPECT_TRUE(fresh.blanks == noted->second.blanks);
        EXPECT_TRUE(fresh.segments == noted->second.segments);
    }

    void countText(std::string_view text) {
        EXPECT_EQ(text.data()[text.size()], '\0');
        bytes += text.size() + 1;
    }
};

}  // namespace zfc::cache

#endif
