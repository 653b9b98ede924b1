#!/usr/bin/env bash
# Builds the library once more under another version tag and uses it beside this build's library,
# in one process.
# usage: run.sh BUILD_DIR CXX CC [COMPILER_FLAG...]
set -euo pipefail

build=$1 cxx=$2 cc=$3
shift 3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=$(cd "$here/../.." && pwd)
other=$build/tests/tags/other
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# quiet COMMAND...: its output matters only when it fails.
quiet() {
    "$@" >"$work/log" 2>&1 || {
        cat "$work/log" >&2
        echo "tags test: failed: $*" >&2
        exit 1
    }
}

# against PREFIX OUTPUT ARGUMENT...: compiles and links with the library in the prefix.
against() {
    local prefix=$1 output=$2 flags
    shift 2
    read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags --libs zfc)"
    quiet "$cxx" "${compiler_flags[@]}" -std=c++17 "$@" "${flags[@]}" "-Wl,-rpath,$prefix/lib" \
        -o "$work/$output"
}

# library PREFIX NAME ARGUMENT...: the same for a library of the test's own.
library() {
    against "$1" "lib$2.so" -fPIC -fvisibility=hidden -shared "${@:3}"
}

compiler_flags=("$@")
quiet cmake -S "$source" -B "$other" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZFC_TAG=_9_9_9 \
    -DZFC_BUILD_TESTS=OFF -DZFC_BUILD_TOOLS=OFF -DZFC_BUILD_EXAMPLES=OFF \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_FLAGS="$*" -DCMAKE_C_FLAGS="$*"
quiet cmake --build "$other"
quiet cmake --install "$build" --prefix "$work/this"
quiet cmake --install "$other" --prefix "$work/other"

library "$work/this" first -DSHIM=first "$here/shim.cpp"
library "$work/other" second -DSHIM=second "$here/shim.cpp"
quiet "$cxx" "$@" -std=c++17 "$here/both.cpp" -L"$work" -lfirst -lsecond \
    "-Wl,-rpath,$work" -o "$work/both"

release=$(basename "$work"/this/lib/libzfc.so._*)
# The example program loads a plug-in of its own release, and one of the other.
against "$work/this" plugins -DZFC_DATA_DIR=\"unused\" "$source/examples/plugins.cpp"
library "$work/this" ours "$source/examples/greeter.cpp"
library "$work/other" theirs "$source/examples/greeter.cpp"

# Both libraries lie in one directory without one replacing the other.
quiet cmake --install "$other" --prefix "$work/this"
[[ $(find "$work/this/lib" -name 'libzfc.so._*' | wc -l) -eq 2 ]] || {
    echo "tags test: the two libraries share a file name" >&2
    exit 1
}

"$work/both"
# greets PLUGIN RELEASE
greets() {
    [[ $("$work/plugins" "$work/lib$1" Ada) == "Hello, Ada! (said with release $2)" ]] || {
        echo "tags test: the plug-in lib$1.so does not greet with release $2" >&2
        exit 1
    }
}
greets ours "${release#libzfc.so.}"
greets theirs _9_9_9
