# Sourced by the scripts beside it: saying what is done, stopping with a reason, and packages.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs
jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=$jobs CTEST_PARALLEL_LEVEL=$jobs

# What each script needs, as Debian 12 names it.
build_packages=(cmake ninja-build g++ zlib1g-dev libcli11-dev nlohmann-json3-dev)
# shellcheck disable=SC2034  # used where this file is sourced
test_packages=("${build_packages[@]}" mandoc xz-utils
    g++-multilib lib32z1-dev clang-14 clang-tidy-14 clang-format-14 libclang-rt-14-dev
    libgtest-dev googletest libbenchmark-dev libglib2.0-dev
    libboost-dev libboost-thread-dev pkg-config python3 shellcheck gdb ccache)

say() {
    printf '%s\n' "$*"
}

die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

as_root() {
    if [[ $(id -u) -eq 0 ]]; then
        "$@"
    else
        sudo "$@"
    fi
}

# retry COMMAND...: up to four times, for what a network does.
retry() {
    local attempt
    for attempt in 1 2 3 4; do
        "$@" && return
        say "that failed (attempt $attempt of 4): $*" >&2
        sleep $((attempt * 3))
    done
    return 1
}

installed() {
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# install_missing PACKAGE...: installs those that are not there yet; nothing to do is no work.
install_missing() {
    local package missing=()
    command -v dpkg-query >/dev/null ||
        die "this is no Debian system; install what corresponds to: $*"
    for package in "$@"; do
        installed "$package" || missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0

    say "installing ${missing[*]}"
    [[ $(id -u) -eq 0 ]] || command -v sudo >/dev/null ||
        die "installing packages needs root or sudo"
    mkdir -p "$logs"
    local apt=(as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y
        -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300)
    # A list that cannot be had need not be one that is needed: installing decides.
    retry "${apt[@]}" update >"$logs/packages.log" 2>&1 ||
        say "not all package lists could be fetched; trying with those that are there" >&2
    retry "${apt[@]}" install --no-install-recommends "${missing[@]}" >>"$logs/packages.log" 2>&1 ||
        show_and_die packages.log "these packages could not be installed: ${missing[*]}"
}

# show_and_die LOG REASON: the log's end, without the lines of tests that passed, and the reason.
show_and_die() {
    grep -vE '^ *Start +[0-9]+:|  Passed +[0-9.]+ sec' "$logs/$1" | tail -n 150 >&2 || true
    die "$2 (the whole log: build/logs/$1)"
}

# configure_and_build PRESET [CMAKE_OPTION...]
configure_and_build() {
    local preset=$1
    shift
    if command -v ccache >/dev/null; then
        export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    fi
    mkdir -p "$logs"
    (cd "$root" && cmake --preset "$preset" "$@" && cmake --build --preset "$preset") \
        >"$logs/$preset-build.log" 2>&1 ||
        show_and_die "$preset-build.log" "the build \"$preset\" failed"
}
