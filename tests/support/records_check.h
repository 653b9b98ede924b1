/// The stanza cache with its invariants checked: the one place of the tests that knows its records.
/// For programs that link the static library.
#ifndef ZFC_TESTS_SUPPORT_RECORDS_CHECK_H
#define ZFC_TESTS_SUPPORT_RECORDS_CHECK_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "Z/ZSCFData.h"
#include "Z/config/cache/records.h"
#include "support/streams.h"

namespace zfc::cache {

/// Fails the test for what in `records` does not fit together and no answer of the cache tells:
/// texts that are held and not reached, and what is noted for placing lines.
struct RecordsCheck {
    Records const& records;
    std::size_t bytes = 0;  // of the texts in use, their NULs counted

    explicit RecordsCheck(Records const& checked) : records(checked) {
        records.eachLine([this](Line const& line) {
            if (line.kind == ZPropLine::comment) countText({line.text, line.length});
        });
        records.eachStanza([this](Index stanza) {
            countText(records.stanzaName(stanza));
            records.eachKey(stanza, [this](Index key) { countTextsOf(key); });
            if (records.stanzas[stanza].header != none) checkLinesOf(stanza);
        });
        EXPECT_EQ(bytes, records.texts.bytesUsed());
    }

    void countText(std::string_view text) {
        EXPECT_EQ(text.data()[text.size()], '\0');
        bytes += text.size() + 1;
    }

    void countTextsOf(Index key) {
        countText(records.keyName(key));
        records.eachPlain(key, [this](std::string_view value) { countText(value); });
        records.eachObfuscated(key, [this](std::string_view value) { countText(value); });
    }

    /// What is noted for placing keys is what a fresh look at the lines gives.
    void checkLinesOf(Index stanza) {
        std::uint32_t comments = 0;
        std::uint32_t segment = 0;
        Records::Templates fresh;
        for (Index at = records.stanzas[stanza].header; at != records.endOfLines(stanza);
             at = records.lines[at].next) {
            Line const& line = records.lines[at];
            EXPECT_EQ(line.segment, segment);
            if (line.kind == ZPropLine::blank) fresh.blanks.push_back(at), ++segment;
            if (line.kind != ZPropLine::comment) continue;
            ++comments;
            Records::noteTemplate(fresh, {line.text, line.length}, line.segment);
        }
        EXPECT_EQ(segment, records.stanzas[stanza].blankLines);
        EXPECT_EQ(comments, records.stanzas[stanza].comments);
        auto const noted = records.templates.find(stanza);
        if (noted == records.templates.end()) return;
        EXPECT_TRUE(fresh.blanks == noted->second.blanks);
        EXPECT_TRUE(fresh.segments == noted->second.segments);
    }
};

}  // namespace zfc::cache

namespace testsupport {

/// A cache that keeps comments, read from a text.
struct CheckedCache : ZSCFData {
    explicit CheckedCache(std::string const& text = "") {
        setAttributes(keepComments, nullptr);
        read(text);
    }
    void read(std::string const& text) { be_read("f", fileOf(text).get()); }
    std::string written() {
        return writtenBy([this](FILE* out) { be_write("f", out); });
    }
    void check() const { zfc::cache::RecordsCheck const checked(*records); }
};

}  // namespace testsupport

#endif
