#include "Z/ZJavaPropertiesFile.h"

#include <unistd.h>

#include <algorithm>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/config/files/file_store.h"
#include "Z/config/files/recovery.h"
#include "Z/config/java/document.h"
#include "Z/config/java/strings.h"
#include "Z/containers/members.h"
#include "Z/platform/locked_file.h"
#include "Z/utility/cancellation_off.h"

namespace {

using zfc::cache::isEmpty;
using zfc::config::FileSource;
using zfc::java::Document;
using zfc::java::Kind;
using zfc::java::Lines;
using zfc::java::String;
using zfc::java::stringOf;
using zfc::java::viewOf;
using zfc::platform::LockedFile;
using zfc::platform::Purpose;

constexpr char sourceName[] = "src/Z/ZJavaPropertiesFile";

// ------------------------------------------------------------------------------------------- text

/// Raises ZToUTF8Exception for text that UTF-8 has no form for, or that is malformed.
ZUTF8String wellFormed(ZAbstractString const& text) {
    ZUTF8String result(text);
    bool const isLost = result.isEmpty() && !text.isEmpty();
    bool const isMalformed = zfc::java::malformedAt(viewOf(result)) != std::string_view::npos;
    if (isLost || isMalformed) zraise(ZToUTF8Exception(), sourceName, __LINE__);
    return result;
}

// ------------------------------------------------------------------------------------------ files

[[noreturn]] void failIO(char const* path, char const* operation, int error) {
    zraise(ZPropertiesIOException(path, operation, error), sourceName, __LINE__);
}

bool isMissing(ZException const& e) {
    auto const* const io = dynamic_cast<ZPropertiesIOException const*>(&e);
    return io != nullptr && io->excerrno() == ENOENT;
}

ZJavaPropertiesFile::Fault publicFault(zfc::java::Fault fault) {
    using Fault = ZJavaPropertiesFile::Fault;
    if (fault == zfc::java::Fault::encoding) return Fault::encoding;
    return fault == zfc::java::Fault::unicodeEscape ? Fault::unicodeEscape : Fault::halfSurrogate;
}

}  // namespace

struct ZJavaPropertiesFile::State : public ZObject {
    State(char const* file, Encoding itsEncoding)
        : path(file),
          encoding(itsEncoding == Encoding::utf8 ? zfc::java::Encoding::utf8
                                                 : zfc::java::Encoding::latin1) {}

    [[nodiscard]] Document parsed(std::string_view bytes) const;
    [[noreturn]] void refuse(Lines const& lines, std::size_t linesAbove) const;
    [[noreturn]] void refuseHalfSurrogate(Document::Place place) const;
    [[nodiscard]] Document::Place find(ZAbstractString const& key) const {
        return document.find(viewOf(wellFormed(key)));
    }

    /// Runs a reading of the file; what it raises is kept for those who want to store.
    template <class Read>
    void reading(Read read);
    void take(String bytes);
    void requireRead() const;

    [[nodiscard]] bool isOurs(std::string_view bytes) const { return overwrites || bytes == image; }
    void refresh(FileSource const& file);
    /// Runs an edit that changes nothing when it throws.
    template <class Edit>
    void editing(Edit edit);
    void save(LockedFile& target, String bytes);
    template <class Edit>
    [[nodiscard]] bool updatedOnce(Edit edit, zfc::platform::Patience& patience);

    ZLCString path;
    zfc::java::Encoding encoding;
    Document document{encoding};
    String image;          // what the file held when it was read or written last
    bool wasRead = false;  // or written
    bool makesRecoveryCopy = true;
    bool overwrites = false;              // whatever the file holds, that is
    bool isHalfRead = false;              // the file must not be written
    std::unique_ptr<ZException> failure;  // of that reading; null: it could not be kept
};

// ---------------------------------------------------------------------------------------- reading

Document ZJavaPropertiesFile::State::parsed(std::string_view bytes) const {
    Document result(encoding);
    result.setLineEnd(zfc::java::firstLineEnd(bytes));
    Lines lines(bytes, encoding);
    while (lines.next()) {
        bool const isReadable = lines.fault() == zfc::java::Fault::none ||
                                lines.fault() == zfc::java::Fault::halfSurrogate;
        if (!isReadable) refuse(lines, 0);
        result.add(lines);
    }
    return result;
}

void ZJavaPropertiesFile::State::refuse(Lines const& lines, std::size_t linesAbove) const {
    String const text(lines.faultText());
    auto const number = static_cast<int>(linesAbove + lines.faultNumber());
    zraise(ZPropertiesInvalidDataException(path.getChars(), text.c_str(), number), sourceName,
           __LINE__);
}

void ZJavaPropertiesFile::State::refuseHalfSurrogate(Document::Place place) const {
    Lines lines(place->bytes, encoding);
    static_cast<void>(lines.next());
    refuse(lines, zfc::java::lineEndsIn(document.bytesAbove(place)));
}

template <class Read>
void ZJavaPropertiesFile::State::reading(Read read) {
    failure.reset();
    isHalfRead = true;
    try {
        read();
        isHalfRead = false;
    } catch (ZException const& e) {
        isHalfRead = !isMissing(e);
        if (isHalfRead) failure.reset(static_cast<ZException*>(e.clone()));
        throw;
    }
}

void ZJavaPropertiesFile::State::take(String bytes) {
    document = parsed(bytes);
    image.swap(bytes);
    wasRead = true;
    overwrites = false;
}

void ZJavaPropertiesFile::State::requireRead() const {
    if (!isHalfRead) return;
    // The cause of then: whoever stores learns why the file must not be written.
    if (failure) failure->throwException(sourceName, __LINE__);
    zraise(ZPropertiesInvalidDataException(path.getChars(), "", 0), sourceName, __LINE__);
}

void ZJavaPropertiesFile::load() {
    ZCancellationOff const wholeFiles;
    char const* const path = state->path.getChars();
    state->reading([&] { state->take(FileSource(path).image()); });
}

void ZJavaPropertiesFile::check(FaultyLines& lines) const {
    ZCancellationOff const wholeFiles;
    char const* const path = state->path.getChars();
    String const image = FileSource(path).image();
    Lines walk(image, state->encoding);
    while (walk.next()) {
        if (walk.fault() == zfc::java::Fault::none) continue;
        lines.faulty(static_cast<unsigned int>(walk.faultNumber()),
                     String(walk.faultText()).c_str(), publicFault(walk.fault()));
    }
}

// ---------------------------------------------------------------------------------------- writing

/// Reads the file when it is another one, which edits that are not stored must not get into.
void ZJavaPropertiesFile::State::refresh(FileSource const& file) {
    String bytes = file.image();
    if (isOurs(bytes) && !isHalfRead) return;
    if (document.image() != image) failIO(path.getChars(), "store()", ESTALE);
    reading([&] { take(std::move(bytes)); });
}

template <class Edit>
void ZJavaPropertiesFile::State::editing(Edit edit) {
    String const before = document.image();
    try {
        edit();
    } catch (...) {
        isHalfRead = true;  // until the lines are what they were
        document = parsed(before);
        isHalfRead = false;
        throw;
    }
}

void ZJavaPropertiesFile::State::save(LockedFile& target, String bytes) {
    zfc::config::StorePlan plan{path.getChars(), bytes};
    plan.makesCopy = makesRecoveryCopy;
    zfc::config::FileStore(plan, target).write();
    image.swap(bytes);
    wasRead = true;
    overwrites = false;
}

void ZJavaPropertiesFile::store() {
    ZCancellationOff const wholeFiles;
    state->requireRead();
    char const* const path = state->path.getChars();
    // Before the file is opened: what cannot be written must not leave a new, empty one.
    String image = state->document.image();
    LockedFile target(path, Purpose::store);
    String const found = FileSource(path, target).image();
    if (!found.empty() && !state->isOurs(found))
        failIO(path, "store()", state->wasRead ? ESTALE : EEXIST);
    state->save(target, std::move(image));
    // Somebody without a lock has put another file in place.
    if (target.isReplaced()) failIO(path, "store()", ESTALE);
}

/// False when somebody without a lock has put another file in place: then nothing is changed here.
template <class Edit>
bool ZJavaPropertiesFile::State::updatedOnce(Edit edit, zfc::platform::Patience& patience) {
    LockedFile target(path.getChars(), patience);
    refresh(FileSource(path.getChars(), target));
    String const before = document.image();
    String const known = image;
    bool const overwrote = overwrites;
    editing(edit);
    String bytes = document.image();
    bool const isChanged = bytes != image || overwrites;
    // What is written to a file without a name is lost.
    bool const isLost = isChanged && !target.isNamed();
    if (isChanged && !isLost) save(target, std::move(bytes));
    if (!isLost && !target.isReplaced()) return true;
    document = parsed(before);
    image = known;
    overwrites = overwrote;
    return false;
}

void ZJavaPropertiesFile::updateFile(std::function<void(ZJavaPropertiesFile&)> const& edit,
                                     unsigned int milliseconds) {
    ZCancellationOff const wholeFiles;
    zfc::platform::Patience patience(milliseconds);
    // Nobody puts other files in place again and again.
    constexpr int attempts = 10;
    for (int i = 0; i < attempts; ++i) {
        if (state->updatedOnce([&] { edit(*this); }, patience)) return;
    }
    failIO(state->path.getChars(), "store()", ESTALE);
}

void ZJavaPropertiesFile::setRecoveryCopy(bool isMade) { state->makesRecoveryCopy = isMade; }

void ZJavaPropertiesFile::clear() {
    state->document = Document(state->encoding);
    state->isHalfRead = false;
    state->overwrites = true;
}

// ------------------------------------------------------------------------------- pairs in memory

ZJavaPropertiesFile::ZJavaPropertiesFile(char const* path, Encoding encoding) {
    if (isEmpty(path)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    state = std::make_unique<State>(path, encoding);
}

ZJavaPropertiesFile::~ZJavaPropertiesFile() = default;

char const* ZJavaPropertiesFile::getPath() const { return state->path.getChars(); }

void ZJavaPropertiesFile::getValue(ZAbstractString const& key, ZAbstractMutableString& out) const {
    auto const place = state->find(key);  // `out` may be the same object
    if (place == state->document.end()) return static_cast<void>(out.clear());
    auto const value = state->document.valueAt(place);
    if (value.fault != zfc::java::Fault::none) state->refuseHalfSurrogate(place);
    out.setChars(stringOf(value.text));
}

bool ZJavaPropertiesFile::contains(ZAbstractString const& key) const {
    return state->find(key) != state->document.end();
}

std::unique_ptr<ZArrayList> ZJavaPropertiesFile::getKeys() const {
    Document const& document = state->document;
    auto keys = std::make_unique<ZArrayList>(1, 1);
    for (auto place = document.begin(); place != document.end(); ++place) {
        if (place->kind != Kind::pair || !document.counts(place)) continue;
        bool const isText = zfc::java::malformedAt(place->key) == std::string_view::npos;
        if (!isText) state->refuseHalfSurrogate(place);
        zfc::containers::appendNew(*keys, std::make_unique<ZUTF8String>(stringOf(place->key)));
    }
    return keys;
}

void ZJavaPropertiesFile::setValue(ZAbstractString const& key, ZAbstractString const& value) {
    ZUTF8String const name = wellFormed(key);
    ZUTF8String const text = wellFormed(value);
    state->document.set(viewOf(name), viewOf(text));
}

bool ZJavaPropertiesFile::deleteKey(ZAbstractString const& key) {
    return state->document.remove(viewOf(wellFormed(key)));
}

namespace {

/// Raises ZInvalidParameterException for what would not read back as one comment.
ZUTF8String commentText(ZAbstractString const& text) {
    ZUTF8String comment = wellFormed(text);
    bool const isLine = viewOf(comment).find_first_of("\r\n") == std::string_view::npos;
    if (comment.isEmpty() || !isLine) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return comment;
}

}  // namespace

void ZJavaPropertiesFile::addComment(ZAbstractString const& text) {
    state->document.addComment(viewOf(commentText(text)));
}

void ZJavaPropertiesFile::addComment(ZAbstractString const& key, ZAbstractString const& text) {
    ZUTF8String const comment = commentText(text);
    auto const place = state->find(key);
    if (place == state->document.end()) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    state->document.addCommentAbove(place, viewOf(comment));
}

void ZJavaPropertiesFile::rewrite(int keepComments) {
    state->document.rewrite();
    if (keepComments == 0) state->document.dropComments();
}
