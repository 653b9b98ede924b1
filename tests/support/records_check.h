/// The stanza cache, alone and with its invariants checked: the one place of the tests that knows
/// its records. For programs that link the static library.
#ifndef ZFC_TESTS_SUPPORT_RECORDS_CHECK_H
#define ZFC_TESTS_SUPPORT_RECORDS_CHECK_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

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
        records.lines().each([this](Line const& line) {
            if (line.kind == ZPropLine::comment) countText({line.text, line.length});
        });
        records.lines().eachStanza([this](Index stanza) {
            countText(records.names().stanzaName(stanza));
            records.lines().eachKey(stanza, [this](Index key) { countKey(key); });
            if (records.lines().sections[stanza].header != none) checkLinesOf(stanza);
        });
        EXPECT_EQ(bytes, records.texts.bytesUsed());
    }

    void countText(std::string_view text) {
        EXPECT_EQ(text.data()[text.size()], '\0');
        bytes += text.size() + 1;
    }

    void countKey(Index index) {
        Key const& key = records.names().key(index);
        countText(key.getName());
        for (auto const kind : {Obfuscated::no, Obfuscated::yes})
            records.values().each(key, kind, [this](std::string_view value) { countText(value); });
    }

    /// What is noted for placing keys is what a fresh look at the lines gives.
    void checkLinesOf(Index stanza) {
        Lines const& lines = records.lines();
        Section const& section = lines.sections[stanza];
        std::uint32_t comments = 0;
        std::uint32_t segment = 0;
        Lines::Templates fresh;
        for (Index at = section.header; at != lines.endOf(stanza); at = lines.lines[at].next) {
            Line const& line = lines.lines[at];
            EXPECT_EQ(line.segment, segment);
            if (line.kind == ZPropLine::blank) fresh.blanks.push_back(at), ++segment;
            if (line.kind != ZPropLine::comment) continue;
            ++comments;
            Lines::noteTemplate(fresh, {line.text, line.length}, line.segment);
        }
        EXPECT_EQ(segment, section.blankLines);
        EXPECT_EQ(comments, section.comments);
        auto const noted = lines.templates.find(stanza);
        if (noted == lines.templates.end()) return;
        EXPECT_TRUE(fresh.blanks == noted->second.blanks);
        EXPECT_TRUE(fresh.segments == noted->second.segments);
    }
};

}  // namespace zfc::cache

namespace testsupport {

/// A stanza file in memory, read from a text.
struct CheckedCache : ZSCFData {
    explicit CheckedCache(std::string const& text = "", bool comments = true) {
        if (comments) setAttributes(keepComments, nullptr);
        read(text);
    }
    void read(std::string const& text) { be_read("f", fileOf(text).get()); }
    std::string written() {
        return writtenBy([this](FILE* out) { be_write("f", out); });
    }
    [[nodiscard]] std::string listed() const {
        return writtenBy([this](FILE* out) { list(out); });
    }
    std::vector<std::string> values(char const* stanza, char const* key,
                                    get_type_e type = plainElseObfuscated) const {
        std::vector<std::string> all;
        forEachValue(stanza, key, type, [&](char const* text, unsigned int length) {
            all.emplace_back(text, length);
        });
        return all;
    }
    void check() const { zfc::cache::RecordsCheck const checked(*records); }
};

}  // namespace testsupport

#endif
