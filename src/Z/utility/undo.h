/// Shared. What is undone when a later step fails.
#ifndef Z_UTILITY_UNDO_H
#define Z_UTILITY_UNDO_H

#include <utility>

/// Runs `action` at the end of its scope, in whatever way that ends, unless keep() was called.
/// `action` throws nothing.
template <class Action>
class ZUndo {
  public:
    [[nodiscard]] explicit ZUndo(Action planned) : action(std::move(planned)) {}
    ~ZUndo() {
        if (!kept) action();
    }
    ZUndo(ZUndo const&) = delete;
    ZUndo& operator=(ZUndo const&) = delete;

    void keep() noexcept { kept = true; }

  private:
    Action action;
    bool kept = false;
};

#endif
