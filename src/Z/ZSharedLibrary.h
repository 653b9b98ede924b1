/// Plug-in libraries: loaded by name at run time, asked for symbols, unloaded.
///
///     ZSharedLibrary plugin("./libgreet.so");
///     plugin.loadLibrary();
///     auto const greet = reinterpret_cast<void (*)()>(plugin.resolveSymbol("greet"));
///
/// Functions and objects of a plug-in are gone once the loader has unloaded it, so nobody's
/// destructor unloads: a library stays loaded until unloadLibrary() is called, once for each
/// successful load and each copy of a loaded object. One thread uses an object at a time.
#ifndef Z_ZSHAREDLIBRARY_H
#define Z_ZSHAREDLIBRARY_H

#include "Z/ztags.h"

#include "Z/ZLCString.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

/// A library that can be loaded, on whatever platform: its name and what last went wrong.
class ZFC_API ZAbstractSharedLibrary : public ZObject {
  public:
    /// `name` is what the loader is given: a path, or a name that it searches for. It is copied;
    /// null is empty.
    explicit ZAbstractSharedLibrary(char const* name);
    ZAbstractSharedLibrary(ZAbstractSharedLibrary const&) = default;
    ZAbstractSharedLibrary& operator=(ZAbstractSharedLibrary const&) = default;

    // in slot order: do not sort
    ~ZAbstractSharedLibrary() override;
    /// Loads the library and runs initialize(). Returns 0.
    virtual int loadLibrary() = 0;
    /// The address of a symbol of the loaded library; never null.
    virtual void* resolveSymbol(char const* name) = 0;
    /// Gives the loaded library up. Returns 0.
    virtual int unloadLibrary() = 0;
    /// Called after every successful load, with the library's symbols at hand, to run set-up code
    /// in it; a result that is not 0 fails the load. This one returns 0.
    virtual int initialize();

    /// The name as the constructor got it.
    [[nodiscard]] ZLCString const& getLibraryName() const { return libraryName; }
    /// The loader's mode bits; 0 for the default mode, RTLD_NOW | RTLD_GLOBAL.
    [[nodiscard]] int getFlags() const { return flags; }
    /// Sets the loader's mode bits for loads to come.
    void setFlags(int mode) { flags = mode; }
    /// The error number of the last failure; 0 before any, or when the loader gave none.
    [[nodiscard]] int getLastErrorNumber() const { return lastErrorNumber; }
    /// Says what getLastErrorNumber() is to answer.
    void setLastErrorNumber(int err) { lastErrorNumber = err; }
    /// The loader's text of the last failure; empty before any, or when the loader gave none.
    [[nodiscard]] ZLCString const& getLastErrorMessage() const { return lastErrorMessage; }
    /// Says what getLastErrorMessage() is to answer; the text is copied, null is empty.
    void setLastErrorMessage(char const* message) { lastErrorMessage = message; }

  protected:
    ZLCString libraryName;            // what the loader is given
    ZLCString primarySuffix = ".so";  // of the file names to try when the name itself fails
    // Kept: the same as the first on this platform, so a failing load tries one name twice.
    ZLCString secondarySuffix = ".so";  // tried after the first
    int lastErrorNumber = 0;            // of the last failure; 0: none, or without one
    ZLCString lastErrorMessage;         // of the last failure; empty: none, or without one
    int flags = 0;                      // mode bits of the loader; 0: the default mode
};

/// The kind that dlopen loads.
class ZFC_API ZSharedLibrary : public ZAbstractSharedLibrary {
  public:
    /// With an empty name.
    ZSharedLibrary();
    explicit ZSharedLibrary(char const* name);
    /// A copy of a loaded object has the same handle and its own hold on the library: the library
    /// stays loaded until each has unloaded it.
    ZSharedLibrary(ZSharedLibrary const& other);
    /// What this object had loaded stays loaded.
    ZSharedLibrary& operator=(ZSharedLibrary const& other);

    // in slot order: do not sort
    ~ZSharedLibrary() override;
    /// Of the library's name: objects that name the same library are equal.
    [[nodiscard]] unsigned long hash() const override;
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override;
    /// Loads the library under its name or, when that fails, under the name without each
    /// alternative suffix where it has it, with the suffix where it has not; the first that loads
    /// is taken. Then runs initialize(). Returns 0. A load on top of a load replaces the handle;
    /// the library then wants to be unloaded twice.
    /// Throws ZSharedLibraryLoadException (message 51) with the number and text of the failure
    /// under the name itself, the handle as it was; an empty name is never tried, and its number is
    /// 2, ENOENT; and with the text "initialize" when that hook
    /// returns something else than 0, the library loaded and the handle stored.
    int loadLibrary() override;
    /// Throws ZSharedLibraryResolveException (message 52): the library is not loaded, has no such
    /// symbol, or `name` is null; a symbol whose address is null counts as none.
    void* resolveSymbol(char const* name) override;
    /// Throws ZSharedLibraryLoadException (message 51): it is not loaded, or the loader refuses;
    /// the handle stays as it was.
    int unloadLibrary() override;

    /// The loader's handle; null while not loaded.
    [[nodiscard]] void* getHandle() const { return handle; }
    /// Whether other libraries can use the symbols of this one: 0 lets them (RTLD_GLOBAL), else
    /// they are its own. For the next load; as long as no resolution is set, the flags can become
    /// 0 and then stand for the default mode, which is global. With RTLD_GLOBAL alone, functions
    /// are looked up as with RTLD_LAZY.
    void setLocalScope(int local);
    /// Returns 0 always, whatever was set.
    [[nodiscard]] int getLocalScope() const;
    /// Whether functions that the library needs are looked up when first called (RTLD_LAZY, not 0)
    /// or all while it is loaded (RTLD_NOW, 0). For the next load.
    void setLazyResolution(int lazy);
    /// Whether RTLD_LAZY is set: 1 or 0.
    [[nodiscard]] int getLazyResolution() const;
    /// Notes a failure: `err` and the loader's pending text, which is then no longer pending.
    void setLastError(int err);

  private:
    [[nodiscard]] void* openAlternative(ZLCString const& suffix) const;

    void* handle = nullptr;
};

#endif
