#include "Z/ZJavaProperties.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <typeinfo>

#include "Z/ZException.h"
#include "Z/config/cache/texts.h"
#include "Z/config/file_store.h"
#include "Z/config/recovery.h"
#include "Z/exceptions/report.h"
#include "Z/platform/locked_file.h"
#include "Z/utility/cancellation_off.h"

namespace {

using zfc::cache::isEmpty;

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

    [[nodiscard]] ZUTF8String const& get() const { return *own; }

  private:
    std::optional<ZUTF8String> converted;  // before `own`, which may point at it
    ZUTF8String const* own;
};

/// Raises ZToUTF8Exception where text would vanish.
void requireKept(Text const& text, ZAbstractString const& of) {
    if (text.get().isEmpty() && !of.isEmpty()) zraise(ZToUTF8Exception(of), sourceName, __LINE__);
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
      properties(10, 1) {}

ZJavaProperties::~ZJavaProperties() = default;

ZObject* ZJavaProperties::clone() const { return new ZJavaProperties(*this); }

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
    Text const name(wanted);
    // Asked before it is written: `out` may be the same object.
    ZObject const* const found = properties.getEntry(&name.get());
    out.clear();
    if (found != nullptr) out.setChars(static_cast<ZUTF8String const&>(*found));
}

void ZJavaProperties::setValue(ZAbstractString const& newKey, ZAbstractString const& newValue) {
    Text const name(newKey);
    Text const text(newValue);
    requireKept(name, newKey);
    requireKept(text, newValue);
    ZObject* const known = properties.getEntry(&name.get());
    if (known == nullptr) return properties.putEntry(&name.get(), &text.get());
    // The map's own copy, which nobody else has.
    static_cast<ZUTF8String*>(known)->setChars(text.get());
}

bool ZJavaProperties::contains(ZAbstractString const& wanted) const {
    return properties.contains(&Text(wanted).get());
}

void ZJavaProperties::listKeys(ZList& out) const { properties.listKeys(out); }

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
    return loaded.properties.size() == 1 && loaded.contains(name) && again == text;
}
