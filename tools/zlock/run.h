/// Runs a command while a lock is held.
#ifndef ZFC_TOOLS_ZLOCK_RUN_H
#define ZFC_TOOLS_ZLOCK_RUN_H

namespace zlock {

/// Runs `command`, a null-terminated argument list whose first word is looked up along PATH, and
/// waits for its end. Signals that this process gets meanwhile go on to the command, but for those
/// of the terminal, which reach it by themselves. The command starts with the signal mask of the
/// caller. Returns its exit status, or 128 and the number of the signal that ended it. Throws
/// std::system_error when it cannot be run.
[[nodiscard]] int runCommand(char* const* command);

}  // namespace zlock

#endif
