/// The one lock of the codeset layer. Every change of its tables is made under it, and every making
/// of a locale or converter, for which the C library holds locks that no fork takes care of.
#ifndef QCS_QCS_FORK_H
#define QCS_QCS_FORK_H

#include "qcs/qcs.h"

namespace qcs {

/// Holds the layer's lock for the scope; may be nested.
class Guard {
  public:
    Guard() { qcs_lock(); }
    ~Guard() { qcs_unlock(); }
    Guard(Guard const&) = delete;
    Guard& operator=(Guard const&) = delete;
};

}  // namespace qcs

#endif
