#!/usr/bin/env bash
# Plants one fault for each check and sees it found: a check that cannot fail guards nothing.
# usage: selftest.sh SHARED_LIBRARY STATIC_LIBRARY TAG
set -euo pipefail

shared=$1 static=$2 tag=$3
checks=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$checks/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# rejects PATTERN COMMAND...: the command fails and says PATTERN.
rejects() {
    local pattern=$1 output
    shift
    if output=$("$@" 2>&1); then
        echo "selftest: accepted a planted fault: $*" >&2
        exit 1
    fi
    grep -q -- "$pattern" <<<"$output" || {
        printf 'selftest: expected "%s" from %s, got:\n%s\n' "$pattern" "$*" "$output" >&2
        exit 1
    }
}

mkdir -p "$work/tree/scripts" "$work/tree/src/Z/low" "$work/tree/src/Z/high" "$work/tree/src/qcs"
cd "$work/tree/src"
printf 'low\nhigh\n' >../scripts/rooms.txt
printf '#include "Z/ztags.h"\n#include "Z/high.h"\n' >Z/low.h
printf '#include "Z/ztags.h"\n' | tee Z/high.h Z/stray.h >Z/misplaced.cpp
printf '#include "Z/low.h"\n' | tee Z/low/low.cpp >qcs/qcs.h
printf '#include "Z/high.h"\n#include "Z/low/hidden.h"\n' >Z/high/high.cpp
printf '/// Of low alone.\n' >Z/low/hidden.h
rejects 'low.h of low includes Z/high.h of high' "$checks/rooms.py" "$work/tree"
rejects 'stray.h:1: has no room' "$checks/rooms.py" "$work/tree"
rejects 'misplaced.cpp:1: the top of src/Z is for public headers' "$checks/rooms.py" "$work/tree"
rejects 'hidden.h is private to low' "$checks/rooms.py" "$work/tree"
rejects 'the codeset layer stands alone' "$checks/rooms.py" "$work/tree"
printf 'ZLock& lock() {\n    static ZLock& one = *new ZLock;\n    return one;\n}\nstd::mutex other;\n' >Z/lock.cpp
for line in 2 5; do
    rejects "lock.cpp:$line: a lock of the whole process" "$checks/fork_locks.py" "$work/tree"
done
cd "$root"

# Two neighbours change places: two names, then two overloads of one name.
sed '/^    who()$/{h;d}; /^    where()$/{G}' "$root/tests/abi/slots.txt" >"$work/names.txt"
rejects 'ZException: slot 9 is who, listed is where' "$checks/slots.py" "$work/names.txt"
sed '/^    indexOf(int,/{h;d}; /^    indexOf(const char/{G}' "$root/tests/abi/slots.txt" \
    >"$work/overloads.txt"
rejects 'ZAbstractString: indexOf(int, unsigned int) has slot' "$checks/slots.py" "$work/overloads.txt"

sed '/^LAYOUT(ZException,/s/AT(name, 8)/AT(name, 12)/' "$root/tests/abi/layout.cpp" \
    >"$work/layout.cpp"
rejects 'a field of ZException.* is misplaced' g++ -m32 -std=c++17 -fsyntax-only -fno-access-control \
    -I "$root/src" "$work/layout.cpp"

rejects 'exported, but no class or function of ztags.h' "$checks/exported.py" "$shared" "$static" \
    "${tag}_0"

rejects 'functions went.*ZGetLocale' "$checks/abi.sh" --symbols "$(g++ -print-file-name=libz.so)"

mkdir -p "$work/manual/src" "$work/manual/docs"
cp -r "$root/src/Z" "$work/manual/src"
cp -r "$root/docs/man" "$work/manual/docs"
cp -r "$root/scripts" "$work/manual"
sed -i 's/Releases the iterator/Ends the iterator/' "$work/manual/src/Z/zproperties_c.h"
sed -i 's/Memory allocation failure/Out of memory/' "$work/manual/src/Z/exceptions/messages.cpp"
printf '.Xx\n' >>"$work/manual/docs/man/zlock.1"
for fault in 'zstzPropIter_init.3 is not fresh' 'zfc-errors.7 is not fresh' 'unknown macro.*Xx'; do
    rejects "$fault" "$work/manual/scripts/man_pages.py" --check
done

printf 'int  f( ){return 1;}\n' >"$work/ugly.cpp"
rejects 'should be clang-formatted' "$checks/format.sh" "$work/ugly.cpp"

echo "selftest: every planted fault was found"
