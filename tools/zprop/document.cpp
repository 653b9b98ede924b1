#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Z/ZBuffer.h"
#include "zprop/open.h"

namespace zprop {
namespace {

/// Bytes that are written to a stream.
class TextStream {
  public:
    TextStream() : stream(open_memstream(&block, &size)) {
        if (stream == nullptr) zraise(ZOutOfMemoryException(), "zprop", __LINE__);
    }
    ~TextStream() {
        std::fclose(stream);
        std::free(block);
    }
    TextStream(TextStream const&) = delete;
    TextStream& operator=(TextStream const&) = delete;

    [[nodiscard]] FILE* get() const { return stream; }
    [[nodiscard]] std::string text() const {
        if (std::fflush(stream) != 0) zraise(ZOutOfMemoryException(), "zprop", __LINE__);
        return {block, size};
    }

  private:
    char* block = nullptr;  // the stream's until it is closed
    std::size_t size = 0;
    FILE* stream;
};

struct CloseStream {
    void operator()(FILE* stream) const { std::fclose(stream); }
};

}  // namespace

Document::Document(Comments comments) : ZStanzaFileProperties(comments == Comments::keep ? 1 : 0) {}

std::string Document::text() {
    ZPropResourceLock const hold(propLock);
    TextStream stream;
    values().be_write(getFileName().getChars(), stream.get());
    return stream.text();
}

void Document::setText(std::string const& text) {
    ZPropResourceLock const hold(propLock);
    ZBuffer kept;
    values().be_write_obfuscated(kept);
    std::string bytes = text + "\n";  // no stream is made over nothing
    std::unique_ptr<FILE, CloseStream> const stream(fmemopen(bytes.data(), text.size(), "rb"));
    values().clear();
    if (!text.empty() && stream) values().be_read(getFileName().getChars(), stream.get());
    if (kept.getLength() != 0) values().be_read_obfuscated(kept);
    touch();
}

std::string Document::secrets() {
    ZPropResourceLock const hold(propLock);
    ZBuffer bytes;
    values().be_write_obfuscated(bytes);
    return {static_cast<char const*>(bytes.getBuffer()), bytes.getLength()};
}

std::string Document::companion() {
    ZPropResourceLock const hold(propLock);
    return values().getCompanionName();
}

void Document::forgetCompanion() {
    ZPropResourceLock const hold(propLock);
    values().setCompanionName("");
}

void Document::touch() {
    // An edit, and back: the object counts as modified by an edit alone.
    constexpr char name[] = "zprop";
    std::string stanza = name;
    while (exists(stanza.c_str()))
        stanza += '+';
    addStanza(stanza.c_str());
    deleteStanza(stanza.c_str());
}

}  // namespace zprop
