#!/usr/bin/env bash
# Which lines and branches of src the 64-bit tests run, after installing what is missing: for each room
# and in all. Branches that only an exception takes do not count. Exits 1 when less than 90 % of the
# branches are taken; build/coverage/html/index.html shows each line.
# usage: coverage.sh
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

folder=$root/build/coverage

# Only src is instrumented, and counts exactly also where threads meet.
build() {
    local flags="--coverage -fprofile-update=atomic -fprofile-filter-files=$root/src/.*"
    local source=$root/scripts/checks/coverage_exit.c part exit
    exit=$folder/exit-$(cksum <"$source" | tr ' ' -)  # another name makes the build link anew
    mkdir -p "$folder"
    for part in LIBRARY PROGRAM; do
        gcc -c -fPIC "-DIN_$part" "$source" -o "$exit-$part.o"
    done
    if command -v ccache >/dev/null; then
        export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    fi
    cmake -S "$root" -B "$folder" -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc \
        -DCMAKE_BUILD_TYPE=None -DZFC_WERROR=OFF \
        -DCMAKE_CXX_FLAGS="-O0 -w $flags" -DCMAKE_C_FLAGS="-O0 -w $flags" \
        -DCMAKE_SHARED_LINKER_FLAGS="$exit-LIBRARY.o" \
        -DCMAKE_EXE_LINKER_FLAGS="$exit-PROGRAM.o"
    cmake --build "$folder"
    # What sources that were moved or removed have left would be counted, or stop the counting.
    ninja -C "$folder" -t cleandead
    find "$folder" -name '*.gcno' | while read -r note; do
        [[ -e ${note%.gcno}.o ]] || rm "$note"
    done
    find "$folder" -name '*.gcda' -delete
}

# Checks of the finished library run nothing of it.
run_tests() {
    ctest --test-dir "$folder" --no-tests=error --output-on-failure --timeout 120 -LE '^slow$' \
        -E '^(abi|headers|install|refused)(/|$)'
}

count() {
    mkdir -p "$folder/html"
    (cd "$folder" && gcovr --root "$root" --filter "$root/src/" --exclude-throw-branches -j "$jobs" \
        --json-summary summary.json --html-details html/index.html .)
}

[[ $# -eq 0 ]] || die "usage: coverage.sh"
install_missing "${test_packages[@]}" gcovr
mkdir -p "$logs"
say "building in build/coverage ..."
build >"$logs/coverage-build.log" 2>&1 ||
    show_and_die coverage-build.log "the build for coverage failed"
say "running the tests ..."
run_tests >"$logs/coverage-tests.log" 2>&1 ||
    show_and_die coverage-tests.log "tests of the build for coverage failed"
count >"$logs/coverage.log" 2>&1 || show_and_die coverage.log "gcovr failed"
"$root/scripts/checks/coverage_rooms.py" "$folder/summary.json" 90
