/// The records behind the handles of the C interface, and its one way of calling into C++.
#ifndef Z_C_INTERFACE_HANDLES_H
#define Z_C_INTERFACE_HANDLES_H

#include <cstdint>
#include <exception>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/zproperties_c.h"

namespace zfc::c_interface {

constexpr std::uint32_t firstMarker = 0xbeeff00d;
constexpr std::uint32_t secondMarker = 0xd00ffeeb;

/// A word of a record that tells a handle from other memory. Overwritten at its end, so that the
/// freed memory is no handle any more; volatile, because a compiler may drop stores to a dying
/// object.
class Marker {
  public:
    explicit Marker(std::uint32_t value) : word(value) {}
    ~Marker() { word = 0; }
    Marker(Marker const&) = delete;
    Marker& operator=(Marker const&) = delete;
    [[nodiscard]] bool is(std::uint32_t value) const { return word == value; }

  private:
    volatile std::uint32_t word;
};

enum IteratorKind { overKeys = 1, overValues = 2 };

}  // namespace zfc::c_interface

/// A properties handle of any file format.
struct ZPROP_handle {
    explicit ZPROP_handle(ZPROPOpenMode openMode)
        : first(zfc::c_interface::firstMarker),
          mode(openMode),
          second(zfc::c_interface::secondMarker) {}
    virtual ~ZPROP_handle();
    ZPROP_handle(ZPROP_handle const&) = delete;
    ZPROP_handle& operator=(ZPROP_handle const&) = delete;

    [[nodiscard]] bool isValid() const {
        return first.is(zfc::c_interface::firstMarker) && second.is(zfc::c_interface::secondMarker);
    }

    zfc::c_interface::Marker first;
    ZPROPOpenMode mode;  // Layout: edits and stores work in either
    zfc::c_interface::Marker second;
};

struct ZPROP_stz_handle : ZPROP_handle {
    ZPROP_stz_handle(char const* file, ZPROPOpenMode openMode);
    ~ZPROP_stz_handle() override;

    ZStanzaFileProperties properties;
};

/// What the iterators offer; what one does not raises ZPropertiesIteratorException (message 42), as
/// does whatever needs a current entry where there is none.
struct ZPROP_iter_handle {
    explicit ZPROP_iter_handle(zfc::c_interface::IteratorKind iteratorKind)
        : kind(iteratorKind),
          first(zfc::c_interface::firstMarker),
          second(zfc::c_interface::secondMarker) {}
    virtual ~ZPROP_iter_handle();
    ZPROP_iter_handle(ZPROP_iter_handle const&) = delete;
    ZPROP_iter_handle& operator=(ZPROP_iter_handle const&) = delete;

    virtual bool next() = 0;
    virtual char const* key() = 0;
    virtual char const* value() = 0;
    virtual unsigned int numKeys() = 0;
    virtual unsigned int numValues();
    virtual void addValue(char const* text);
    virtual void changeValue(char const* text);
    virtual void removeValue();

    [[nodiscard]] bool isValid() const {
        return first.is(zfc::c_interface::firstMarker) &&
               second.is(zfc::c_interface::secondMarker) &&
               (kind == zfc::c_interface::overKeys || kind == zfc::c_interface::overValues);
    }

    int kind;  // a zfc::c_interface::IteratorKind
    zfc::c_interface::Marker first;
    zfc::c_interface::Marker second;
};

namespace zfc::c_interface {

template <class Handle>
[[nodiscard]] bool isHandle(Handle const* handle) {
    return handle != nullptr && handle->isValid();
}

/// Keeps the text for zstzPropLastError(). Without memory the text says that.
void noteFailure(ZException const& failure) noexcept;
/// Of an exception that is none of the library's.
void noteUnknownFailure() noexcept;
/// ZPROP_INVALID_ARGUMENT, with its text, for an argument that is missing or bad by itself.
[[nodiscard]] int refusedArgument() noexcept;

/// The code for an exception of the library.
[[nodiscard]] int codeOf(ZException const& failure, int refused, int otherwise) noexcept;

/// Runs `body` and tells by a code how it ended: `refused` for an argument that the library does
/// not take, `otherwise` for what has no code of its own.
template <class Body>
[[nodiscard]] int guarded(int refused, int otherwise, Body body) {
    try {
        body();
        return ZPROP_OK;
    } catch (ZException const& failure) {
        noteFailure(failure);
        return codeOf(failure, refused, otherwise);
    } catch (...) {
        // What is caught and is no C++ exception is the unwinding of a cancelled thread. It must
        // not end here. (Catching it by its own type would bind a reference to no object.)
        if (!std::current_exception()) throw;
        noteUnknownFailure();
        return otherwise;
    }
}

/// The same for an edit; whatever it fails with has one code, but for an iterator's.
template <class Body>
[[nodiscard]] int edited(bool isValid, Body body) {
    if (!isValid) return refusedArgument();
    return guarded(ZPROP_EDIT_ERROR, ZPROP_EDIT_ERROR, body);
}

/// The same for a question: what `body` returns, or with a code other than ZPROP_OK nothing.
template <class Result, class Body>
[[nodiscard]] Result answered(bool isValid, int* rc, Body body) {
    Result result{};
    int const code = isValid ? guarded(ZPROP_INVALID_ARGUMENT, ZPROP_IO_ERROR,
                                       [&] { result = static_cast<Result>(body()); })
                             : refusedArgument();
    if (rc != nullptr) *rc = code;
    return code == ZPROP_OK ? result : Result{};
}

}  // namespace zfc::c_interface

#endif
