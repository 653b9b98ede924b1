/// A recovery copy is a head (eight bytes of mark, the length of the whole, the checksum of all
/// behind the head), device and inode of the main file and of the copy itself, the number of files,
/// and a record for each:
/// numbers of eight bytes in the order of x86, texts as their length and their bytes.
#include "Z/config/files/copy_format.h"

#include <algorithm>
#include <cstring>

#include "Z/utility/checksum.h"

namespace zfc::config {
namespace {

constexpr std::string_view mark = "ZSAVE 1\n";
constexpr std::size_t numberSize = 8;
constexpr std::size_t headSize = copyHeadSize;
static_assert(headSize == 3 * numberSize);
constexpr std::uint64_t mostFiles = 2;  // the main file, and the companion that it names or named
constexpr std::size_t recordNumbers = 10;

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

/// Whether it is the name of a file beside the main file, or an absolute path.
bool isFit(std::string_view name) {
    bool const isBeside = name.find('/') == std::string_view::npos;
    if (isBeside && (name == "." || name == "..")) return false;
    return (isBeside || name.front() == '/') && name.find('\0') == std::string_view::npos;
}

/// Whether the sizes agree, so that no step of a recovery has to look again.
bool isSound(FileRecord const& file) {
    ChangedRange const& range = file.range;
    if (!isFit(file.name) || (!file.existed && range.oldSize != 0)) return false;
    if (!file.remains && !(file.existed && range.isEmpty())) return false;
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
        FileRecord const& file = files.back();
        // The first is the main file, the only one without a name, and stays.
        bool const isMain = file.name.empty() && file.existed && file.remains;
        if (in.hasFailed() || !isSound(file) || (i == 0) != isMain) return false;
        if (i != 0 && file.name.empty()) return false;
    }
    return in.isAtEnd();
}

}  // namespace

String encodeCopy(Vector<FileRecord> const& files, CopyOf const& of) {
    std::size_t size = 0;
    for (FileRecord const& file : files)
        size += file.name.size() + file.range.before.size() + file.range.after.size();
    String bytes;
    bytes.reserve(size + headSize + (5 + files.size() * recordNumbers) * numberSize);
    bytes.append(headSize, '\0');
    Encoder out(bytes);
    for (zfc::platform::Identity const& identity : {of.mainFile, of.copy}) {
        out.put(std::uint64_t{identity.device});
        out.put(std::uint64_t{identity.inode});
    }
    out.put(std::uint64_t{files.size()});
    for (FileRecord const& file : files)
        encode(out, file);
    String head(mark);
    Encoder first(head);
    first.put(std::uint64_t{bytes.size()});
    first.put(std::uint64_t{checksum(std::string_view(bytes).substr(headSize))});
    return bytes.replace(0, headSize, head);
}

CopyFault faultOfHead(std::string_view head, std::uint64_t size) {
    if (head.substr(0, mark.size()) != mark.substr(0, head.size())) return CopyFault::damaged;
    if (head.size() < headSize) return CopyFault::cutOff;
    std::uint64_t const whole = Decoder(head.substr(mark.size())).number();
    if (size == whole) return CopyFault::none;
    return size < whole ? CopyFault::cutOff : CopyFault::damaged;
}

bool decodeCopy(std::string_view bytes, Vector<FileRecord>& files, CopyOf& of) {
    if (faultOfHead(bytes.substr(0, headSize), bytes.size()) != CopyFault::none) return false;
    Decoder head(bytes.substr(mark.size() + numberSize));
    if (head.number() != checksum(bytes.substr(headSize))) return false;
    Decoder in(bytes.substr(headSize));
    for (zfc::platform::Identity* const identity : {&of.mainFile, &of.copy}) {
        identity->device = in.number();
        identity->inode = in.number();
    }
    return decodeFiles(in, files);
}

}  // namespace zfc::config
