/// Codesets by handle.
#ifndef QCS_QCS_CODESET_H
#define QCS_QCS_CODESET_H

#include <atomic>
#include <memory>
#include <string>

#include "qcs/qcs.h"
#include "qcs/qcs_codec.h"

namespace qcs {

/// One codeset; all but the count is constant once its handle is out.
struct Codeset {
    std::string iconvName;
    std::unique_ptr<TableCodec> table;    ///< null: this is UTF-8
    std::atomic<unsigned> references{0};  ///< handles given out; 0: the handle counts as none
};

/// The codeset of a handle, null when it is none. Never waits.
Codeset const* findCodeset(qcs_cs_handle cs);

/// Gives the codec of a handle to `body`, or answers `otherwise` when the handle is none.
template <class Result, class Body>
Result withCodec(qcs_cs_handle cs, Result otherwise, Body&& body) {
    Codeset const* const codeset = findCodeset(cs);
    if (codeset == nullptr) return otherwise;
    return codeset->table == nullptr ? body(Utf8Codec()) : body(*codeset->table);
}

}  // namespace qcs

#endif
