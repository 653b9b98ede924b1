#include "Z/ZJavaProperties.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <typeinfo>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/config/cache/texts.h"
#include "Z/config/files/file_store.h"
#include "Z/config/files/recovery.h"
#include "Z/config/java/pairs.h"
#include "Z/config/java/strings.h"
#include "Z/exceptions/report.h"
#include "Z/platform/locked_file.h"
#include "Z/utility/cancellation_off.h"

namespace {

using zfc::cache::isEmpty;
using zfc::java::Pair;
using zfc::java::Pairs;

constexpr char sourceName[] = "src/Z/ZJavaProperties";

struct CloseStream {
    void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

/// For properties kept in bytes: the stream over them.
Stream streamOver(ZUTF8String const& bytes) {
    // POSIX lets fmemopen() refuse no bytes at all; an image has a comment line at least.
    Stream stream(fmemopen(const_cast<char*>(bytes.getChars()), bytes.getLength(), "r"));
    if (!stream) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return stream;
}

/// A text in UTF-8: the caller's own where it is one, else what it converts to.
class Text {
  public:
    explicit Text(ZAbstractString const& given)
        : own(typeid(given) == typeid(ZUTF8String) ? static_cast<ZUTF8String const*>(&given)
                                                   : &converted.emplace(given)) {}
    Text(Text const&) = delete;
    Text& operator=(Text const&) = delete;

    [[nodiscard]] std::string_view bytes() const { return zfc::java::viewOf(*own); }

  private:
    std::optional<ZUTF8String> converted;  // before `own`, which may point at it
    ZUTF8String const* own;
};

/// Raises ZToUTF8Exception where text would vanish.
void requireKept(Text const& text, ZAbstractString const& of) {
    if (text.bytes().empty() && !of.isEmpty()) zraise(ZToUTF8Exception(of), sourceName, __LINE__);
}

/// What the map has its one entry under: a text, which a map finds faster than any other object. It
/// never ends, because destructors of static objects may use properties.
ZObject const& pairsName() {
    static ZObject const& name = *new ZLCString("-");
    return name;
}

/// The text is empty.
void setText(ZAbstractMutableString& text, std::string_view bytes) {
    if (typeid(text) != typeid(ZUTF8String)) return text.setChars(zfc::java::stringOf(bytes));
    auto& same = static_cast<ZUTF8String&>(text);
    zfc::java::reserve(same, bytes.size());  // and no more, as setChars() does
    zfc::java::append(same, bytes);
}

}  // namespace

ZJavaProperties::ZJavaProperties()
    : stateHandlers{nullptr,
                    &ZJavaProperties::doStartLineState,
                    &ZJavaProperties::doStartLineBlanksState,
                    &ZJavaProperties::doCommentLineState,
                    &ZJavaProperties::doKeyCharsState,
                    &ZJavaProperties::doKeyCharEscapeState,
                    &ZJavaProperties::doKeyEndBlanksFirstState,
                    &ZJavaProperties::doKeyEndBlanksFinalState,
                    &ZJavaProperties::doValCharsState,
                    &ZJavaProperties::doValEscapeState,
                    &ZJavaProperties::doMultiLineValState,
                    &ZJavaProperties::doUU0State,
                    &ZJavaProperties::doUU1State,
                    &ZJavaProperties::doUU2State,
                    &ZJavaProperties::doUU3State,
                    nullptr},
      properties(10, 1) {
    Pairs const none;
    properties.putEntry(&pairsName(), &none);
}

ZJavaProperties::~ZJavaProperties() = default;

ZObject* ZJavaProperties::clone() const { return new ZJavaProperties(*this); }

Pairs& ZJavaProperties::pairs() { return static_cast<Pairs&>(*properties.getEntry(&pairsName())); }

Pairs const& ZJavaProperties::pairs() const {
    return static_cast<Pairs const&>(*properties.getEntry(&pairsName()));
}

int ZJavaProperties::load(char const* path) {
    try {
        read(path, nullptr);
        return 1;
    } catch (ZException& e) {
        static_cast<void>(zreturned(sourceName, __LINE__, [&e] { e.print(); }));
        return 0;
    }
}

int ZJavaProperties::load(char const* path, char const* searched) {
    ZCancellationOff const untilTheKeyIsCleared;
    searchKey = searched;
    int const result = load(path);
    searchKey.clear();
    return result;
}

void ZJavaProperties::read(char const* path, SkippedLines* lines) {
    if (isEmpty(path)) return;
    ZCancellationOff const wholeFiles;
    zfc::config::FileSource source(path);
    readFrom(source.stream(), path, lines);
}

bool ZJavaProperties::loadProperties(FILE* stream, char const* path) {
    return readFrom(stream, path, nullptr);
}

void ZJavaProperties::store(char const* path) const {
    if (isEmpty(path)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    ZCancellationOff const wholeFiles;
    ZUTF8String image;
    // Before the file is opened: what cannot be written must not leave a new, empty one.
    write(image);
    zfc::platform::LockedFile target(path, zfc::platform::Purpose::store, "fopen(wt)");
    zfc::config::finishStore(path, target);
    zfc::config::StorePlan const plan{path, {image.getChars(), image.getLength()}};
    zfc::config::FileStore(plan, target).write();
    // Somebody without a lock has put another file in place.
    if (target.isReplaced())
        zraise(ZPropertiesIOException(path, "store()", ESTALE), sourceName, __LINE__);
}

void ZJavaProperties::getValue(ZAbstractString const& wanted, ZAbstractMutableString& out) const {
    // Asked before it is written: `out` may be the same object.
    Pair const* const found = pairs().find(Text(wanted).bytes());
    out.clear();
    if (found != nullptr) setText(out, found->value());
}

void ZJavaProperties::setValue(ZAbstractString const& newKey, ZAbstractString const& newValue) {
    Text const name(newKey);
    Text const text(newValue);
    requireKept(name, newKey);
    requireKept(text, newValue);
    pairs().set(name.bytes(), text.bytes());
}

bool ZJavaProperties::contains(ZAbstractString const& wanted) const {
    return pairs().find(Text(wanted).bytes()) != nullptr;
}

void ZJavaProperties::listKeys(ZList& out) const { pairs().listKeys(out); }

bool ZJavaProperties::isStorable(ZAbstractString const& key, ZAbstractString const& value) {
    ZUTF8String const name(key);
    ZUTF8String const text(value);
    // What has no form in UTF-8 would be lost before it is written.
    if (name.isEmpty() || (text.isEmpty() && !value.isEmpty())) return false;
    // Written and read back, so that what can be stored is decided in one place, by the reader.
    ZJavaProperties written;
    written.setValue(name, text);
    ZUTF8String image;
    written.write(image);
    ZJavaProperties loaded;
    loaded.loadProperties(streamOver(image).get(), "");
    ZUTF8String again;
    loaded.getValue(name, again);
    return loaded.pairs().size() == 1 && loaded.contains(name) && again == text;
}
