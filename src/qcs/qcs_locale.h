/// Locales by handle, and the one locale that all character classes come from.
#ifndef QCS_QCS_LOCALE_H
#define QCS_QCS_LOCALE_H

#include <locale.h>

#include "qcs/qcs.h"
#include "qcs/qcs_codec.h"

namespace qcs {

/// The locale of a handle; the C locale when it is none.
locale_t findLocale(qcs_loc_handle loc);

/// The C.UTF-8 locale's classes and case; those of C on a system without it.
locale_t characterLocale();

/// The upper (lower) case of a code point; itself when it has none.
CodePoint upperCase(CodePoint code);
CodePoint lowerCase(CodePoint code);

}  // namespace qcs

#endif
