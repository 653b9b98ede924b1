#!/usr/bin/env bash
# Installs a build by its components and takes it away again: together they are the whole, each file
# is in one of them, each C function has a manual page, and the target "uninstall" leaves what others
# put beside our files and nothing else.
# usage: installed.sh BUILD_DIR
set -euo pipefail

build=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=scripts/checks/manifests.sh
source "$(dirname "${BASH_SOURCE[0]}")/manifests.sh"
keep_manifests "$build"

fail() {
    echo "installed: $*" >&2
    exit 1
}

quiet() {
    "$@" >"$work/log" 2>&1 || fail "failed: $*: $(<"$work/log")"
}

# files PREFIX...: what lies in them, by its name below the prefix, which is a folder of what gdb loads.
files() {
    local prefix
    for prefix in "$@"; do
        (cd "$prefix" && find . ! -type d | sed "s|/auto-load$prefix/|/auto-load/|")
    done | LC_ALL=C sort
}

components=("$work"/{runtime,development,tools,documentation})
for component in "${components[@]}"; do
    mkdir "$component"
    quiet cmake --install "$build" --prefix "$component" --component "${component##*/}"
done
quiet cmake --install "$build" --prefix "$work/whole"
diff <(files "${components[@]}") <(files "$work/whole") ||
    fail "the components (<) are not the whole (>)"
[[ -z $(find "$work/runtime" -name '*.h' -o -name libzfc.so) ]] ||
    fail "runtime holds a part of development"

functions=$(grep -oP '^ZFC_API .*?\K\w+(?=\()' "$root/src/Z/zproperties_c.h")
[[ -n $functions ]] || fail "no C functions were found"
for function in $functions; do
    page=$work/whole/share/man/man3/$function.3
    [[ -f $page ]] || fail "there is no page for $function"
    target=$(sed -n 's/^\.so //p' "$page")
    [[ -z $target ]] || grep -q "^\.Nm $function\b" "$work/whole/share/man/$target" ||
        fail "the page of $function leads to one that does not tell of it"
done

touch "$work/whole/include/foreign.h" "$work/whole/share/zfc/qcs/foreign"
quiet cmake --build "$build" --target uninstall
left=$(files "${components[@]}" "$work/whole")
[[ $left == $'./include/foreign.h\n./share/zfc/qcs/foreign' ]] ||
    fail "another's file went, or one of ours stays: $left"
own=$(find "$work" -type d -regex '.*/\(include/Z\|cmake/zfc\|doc/zfc\|runtime/share/zfc\)\(/.*\)?')
[[ -z $own ]] || fail "these folders stay: $own"
echo "installed: ${#components[@]} components, $(wc -w <<<"$functions") C functions"
