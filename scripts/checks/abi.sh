#!/usr/bin/env bash
# Holds the binary interface of the 64-bit library against the one that data/abi keeps for its tag,
# and names every change: functions that came or went, types of arguments, sizes, fields and slots of
# public classes. What no public header defines, and private functions, do not count. Needs
# abigail-tools.
# usage: abi.sh [LIBRARY]             LIBRARY is built with -g; without it one is built in build/abi
#        abi.sh --renew [LIBRARY]     makes this interface the one that is kept
#        abi.sh --symbols LIBRARY     whether all kept functions are there; any build will do
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../common.sh"

tag=$(sed -n 's/^#define ZFC_TAG \(_.*\)/\1/p' "$root/src/Z/ztags.h")
kept=$root/data/abi/libzfc.so.$tag.abi.xz
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build_library() {
    library=$root/build/abi/src/libzfc.so.$tag
    mkdir -p "$logs"
    { cmake -S "$root" -B "$root/build/abi" -G Ninja -DCMAKE_BUILD_TYPE=None \
        -DCMAKE_CXX_FLAGS="-O2 -g" -DCMAKE_C_FLAGS="-O2 -g" -DZFC_BUILD_TESTS=OFF \
        -DZFC_BUILD_TOOLS=OFF -DZFC_BUILD_EXAMPLES=OFF &&
        cmake --build "$root/build/abi" --target zfc; } >"$logs/abi-build.log" 2>&1 ||
        show_and_die abi-build.log "the library with types could not be built"
}

# Places and names of arguments are no part of it.
describe() {
    mkdir "$work/public"
    cp "$root"/src/Z/*.h "$work/public"
    abidw --exported-interfaces-only --drop-undefined-syms --drop-private-types \
        --headers-dir "$work/public" --no-show-locs --no-corpus-path --no-comp-dir-path \
        --no-parameter-names --no-write-default-sizes --type-id-style hash \
        --out-file "$work/all.abi" "$1"
    "$root/scripts/checks/abi_public.py" "$work/all.abi" "$work"/public/*.h >"$work/now.abi"
}

functions() {
    sed -n 's/.*<elf-symbol name="\([^"]*\)".*type="func-type".*/\1/p' "$1" | LC_ALL=C sort
}

read_kept() {
    [[ -f $kept ]] || die "no interface is kept for the tag $tag; abi.sh --renew keeps this one"
    xz -dc "$kept" >"$work/kept.abi"
    [[ -n $(functions "$work/kept.abi") ]] || die "${kept#"$root"/} holds no functions"
}

check_symbols() {
    read_kept
    nm -D --defined-only "$1" | awk '{ print $3 }' | LC_ALL=C sort >"$work/there"
    functions "$work/kept.abi" | LC_ALL=C comm -23 - "$work/there" >"$work/gone"
    [[ ! -s $work/gone ]] ||
        die "$(wc -l <"$work/gone") functions went, which programs may call: $(c++filt <"$work/gone" | head -n 20)"
    say "abi: all $(functions "$work/kept.abi" | wc -l) kept functions are there"
}

check_interface() {
    read_kept
    if ! abidiff "$work/kept.abi" "$work/now.abi" >"$work/changes" 2>&1; then
        cat "$work/changes" >&2
        die "the binary interface changed; when that is meant, scripts/checks/abi.sh --renew"
    fi
    say "abi: nothing changed in $(functions "$work/now.abi" | wc -l) functions and their types"
}

case ${1-} in
--symbols)
    [[ $# -eq 2 ]] || die "usage: abi.sh --symbols LIBRARY"
    check_symbols "$2"
    exit
    ;;
--renew) renew=1 library=${2-} ;;
*) renew=0 library=${1-} ;;
esac

[[ -n $library ]] || build_library
describe "$library"
if [[ $renew -eq 1 ]]; then
    mkdir -p "${kept%/*}"
    xz -9c "$work/now.abi" >"$kept"
    say "abi: kept in ${kept#"$root"/}"
else
    check_interface
fi
