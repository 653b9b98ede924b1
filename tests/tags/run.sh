#!/usr/bin/env bash
# Builds the library once more under another version tag, with zlib alone, and uses both in one
# process.
# usage: run.sh BUILD_DIR CXX CC [COMPILER_FLAG...]
set -euo pipefail

build=$1 cxx=$2 cc=$3
compiler_flags=("${@:4}")
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=$(cd "$here/../.." && pwd)
other=$build/tests/tags/other
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# check COMMAND...: its output matters only when it fails.
check() {
    "$@" >"$work/log" 2>&1 || { echo "tags test: failed: $*: $(<"$work/log")" >&2 && exit 1; }
}

# against PREFIX OUTPUT ARGUMENT...: compiles and links with the library in the prefix; a library of
# the test's own when the output is called so.
against() {
    local prefix=$1 output=$2 flags
    [[ $output != *.so ]] || set -- "$@" -fPIC -fvisibility=hidden -shared
    read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs zfc)"
    check "$cxx" "${compiler_flags[@]}" -std=c++17 "${@:3}" "${flags[@]}" \
        "-Wl,-rpath,$prefix/lib" -o "$work/$output"
}

check cmake -S "$source" -B "$other" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZFC_TAG=_9_9_9 \
    -DZFC_BUILD_TOOLS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_{CLI11,nlohmann_json,GTest}=ON \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_FLAGS="${compiler_flags[*]}" -DCMAKE_C_FLAGS="${compiler_flags[*]}"
check cmake --build "$other"
check cmake --install "$build" --prefix "$work/this"
check cmake --install "$other" --prefix "$work/other"
release=$(basename "$work"/this/lib/libzfc.so._*)

against "$work/this" libfirst.so -DSIDE=first "$here/both.cpp"
against "$work/other" libsecond.so -DSIDE=second "$here/both.cpp"
check "$cxx" "${compiler_flags[@]}" -std=c++17 "$here/both.cpp" -L"$work" -lfirst -lsecond \
    "-Wl,-rpath,$work" -o "$work/both"
# The example program loads a plug-in of its own release, and one of the other.
against "$work/this" plugins -DZFC_DATA_DIR=\"unused\" "$source/examples/plugins.cpp"
against "$work/this" libours.so "$source/examples/greeter.cpp"
against "$work/other" libtheirs.so "$source/examples/greeter.cpp"

# Both libraries lie in one directory without one replacing the other.
check cmake --install "$other" --prefix "$work/this"
check test "$(find "$work/this/lib" -name 'libzfc.so._*' | wc -l)" -eq 2
check "$work/both"
check test "$("$work/plugins" "$work/libours.so" Ada)" = \
    "Hello, Ada! (said with release ${release#libzfc.so.})"
check test "$("$work/plugins" "$work/libtheirs.so" Ada)" = "Hello, Ada! (said with release _9_9_9)"
