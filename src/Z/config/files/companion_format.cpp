#include "Z/config/files/companion_format.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "Z/ZSqueeze.h"
#include "Z/config/cache/handed_out.h"
#include "Z/config/cache/records.h"
#include "Z/config/cache/storable.h"
#include "Z/containers/expand.h"

namespace {

using zfc::cache::Index;
using zfc::cache::Key;
using zfc::cache::Obfuscated;
using zfc::cache::Records;
using zfc::cache::String;
using zfc::cache::Values;
using zfc::containers::Expanded;
using zfc::containers::StreamEnd;

constexpr char sourceName[] = "src/Z/ZSCFData";
constexpr int outputFull = -5;                     // ZSqueeze: the output is too small
constexpr std::uint64_t greatestExpansion = 1032;  // a deflate stream cannot expand to more
constexpr std::uint64_t largestBlock = 0xffffffff;
constexpr std::size_t longestSample = std::size_t{256} << 10;  // expanded, to know a companion by
constexpr std::string_view streamMark = "\x78\x9c";            // how a stream of ours begins

// ------------------------------------------------------------------------------------- the records

/// Stanza, key and value, each with its zero byte, and one further zero byte; the last one's is
/// left out.
String contentOf(Records const& records) {
    String content;
    Values const& values = records.values();
    values.eachObfuscatedKey([&](Index number) {
        Key const& key = records.names().key(number);
        std::string_view const stanza = records.names().stanzaName(key.stanza);
        values.each(key, Obfuscated::yes, [&](std::string_view value) {
            for (std::string_view const part : {stanza, key.getName(), value})
                content.append(part).push_back('\0');
            content.push_back('\0');
        });
    });
    if (!content.empty()) content.pop_back();
    return content;
}

enum class Content { whole, cutOff, wrong };

/// Takes a text off the content; false when it has no end there.
bool takePart(std::string_view& content, std::string_view& part) {
    std::size_t const length = content.find('\0');
    if (length == std::string_view::npos) return false;
    part = content.substr(0, length);
    content.remove_prefix(length + 1);
    return true;
}

/// Calls visit(stanza, key, value) for each record up to the first thing that is none.
template <class Visit>
Content eachRecord(std::string_view content, Visit visit) {
    while (!content.empty()) {
        std::string_view stanza, key, value;
        if (!takePart(content, stanza)) return Content::cutOff;
        if (stanza.empty()) return Content::wrong;
        if (!takePart(content, key)) return Content::cutOff;
        if (key.empty()) return Content::wrong;
        if (!takePart(content, value)) return Content::cutOff;
        visit(stanza, key, value);
        if (content.empty()) return Content::whole;
        if (content.front() != '\0') return Content::wrong;
        if (content.size() == 1) return Content::cutOff;
        content.remove_prefix(1);
    }
    return Content::whole;
}

Content contentOf(Expanded const& expanded, unsigned int& recordCount) {
    return eachRecord(expanded.content(),
                      [&](std::string_view, std::string_view, std::string_view) { ++recordCount; });
}

void addRecord(Records& records, std::string_view stanza, std::string_view key,
               std::string_view value) {
    // No line could hold them, and no edit may set them.
    bool const areFit = zfc::cache::isStorableStanza(stanza) && zfc::cache::isStorableKey(key);
    if (!areFit) records.lines().noteUnfit();
    Index const owner = records.findOrAddStanza(stanza);
    Index const item = records.findOrAddKey(owner, key);
    if (!value.empty()) records.addValue(item, value, Obfuscated::yes);
}

// -------------------------------------------------------------------------------- the zlib stream

void compress(String& content, ZBuffer& out) {
    ZSqueeze squeezer;
    squeezer.setSource(reinterpret_cast<unsigned char*>(content.data()),
                       static_cast<unsigned long>(content.size()));
    // Twice the content holds any but a tiny one, which zlib's own bytes make longer: that goes
    // round.
    for (std::uint64_t room = content.size() * std::uint64_t{2}; room <= largestBlock; room *= 2) {
        out.setLength(static_cast<unsigned long>(room));
        auto* const block = static_cast<unsigned char*>(out.getBuffer());
        long const written = squeezer.squeeze(block, static_cast<unsigned long>(room));
        if (written >= 0) return out.setLength(static_cast<unsigned long>(written));
        if (written != outputFull) break;
    }
    zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

/// As far as `limit` and the format of the stream allow.
StreamEnd expandLimited(void const* source, std::uint64_t length, unsigned long limit,
                        Expanded& out) {
    auto const most = std::min({length * greatestExpansion, largestBlock, std::uint64_t{limit}});
    return zfc::containers::expandStart(source, static_cast<std::size_t>(length),
                                        static_cast<std::size_t>(most), out);
}

[[noreturn]] void raiseOutOfMemory(int line) { zraise(ZOutOfMemoryException(), sourceName, line); }

}  // namespace

// ---------------------------------------------------------------------------------- what bytes are

namespace zfc::config {

ZLCString tooLarge(unsigned long limit) {
    char text[80];
    std::snprintf(text, sizeof text, "it expands to more than the limit of %lu bytes", limit);
    return text;
}

ZLCString companionFault(std::string_view bytes, unsigned long limit) {
    Expanded expanded;
    unsigned int records = 0;
    switch (expandLimited(bytes.data(), bytes.size(), limit, expanded)) {
        case StreamEnd::whole:
            return contentOf(expanded, records) == Content::whole ? "" : "it holds no records";
        case StreamEnd::full:
            return tooLarge(limit);
        case StreamEnd::cutOff:
            return "it is cut off";
        case StreamEnd::followed:
            return "something stands behind its end";
        case StreamEnd::noMemory:
            raiseOutOfMemory(__LINE__);
        case StreamEnd::damaged:
            break;
    }
    return "it is no sound zlib stream";
}

bool beginsLikeCompanion(std::string_view bytes) {
    if (bytes.empty()) return true;
    Expanded expanded;
    unsigned int records = 0;
    StreamEnd const end =
        zfc::containers::expandStart(bytes.data(), bytes.size(), longestSample, expanded);
    if (end == StreamEnd::noMemory) raiseOutOfMemory(__LINE__);
    Content const content = contentOf(expanded, records);
    if (end == StreamEnd::whole) return content == Content::whole;
    bool const goesOn = end == StreamEnd::cutOff || end == StreamEnd::full;
    bool const isMarked = bytes.substr(0, 2) == streamMark.substr(0, bytes.size());
    // Text may begin as a stream by chance, but not with a whole record.
    bool const isStream = records > 0 || (goesOn && isMarked);
    return isStream && content != Content::wrong;
}

}  // namespace zfc::config

// ---------------------------------------------------------------------------------------- ZSCFData

void ZSCFData::be_write_obfuscated(ZBuffer& out) {
    String content = contentOf(*records);
    if (!content.empty()) compress(content, out);
}

void ZSCFData::be_read_obfuscated(ZBuffer& in) {
    Expanded expanded;
    unsigned int count = 0;
    StreamEnd const end =
        expandLimited(in.getBuffer(), in.getLength(), getCompanionLimit(), expanded);
    if (end == StreamEnd::noMemory) raiseOutOfMemory(__LINE__);
    // All records are checked before the first is added: a bad file changes nothing.
    if (end != StreamEnd::whole || contentOf(expanded, count) != Content::whole)
        zraise(ZPropertiesInvalidDataException(getCompanionName(), "", 0), sourceName, __LINE__);
    lists->clear();
    eachRecord(expanded.content(),
               [this](std::string_view stanza, std::string_view key, std::string_view value) {
                   addRecord(*records, stanza, key, value);
               });
}
