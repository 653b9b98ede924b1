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

/// Fails the test for what no answer of the cache tells: texts that are held and not reached.
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
