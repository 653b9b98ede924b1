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
        records.lines().each([this](Line const& line) {
            if (line.kind == ZPropLine::comment) countText({line.text, line.length});
        });
        records.lines().eachStanza([this](Index stanza) {
            checkStanza(stanza);
            if (records.lines().sections[stanza].header != none) checkLinesOf(stanza);
        });
        EXPECT_EQ(stanzaCount, records.names().stanzaCount());
        EXPECT_EQ(obfuscatedKeys, records.values().obfuscatedKeys());
        EXPECT_EQ(bytes, records.texts.bytesUsed());
    }

    /// Memory of all texts, garbage counted.
    [[nodiscard]] std::size_t bytesHeld() const { return records.texts.bytesHeld(); }

    void checkStanza(Index i) {
        std::uint32_t const keysBefore = keyCount;
        std::uint32_t const obfuscatedBefore = obfuscatedKeys;
        ++stanzaCount;
        countText(records.names().stanzaName(i));
        records.lines().eachKey(i, [this](Index key) { checkKey(records.names().key(key)); });
        EXPECT_EQ(keyCount - keysBefore, records.names().keyCount(i));
        EXPECT_EQ(obfuscatedKeys - obfuscatedBefore, records.values().obfuscatedKeys(i));
    }

    void checkKey(Key const& key) {
        std::uint32_t plain = 0;
        std::uint32_t secret = 0;
        Values const& values = records.values();
        ++keyCount;
        countText(key.getName());
        values.each(key, Obfuscated::no, [&](std::string_view text) { countText(text), ++plain; });
        values.each(key, Obfuscated::yes,
                    [&](std::string_view text) { countText(text), ++secret; });
        EXPECT_EQ(plain, values.count(key, Obfuscated::no));
        EXPECT_EQ(secret, values.count(key, Obfuscated::yes));
        obfuscatedKeys += secret > 0;
    }

    /// What is noted for placing keys is what a fresh look at the lines gives.
    void checkLinesOf(Index i) {
        Lines const& lines = records.lines();
        Section const& section = lines.sections[i];
        std::uint32_t comments = 0;
        std::uint32_t segment = 0;
        Lines::Templates fresh;
        Index const end = lines.endOf(i);
        for (Index at = section.header; at != end; at = lines.lines[at].next) {
            Line const& line = lines.lines[at];
            EXPECT_EQ(line.segment, segment);
            if (line.kind == ZPropLine::blank) fresh.blanks.push_back(at), ++segment;
            if (line.kind != ZPropLine::comment) continue;
            ++comments;
            Lines::noteTemplate(fresh, {line.text, line.length}, line.segment);
        }
        EXPECT_EQ(segment, section.blankLines);
        EXPECT_EQ(comments, section.comments);
        auto const noted = lines.templates.find(i);
        if (noted == lines.templates.end()) return;
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
