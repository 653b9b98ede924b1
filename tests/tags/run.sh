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

# shim LIBRARY_PREFIX NAME: a library of the test's own, built against the one in the prefix.
shim() {
    local flags
    read -ra flags <<<"$(PKG_CONFIG_PATH=$1/lib/pkgconfig pkg-config --cflags --libs zfc)"
    quiet "$cxx" "${compiler_flags[@]}" -std=c++17 -fPIC -fvisibility=hidden -shared -DSHIM="$2" \
        "$here/shim.cpp" "${flags[@]}" "-Wl,-rpath,$1/lib" -o "$work/lib$2.so"
}

compiler_flags=("$@")
quiet cmake -S "$source" -B "$other" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZFC_TAG=_9_9_9 \
    -DZFC_BUILD_TESTS=OFF -DZFC_BUILD_TOOLS=OFF -DZFC_BUILD_EXAMPLES=OFF \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_FLAGS="$*" -DCMAKE_C_FLAGS="$*"
quiet cmake --build "$other"
quiet cmake --install "$build" --prefix "$work/this"
quiet cmake --install "$other" --prefix "$work/other"

shim "$work/this" first
shim "$work/other" second
quiet "$cxx" "$@" -std=c++17 "$here/both.cpp" -L"$work" -lfirst -lsecond \
    "-Wl,-rpath,$work" -o "$work/both"

# Both libraries lie in one directory without one replacing the other.
quiet cmake --install "$other" --prefix "$work/this"
[[ $(find "$work/this/lib" -name 'libzfc.so._*' | wc -l) -eq 2 ]] || {
    echo "tags test: the two libraries share a file name" >&2
    exit 1
}

"$work/both"
