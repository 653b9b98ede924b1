#include "qcs/qcs_fork.h"

#include <mutex>
#include <new>

#include "qcs/qcs_locale.h"

namespace {

// Neither made nor destroyed at run time: text is handled from the very beginning to the very end.
std::recursive_mutex layer;

}  // namespace

void qcs_lock() { layer.lock(); }
void qcs_unlock() { layer.unlock(); }

void qcs_before_fork() {
    // Made now if they were not yet: at their first use they are made without the lock.
    qcs::findLocale(0);
    qcs::characterLocale();
    layer.lock();
}

// Made anew: a recursive one knows its owner by an id that is another one in the child.
void qcs_in_child() { new (&layer) std::recursive_mutex; }
