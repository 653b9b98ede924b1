/// A recovery copy is a head (eight bytes of mark, the length of the whole, the checksum of all
/// behind the head), the identity of the main file, the number of files, and a record for each:
/// numbers of eight bytes in the order of x86, texts as their length and their bytes.
#include "Z/config/copy_format.h"

#include <zlib.h>

#include <array>
#include <cstring>

namespace zfc::config {
namespace {

constexpr std::string_view mark = "ZSAVE 1\n";
constexpr std::size_t numberSize = 8;
constexpr std::size_t headSize = 3 * numberSize;
constexpr std::uint64_t mostFiles = 3;  // main file, the companion that it names, one it named

std::uint64_t checksum(std::string_view bytes) {
    return crc32_z(0, reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
}

class Encoder {
  public:
    explicit Encoder(String& target) : bytes(target) {}

    void put(std::uint64_t number) {
        bytes.append(reinterpret_cast<char const*>(&number), numberSize);
    }
    void put(std::string_view text) {
        put(std::uint64_t{text.size()});
        bytes.append(text);
    }

  private:
    String& bytes;
};

/// Answers 0 and no text behind the end, and then says that it failed.
class Decoder {
  public:
    explicit Decoder(std::string_view source) : rest(source) {}

    [[nodiscard]] bool hasFailed() const { return failed; }
    [[nodiscard]] bool isAtEnd() const { return rest.empty() && !failed; }
    std::uint64_t number() {
        std::uint64_t value = 0;
        std::string_view const bytes = take(numberSize);
        if (!bytes.empty()) std::memcpy(&value, bytes.data(), numberSize);
        return value;
    }
    std::string_view text() { return take(number()); }
    /// A size of a file that memory can hold.
    std::size_t size() {
        std::uint64_t const value = number();
        failed = failed || value > static_cast<unsigned int>(-1);
        return static_cast<std::size_t>(value);
    }

  private:
    std::string_view take(std::uint64_t length) {
        failed = failed || length > rest.size();
        if (failed) return {};
        std::string_view const taken = rest.substr(0, static_cast<std::size_t>(length));
        rest.remove_prefix(taken.size());
        return taken;
    }

    std::string_view rest;
    bool failed = false;
};

void encode(Encoder& out, FileRecord const& file) {
    out.put(file.name);
    ChangedRange const& range = file.range;
    for (std::uint64_t const number :
         {std::uint64_t{file.existed}, std::uint64_t{file.remains}, std::uint64_t{range.oldSize},
          std::uint64_t{range.newSize}, std::uint64_t{range.start}, std::uint64_t{file.headSum},
          std::uint64_t{file.tailSum}})
        out.put(number);
    out.put(range.before);
    out.put(range.after);
}

FileRecord decode(Decoder& in) {
    FileRecord file;
    file.name = in.text();
    file.existed = in.number() != 0;
    file.remains = in.number() != 0;
    file.range.oldSize = in.size();
    file.range.newSize = in.size();
    file.range.start = in.size();
    file.headSum = static_cast<std::uint32_t>(in.number());
    file.tailSum = static_cast<std::uint32_t>(in.number());
    file.range.before = in.text();
    file.range.after = in.text();
    return file;
}

/// Whether the sizes agree, so that no step of a recovery has to look again.
bool isSound(FileRecord const& file) {
    ChangedRange const& range = file.range;
    if (file.name.find('\0') != std::string_view::npos) return false;
    if (range.start > std::min(range.oldSize, range.newSize)) return false;
    std::size_t const old = range.oldSize - range.start;
    std::size_t const now = range.newSize - range.start;
    if (old == now) return range.before.size() == range.after.size() && range.after.size() <= now;
    bool const isToTheEnd = range.after.size() == now || range.after.size() == std::max(old, now);
    return range.before.size() == old && isToTheEnd;
}

bool decodeFiles(Decoder& in, Vector<FileRecord>& files) {
    std::uint64_t const count = in.number();
    if (count == 0 || count > mostFiles) return false;
    for (std::uint64_t i = 0; i < count; ++i) {
        files.push_back(decode(in));
        // The first is the main file, and the only one without a name.
        bool const isNamed = !files.back().name.empty();
        if (in.hasFailed() || !isSound(files.back()) || isNamed != (i != 0)) return false;
    }
    return in.isAtEnd();
}

}  // namespace

String encodeCopy(Vector<FileRecord> const& files, zfc::platform::Identity const& mainFile) {
    std::size_t size = 0;
    for (FileRecord const& file : files)
        size += file.name.size() + file.range.before.size() + file.range.after.size();
    String bytes;
    bytes.reserve(size + headSize + files.size() * 2 * headSize * numberSize);
    bytes.append(headSize, '\0');
    Encoder out(bytes);
    out.put(std::uint64_t{mainFile.device});
    out.put(std::uint64_t{mainFile.inode});
    out.put(std::uint64_t{files.size()});
    for (FileRecord const& file : files)
        encode(out, file);
    String head(mark);
    Encoder first(head);
    first.put(std::uint64_t{bytes.size()});
    first.put(checksum(std::string_view(bytes).substr(headSize)));
    return bytes.replace(0, headSize, head);
}

CopyFault decodeCopy(std::string_view bytes, Vector<FileRecord>& files,
                     zfc::platform::Identity& mainFile) {
    if (bytes.substr(0, mark.size()) != mark.substr(0, bytes.size())) return CopyFault::damaged;
    if (bytes.size() < headSize) return CopyFault::cutOff;
    Decoder head(bytes.substr(mark.size(), 2 * numberSize));
    std::uint64_t const size = head.number();
    if (bytes.size() != size) return bytes.size() < size ? CopyFault::cutOff : CopyFault::damaged;
    if (head.number() != checksum(bytes.substr(headSize))) return CopyFault::damaged;
    Decoder in(bytes.substr(headSize));
    mainFile.device = in.number();
    mainFile.inode = in.number();
    if (decodeFiles(in, files)) return CopyFault::none;
    files.clear();
    return CopyFault::damaged;
}

}  // namespace zfc::config
