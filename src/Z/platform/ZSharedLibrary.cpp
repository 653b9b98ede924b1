#include "Z/ZSharedLibrary.h"

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <memory>

#include "Z/ZException.h"
#include "Z/zfree.h"
#include "Z/zshlib.h"

namespace {

constexpr char sourceName[] = "src/Z/ZSharedLibrary";

/// Takes the text away that an earlier failure, perhaps of another library, has left for this
/// thread: it is not the reason of the next.
void discardText() { static_cast<void>(dlerror()); }

/// As zdlopen(); no name is ENOENT, where the loader would take it for the program itself.
void* openNamed(ZLCString const& name, int flags, int* err) {
    discardText();
    return zdlopen(name.isEmpty() ? nullptr : name.getChars(), flags, err);
}

/// One more hold on the library of `handle`: the same handle. Null when there is none to hold.
void* heldAgain(void* handle) {
    link_map* loaded = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &loaded) != 0) return nullptr;
    // Only what is loaded already: the file of that name may have been replaced since.
    return dlopen(loaded->l_name, RTLD_LAZY | RTLD_NOLOAD);
}

}  // namespace

// ---------------------------------------------------------------------- ZAbstractSharedLibrary

ZAbstractSharedLibrary::ZAbstractSharedLibrary(char const* name) : libraryName(name) {}

ZAbstractSharedLibrary::~ZAbstractSharedLibrary() = default;

int ZAbstractSharedLibrary::initialize() { return 0; }

// ------------------------------------------------------------------------------ ZSharedLibrary

ZSharedLibrary::ZSharedLibrary() : ZSharedLibrary("") {}

ZSharedLibrary::ZSharedLibrary(char const* name) : ZAbstractSharedLibrary(name) {}

ZSharedLibrary::ZSharedLibrary(ZSharedLibrary const& other)
    : ZAbstractSharedLibrary(other), handle(heldAgain(other.handle)) {}

ZSharedLibrary& ZSharedLibrary::operator=(ZSharedLibrary const& other) {
    if (this == &other) return *this;
    ZAbstractSharedLibrary::operator=(other);
    handle = heldAgain(other.handle);
    return *this;
}

ZSharedLibrary::~ZSharedLibrary() = default;

unsigned long ZSharedLibrary::hash() const { return libraryName.hash(); }

int ZSharedLibrary::compare(ZObject const& other) const {
    auto const* const library = dynamic_cast<ZSharedLibrary const*>(&other);
    return library != nullptr ? libraryName.compare(library->libraryName) : ZObject::compare(other);
}

ZObject* ZSharedLibrary::clone() const { return new ZSharedLibrary(*this); }

void ZSharedLibrary::setLocalScope(int local) {
    flags = local == 0 ? flags | RTLD_GLOBAL : flags & ~RTLD_GLOBAL;
}

// Kept: the scope can be set, and the flags tell it; callers rely on this answer being 0.
int ZSharedLibrary::getLocalScope() const { return 0; }

void ZSharedLibrary::setLazyResolution(int lazy) {
    flags = (flags & ~(RTLD_LAZY | RTLD_NOW)) | (lazy != 0 ? RTLD_LAZY : RTLD_NOW);
}

int ZSharedLibrary::getLazyResolution() const { return flags & RTLD_LAZY; }

void ZSharedLibrary::setLastError(int err) {
    std::unique_ptr<char, ZFree> const message(zdlerror());
    setLastErrorNumber(err);
    setLastErrorMessage(message.get());
}

/// Opens the file that the library's name becomes with `suffix` the other way round.
void* ZSharedLibrary::openAlternative(ZLCString const& suffix) const {
    ZLCString name(libraryName);
    if (name.isEmpty()) return nullptr;
    if (name.endsWith(suffix.getChars()))
        name = libraryName.subString(0, name.getLength() - suffix.getLength());
    else
        name += suffix;
    return openNamed(name, flags, nullptr);
}

int ZSharedLibrary::loadLibrary() {
    int err = 0;
    void* opened = openNamed(libraryName, flags, &err);
    if (opened == nullptr) {
        // The error of the name that was asked for is the one to tell, not those of the
        // alternatives.
        setLastError(err);
        if (libraryName.isEmpty()) setLastErrorMessage("the name is empty");
        opened = openAlternative(primarySuffix);
        if (opened == nullptr) opened = openAlternative(secondarySuffix);
        discardText();
    }
    if (opened == nullptr)
        zraise(ZSharedLibraryLoadException(libraryName.getChars(), lastErrorMessage.getChars(),
                                           lastErrorNumber),
               sourceName, __LINE__);
    // Before initialize(), which looks for symbols in it.
    handle = opened;
    if (initialize() != 0)
        zraise(ZSharedLibraryLoadException(libraryName.getChars(), "initialize", lastErrorNumber),
               sourceName, __LINE__);
    return 0;
}

void* ZSharedLibrary::resolveSymbol(char const* name) {
    int err = 0;
    discardText();
    if (void* const address = zdlsym(handle, name, &err)) return address;
    setLastError(err);
    zraise(ZSharedLibraryResolveException(libraryName.getChars(), name, lastErrorMessage.getChars(),
                                          lastErrorNumber),
           sourceName, __LINE__);
}

int ZSharedLibrary::unloadLibrary() {
    int err = 0;
    discardText();
    if (zdlclose(handle, &err) == 0) {
        handle = nullptr;
        return 0;
    }
    setLastError(err);
    zraise(ZSharedLibraryLoadException(libraryName.getChars(), lastErrorMessage.getChars(),
                                       lastErrorNumber),
           sourceName, __LINE__);
}
