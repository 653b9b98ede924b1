#!/usr/bin/env bash
# Measures ours beside the peers, and writes docs/benchmarks.md with its plots. Installs the peers
# that are missing. Results count only on a machine that does nothing else.
# usage: bench.sh [--check] [--m32] [ROOM...]
#   --check   writes nothing, but says which ratio to the best peer got worse than the recorded one
#             by more than a fifth, twice in a row; exits 1 when there is one
#   --m32     measures the 32-bit build, for a column of its own, beside 32-bit peers that are
#             fetched into the build folder
#   ROOM      one program of bench/, such as properties, or java: the report keeps what it has of
#             the others; without it all of them run
# Example: bench.sh format
# A program of build/bench/bench takes the options of Google Benchmark, when run by itself.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

peer_libraries=(libglib2.0-dev libsimpleini-dev libboost-dev libboost-thread-dev libpoco-dev
    qtbase5-dev libicu-dev libfmt-dev libabsl-dev libapr1-dev libdeflate-dev)
peer_packages=("${peer_libraries[@]}" default-jdk-headless git util-linux)

usage() {
    die "usage: bench.sh [--check] [--m32] [ROOM...]"
}

options=() rooms=() kind=bench flags=()
for word in "$@"; do
    case $word in
        --check) options+=(--check) ;;
        --m32)
            options+=(--m32) kind=bench-32
            ;;
        -*) usage ;;
        *) rooms+=("$word") ;;
    esac
done
build=$root/build/$kind
[[ ${#rooms[@]} -eq 0 ]] || options+=(--part)

install_missing "${build_packages[@]}" pkg-config python3 libbenchmark-dev "${peer_packages[@]}"

if [[ $kind == bench-32 ]]; then
    install_missing g++-multilib lib32z1-dev
    say "fetching the peers for 32 bits ..."
    mkdir -p "$logs"
    "$root/scripts/bench/peers_32.sh" "$build/peers" libbenchmark-dev "${peer_libraries[@]}" \
        >"$logs/peers-32.log" 2>&1 || show_and_die peers-32.log "the peers cannot be fetched"
    peers=$build/peers/root
    # The 64-bit libraries would be found, and not linked.
    export PKG_CONFIG_SYSROOT_DIR=$peers PKG_CONFIG_LIBDIR=$peers/usr/lib/i386-linux-gnu/pkgconfig
    export LD_LIBRARY_PATH=$peers/usr/lib/i386-linux-gnu:$peers/lib/i386-linux-gnu
    flags=(-DCMAKE_{C,CXX}_FLAGS=-m32 -DCMAKE_LIBRARY_ARCHITECTURE=i386-linux-gnu
        "-DCMAKE_PREFIX_PATH=$peers/usr" "-DCMAKE_LIBRARY_PATH=$peers/usr/lib/i386-linux-gnu"
        "-DCMAKE_EXE_LINKER_FLAGS=-Wl,-rpath-link,$LD_LIBRARY_PATH")
fi

say "building in build/$kind ..."
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
mkdir -p "$logs"
(cd "$root" && cmake --preset release -B "$build" "${flags[@]}" -DZFC_BUILD_BENCH=ON \
    -DZFC_BUILD_TESTS=OFF -DZFC_BUILD_EXAMPLES=OFF && cmake --build "$build") \
    >"$logs/$kind-build.log" 2>&1 || show_and_die "$kind-build.log" "the build failed"
grep 'is not built:' "$logs/$kind-build.log" || true

# What is measured: the programs that are named, all without a name, and those of the Java platform.
programs=()
for room in "${rooms[@]:-*}"; do
    [[ $room != java ]] || continue
    # shellcheck disable=SC2206  # the pattern is to be expanded
    found=("$build"/bench/$room"_bench")
    [[ -x ${found[0]} ]] || die "bench/ has no program \"${room}_bench\""
    programs+=("${found[@]}")
done
if [[ $kind == bench && " ${rooms[*]:-java} " == *" java "* ]]; then
    javac -d "$build/java" "$root/bench/JavaProperties.java"
    options+=(--java "$build/java")
fi

export QCSDIR=$root/data/qcs
exec python3 "$root/scripts/bench/run.py" "${options[@]}" "${programs[@]}"
