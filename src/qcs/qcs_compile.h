/// Compiling a codeset of the system's iconv into tables, and converting whole text through iconv.
#ifndef QCS_QCS_COMPILE_H
#define QCS_QCS_COMPILE_H

#include <memory>
#include <string>

#include "qcs/qcs_codec.h"

namespace qcs {

/// Tries every byte sequence of the codeset once (a tenth of a millisecond for a single-byte one, a
/// few milliseconds for a double-byte one). Null when iconv has none of that name or it cannot
/// stand in NUL-terminated text; see qcs.h.
std::unique_ptr<TableCodec> compileCodeset(std::string const& iconvName);

/// Bytes written, -1 when iconv refuses. Safe from any thread: the descriptor is the call's own.
int convertByIconv(char const* to, char const* from, char const* in, std::size_t inLen, char* out,
                   std::size_t outLen);

}  // namespace qcs

#endif
