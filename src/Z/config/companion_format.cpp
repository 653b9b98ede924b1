/// The companion file of a stanza file: its obfuscated values, as records in a zlib stream.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "Z/ZSqueeze.h"
#include "Z/config/cache/handed_out.h"
#include "Z/config/cache/records.h"
#include "Z/containers/expand.h"

namespace {

using zfc::cache::Index;
using zfc::cache::Key;
using zfc::cache::Obfuscated;
using zfc::cache::Records;
using zfc::cache::String;
using zfc::cache::Values;

constexpr char sourceName[] = "src/Z/ZSCFData";
constexpr int outOfMemory = -4;                    // zlib's status
constexpr int outputFull = -5;                     // ZSqueeze: the output is too small
constexpr std::uint64_t greatestExpansion = 1032;  // a deflate stream cannot expand to more
constexpr std::uint64_t largestBlock = 0xffffffff;

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

/// Calls visit(stanza, key, value) for each record; false at the first thing that is none.
template <class Visit>
bool eachRecord(std::string_view content, Visit visit) {
    while (!content.empty()) {
        std::array<std::string_view, 3> parts;
        for (std::string_view& part : parts) {
            std::size_t const length = content.find('\0');
            if (length == std::string_view::npos) return false;
            part = content.substr(0, length);
            content.remove_prefix(length + 1);
        }
        if (parts[0].empty() || parts[1].empty()) return false;
        visit(parts[0], parts[1], parts[2]);
        if (content.empty()) return true;
        if (content.front() != '\0' || content.size() == 1) return false;
        content.remove_prefix(1);
    }
    return true;
}

void addRecord(Records& records, std::string_view stanza, std::string_view key,
               std::string_view value) {
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

}  // namespace

// ---------------------------------------------------------------------------------------- ZSCFData

void ZSCFData::be_write_obfuscated(ZBuffer& out) {
    String content = contentOf(*records);
    if (!content.empty()) compress(content, out);
}

void ZSCFData::be_read_obfuscated(ZBuffer& in) {
    auto const most = std::min(in.getLength() * greatestExpansion, largestBlock);
    zfc::containers::Expanded expanded;
    int const status = zfc::containers::expand(in.getBuffer(), in.getLength(),
                                               static_cast<std::size_t>(most), expanded);
    if (status == outOfMemory) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto const nothing = [](std::string_view, std::string_view, std::string_view) {};
    // All records are checked before the first is added: a bad file changes nothing.
    if (status != 0 || !eachRecord(expanded.content(), nothing))
        zraise(ZPropertiesInvalidDataException(getCompanionName(), "", 0), sourceName, __LINE__);
    lists->clear();
    eachRecord(expanded.content(),
               [this](std::string_view stanza, std::string_view key, std::string_view value) {
                   addRecord(*records, stanza, key, value);
               });
}
