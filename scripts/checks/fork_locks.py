#!/usr/bin/env python3
"""Every lock that the library holds for the whole process is safe over a fork.

The child of a fork has no thread that could release what another thread of the parent held. So such
locks stand in a few homes, which are told of every fork; a mutex anywhere else is a complaint,
printed as FILE:LINE. Locks that are part of an object are its user's, and need none.

usage: fork_locks.py [TREE]    (default: the tree this script stands in)
"""
import re
import sys
from pathlib import Path

TREE = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parents[2]).resolve()
SRC = TREE / "src"
HOMES = {
    "qcs/qcs_fork.cpp",  # the codeset layer's one
    "Z/threads/forked_child.cpp",  # ZNoFork and ZOwnLock
    "Z/process_locks/register.cpp",  # of all process locks: stop(), goOn(), beChild()
}
# A mutex of the C++ or C library, which no object of the library has as a plain member or variable,
# and a lock of ours that is static, or a member or variable in a source.
SYSTEM = re.compile(
    r"\bstd::\w*(mutex|semaphore)\s+\w+\s*[;{=]"
    r"|\bpthread_(mutex|rwlock|spinlock|cond)_t\s+\w+\s*[;{=]|PTHREAD_(MUTEX|RWLOCK|COND)_INITIALIZER")
OURS = r"\bZ(Lock|ReadWriteLock|Condition|BooleanCondition)\b"
STATIC = re.compile(
    rf"\b(static|inline|extern|thread_local)\b[^()]*{OURS}[&*\s]+(const\s+)?\w+\s*[;{{=]")
OBJECT = re.compile(rf"^\s*(mutable\s+)?{OURS}\s+\w+\s*[;{{=]")


def has_lock(path, line):
    if line.lstrip().startswith("//"):
        return False
    return bool(SYSTEM.search(line) or STATIC.search(line)
                or (path.suffix == ".cpp" and OBJECT.search(line)))


complaints = []
for path in sorted(p for p in SRC.rglob("*") if p.suffix in {".cpp", ".h"}):
    if path.relative_to(SRC).as_posix() in HOMES:
        continue
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if has_lock(path, line):
            complaints.append(f"{path.relative_to(TREE)}:{number}: a lock of the whole process that "
                              "no fork is told of; make it a ZOwnLock")
print("\n".join(complaints + [f"fork locks: {len(complaints)} complaints"]))
sys.exit(1 if complaints else 0)
