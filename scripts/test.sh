#!/usr/bin/env bash
# Builds and tests everything, after installing what is missing; stops at the first error.
# usage: test.sh [--quick | --stress SECONDS]
#   --quick            the checks of sources, the 64-bit build and its tests alone
#   --stress SECONDS   how long the process locks are put under stress (20)
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

summary=()

# step TITLE COMMAND...: runs it and notes how long it took and what its tests closed with.
step() {
    local title=$1 begin=$SECONDS
    shift
    closing=
    say "== $title"
    "$@"
    summary+=("$(printf '%4d s  %-52s %s' $((SECONDS - begin)) "$title" "$closing")")
    say "   $((SECONDS - begin)) s${closing:+, $closing}"
}

# run_tests PRESET LOG [CTEST_OPTION...]
run_tests() {
    local preset=$1 log=$2
    shift 2
    (cd "$root" && ctest --preset "$preset" --no-tests=error "$@") >"$logs/$log" 2>&1 ||
        show_and_die "$log" "tests of the build \"$preset\" failed"
    closing=$(grep -E 'tests passed' "$logs/$log")
}

# build_and_test PRESET [CMAKE_OPTION...]
build_and_test() {
    configure_and_build "$@"
    run_tests "$1" "$1-tests.log"
}

# What no build changes is checked once, before the first of them.
check_sources() {
    "$root/scripts/checks/rooms.py" >"$logs/rooms.log" 2>&1 ||
        show_and_die rooms.log "an include breaks the order of rooms, or a file has none"
    "$root/scripts/checks/fork_locks.py" >"$logs/fork-locks.log" 2>&1 ||
        show_and_die fork-locks.log "a lock of the library is not safe over a fork"
    "$root/scripts/checks/examples_in_docs.py" >"$logs/examples-in-docs.log" 2>&1 ||
        show_and_die examples-in-docs.log "a page shows a program that is none of examples/"
    "$root/scripts/checks/format.sh" >"$logs/format.log" 2>&1 ||
        show_and_die format.log "files are not formatted; clang-format-14 -i puts them right"
    (cd "$root" && shellcheck -x .ci/run scripts/*.sh scripts/checks/*.sh tests/*/*.sh) \
        >"$logs/shellcheck.log" 2>&1 ||
        show_and_die shellcheck.log "shellcheck objects to a script"
    "$root/scripts/man_pages.py" --check >"$logs/manual.log" 2>&1 ||
        show_and_die manual.log "a manual page is not as its header says, or mandoc objects to one"
}

site() {
    "$root/scripts/site.sh" --check >"$logs/site.log" 2>&1 ||
        show_and_die site.log "the site cannot be made: a contract, a page or a link is wrong"
}

demonstration() {
    "$root/scripts/demo.sh" "$root/build/release" >"$logs/demo.log" 2>&1 ||
        show_and_die demo.log "the demonstration failed"
}

slow_tests() {
    (cd "$root" && ctest --test-dir build/release --output-on-failure --no-tests=error -L '^slow$') \
        >"$logs/slow-tests.log" 2>&1 || show_and_die slow-tests.log "a slow test failed"
    closing=$(grep -E 'tests passed' "$logs/slow-tests.log")
}

# Processes of both word sizes share one lock and are killed, stopped and started again.
stress_locks() {
    timeout $((stress_seconds + 120)) "$root/build/release/tests/process_lock_stress" \
        "$stress_seconds" "$root/build/m32/tests/process_lock_stress" >"$logs/stress.log" 2>&1 ||
        show_and_die stress.log "process locks failed under stress"
    closing=$(sed 's/;.*//' "$logs/stress.log")
}

stress_seconds=20
if [[ $# -eq 2 && $1 == --stress && $2 =~ ^[1-9][0-9]*$ ]]; then
    stress_seconds=$2
elif [[ $# -gt 1 || ${1---quick} != --quick ]]; then
    die "usage: test.sh [--quick | --stress SECONDS]"
fi

install_missing "${test_packages[@]}"
mkdir -p "$logs"
step "sources: rooms, formatting, shell scripts" check_sources
if [[ ${1-} == --quick ]]; then
    step "64-bit build and tests" build_and_test release
else
    step "64-bit build and tests" build_and_test release -DZFC_BUILD_BENCH=ON
    step "the site: contracts, pages, links" site
    step "the demonstration" demonstration
    step "clang: thread-safety analysis, clang-tidy, tests" build_and_test clang -DZFC_BUILD_FUZZ=ON
    step "32-bit build, hardened, and the same tests" build_and_test m32
    step "both word sizes on the same files" "$root/tests/words/run.sh" \
        "$root/build/release/tools/zprop" "$root/build/m32/tools/zprop"
    step "process locks under stress, both word sizes" stress_locks
    step "address, undefined-behaviour and leak sanitizers" build_and_test asan
    step "thread sanitizer" build_and_test tsan
    step "two releases in one process and other slow tests" slow_tests
fi

say
printf '%s\n' "${summary[@]}"
printf '        %s\n' "$("$root/scripts/checks/size.sh")"
say
sed -n '/tests passed/,$p' "$logs/release-tests.log"
say "all passed in $SECONDS s"
