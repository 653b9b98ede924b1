#include <string>

#include "Z/c_interface/handles.h"

namespace zfc::c_interface {
namespace {

/// What zstzPropLastError() tells its thread.
struct LastError {
    std::string text;
    char const* shown = "";  // that, or a static text
};
thread_local LastError last;

void note(ZException const& failure) {
    last.shown = "Memory allocation failure.";  // until the text is there
    last.text = failure.text().getChars();
    if (failure.who() != nullptr)
        last.text.append(" (")
            .append(failure.who())
            .append(":")
            .append(std::to_string(failure.where()) + ")");
    last.shown = last.text.c_str();
}

template <class Failure>
[[nodiscard]] bool is(ZException const& failure) {
    return dynamic_cast<Failure const*>(&failure) != nullptr;
}

}  // namespace

void noteFailure(ZException const& failure) noexcept {
    try {
        note(failure);
    } catch (ZException const&) {
    } catch (std::exception const&) {  // either way there was no memory, which is noted
    }
}

void noteUnknownFailure() noexcept {
    last.shown = "An exception that is none of the library's was thrown.";
}

int refusedArgument() noexcept {
    last.shown =
        "An argument is null or none of the values that it may have, or its handle is none.";
    return ZPROP_INVALID_ARGUMENT;
}

int codeOf(ZException const& failure, int refused, int otherwise) noexcept {
    if (is<ZPropertiesMissingPropertyException>(failure)) return ZPROP_MISSING_KEY;
    if (is<ZPropertiesInvalidValueException>(failure)) return ZPROP_INVALID_VALUE;
    if (is<ZPropertiesIteratorException>(failure)) return ZPROP_ITERATOR_ERROR;
    return is<ZInvalidParameterException>(failure) ? refused : otherwise;
}

}  // namespace zfc::c_interface

char const* zstzPropLastError(void) { return zfc::c_interface::last.shown; }
