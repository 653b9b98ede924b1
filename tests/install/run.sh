#!/usr/bin/env bash
# Installs a build into a fresh directory, moves the tree, and compiles and runs the programs of the
# README and of examples/ as an outside project does: found by CMake and found by pkg-config. What
# runs is given no environment.
# usage: run.sh BUILD_DIR CXX CC [COMPILER_FLAG...]
set -euo pipefail

build=$1 cxx=$2 cc=$3
shift 3
outside=$(cd "$(dirname "${BASH_SOURCE[0]}")/outside" && pwd)
tree=$(cd "$outside/../../.." && pwd)
# shellcheck source=scripts/checks/manifests.sh
source "$tree/scripts/checks/manifests.sh"
keep_manifests "$build"

fail() {
    echo "install test: $*" >&2
    exit 1
}

# quiet COMMAND...: its output matters only when it fails.
quiet() {
    "$@" >"$work/log" 2>&1 || fail "failed: $*: $(<"$work/log")"
}

quiet cmake --install "$build" --prefix "$work/first"
quiet cmake --install "$build" --prefix "$work/first" --component static
mv "$work/first" "$work/moved"
prefix=$work/moved

private=$(find "$prefix/include" -name '*_*.h' \
    ! -name zproperties_c.h ! -name zinet_pton.h ! -name zinet_ntop.h)
[[ -z $private ]] || fail "private headers were installed: $private"

# The tools find the library that was installed with them, and each has a manual page that knows
# all its options and commands.
for tool in "$prefix"/bin/*; do
    [[ -x $tool ]] || continue
    quiet "$tool" --help
    page=$prefix/share/man/man1/$(basename "$tool").1
    commands=$("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p')
    options=$(for command in "" $commands; do "$tool" ${command:+"$command"} --help; done |
        sed -n 's/^  \(-[a-z],\)\?--\([a-z0-9-]*\).*/\2/p' | sort -u)
    for word in $commands $options; do
        [[ $word == help ]] || grep -qE "(Fl -|Cm )$word\b" "$page" ||
            fail "$(basename "$page") does not tell of \"$word\""
    done
done

# offered WORD...: what bash would make of the last word; the tool itself is asked.
offered() {
    # shellcheck disable=SC2016 # expanded by the other shell
    cd "$work" && PATH=$prefix/bin:$PATH bash -c 'source "$1" && COMP_WORDS=("${@:2}") &&
        COMP_CWORD=$(($# - 2)) && _zprop && printf "%s " "${COMPREPLY[@]}"' _ \
        "$prefix/share/bash-completion/completions/zprop" "$@"
}
if [[ -x $prefix/bin/zprop ]]; then
    printf '[a b]\nkey = 1\n' >"$work/words.conf"
    words="$(offered zprop unc)$(offered zprop get words.conf '')"
    words+="$(offered zprop set words.conf 'a\ b' k)$(offered zprop get --req)"
    [[ $words == 'uncomment a\ b key --required ' ]] || fail "completion offers: $words"
    grep -q '^#compdef zprop' "$prefix/share/zsh/site-functions/_zprop" ||
        fail "there is no completion for zsh"
fi

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig

# pure COMMAND...: runs it with nothing in its environment but where the system's commands are.
pure() {
    env -i PATH=/usr/bin:/bin "$@"
}

# says EXPECTED COMMAND...: runs it so; EXPECTED is what it writes.
says() {
    local output
    output=$(pure "${@:2}" 2>"$work/log") || fail "failed: ${*:2}: $(<"$work/log")"
    [[ $output == "$1" ]] || fail "expected \"$1\" of ${*:2}, not \"$output\""
}

# blocks LANGUAGE: all that the README has between fences of this language.
blocks() {
    awk -v fence="\`\`\`$1" '$0 == fence { on = 1; next } /^```$/ { on = 0 } on' "$tree/README.md"
}

# The README's programs, compiled with its lines: g++ and gcc are this build's compilers there, and
# what they link finds the library where it was moved to.
mkdir "$work/compilers" "$work/pasted"
printf '#!/bin/sh\nexec %s "$@"\n' "$(command -v "$cxx") $*" >"$work/compilers/g++"
printf '#!/bin/sh\nexec %s "$@"\n' "$(command -v "$cc") $*" >"$work/compilers/gcc"
chmod +x "$work"/compilers/*
cd "$work/pasted"
blocks cpp >settings.cpp
blocks c >settings.c
blocks sh | while IFS= read -r line; do
    if [[ $line == g[c+][c+]\ * ]]; then
        PATH=$work/compilers:$PATH LD_RUN_PATH=$prefix/lib quiet bash -c "$line"
    else
        pure bash -c "$line" || fail "the README's line failed: $line"
    fi
done >"$work/shown" || exit 1
diff "$work/shown" <(blocks text) >"$work/log" || fail "the README shows otherwise: $(<"$work/log")"

# Where this compiler and word size find zlib, which the static library needs.
libraries=$(dirname "$("$cxx" "$@" -print-file-name=libz.so)")
settings=(-G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_FLAGS="$*"
    -DCMAKE_C_FLAGS="$*" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_LIBRARY_PATH="$libraries")
quiet cmake -S "$outside" -B "$work/build" "${settings[@]}" -DREADME="$work/pasted/settings"
quiet cmake --build "$work/build"
# The library is inside: its data are found from where the program lies.
cp "$work/build/static_user" "$prefix/bin"
port=82
for program in "$work"/build/c{,xx}_user "$prefix/bin/static_user"; do
    says "port $((++port))" "$program"
done
says "$prefix/share/zfc/qcs 1 2 vendor nobody" "$work/build/names"
says "/chosen 1 2 vendor nobody" QCSDIR=/chosen "$work/build/names"

# The library alone takes its directory from the environment, as ever.
read -ra flags <<<"$(pkg-config --cflags --libs zfc) -Wl,-rpath,$prefix/lib"
quiet "$cxx" "$@" -std=c++17 settings.cpp "${flags[@]}" -o "$work/alone"
pure "$work/alone" >"$work/log" 2>&1 && fail "a string was made without QCSDIR"
grep -q 'QCSDIR environment variable is not set' "$work/log" || fail "no reason: $(<"$work/log")"
says "port 86" QCSDIR="$(pkg-config --variable=qcsdir zfc)" "$work/alone"

# The tree inside of another project; compiling the library once more is left out.
quiet cmake -S "$outside/../inside" -B "$work/inside" "${settings[@]}" -DZFC_TREE="$tree" \
    -DUSER="$work/pasted/settings.cpp"
quiet ninja -C "$work/inside" "$(cd "$work/inside" && ninja -t targets all |
    sed -n 's/^\(CMakeFiles.app_user.*\.o\): .*/\1/p')"
DESTDIR=$work/none quiet cmake --install "$work/inside"
[[ ! -e $work/none ]] || fail "a part of another project installs: $(find "$work/none" -type f)"

# compile SOURCE: an example as its user compiles it; one without a main() is a plug-in.
compile() {
    local name compiler=(gcc -std=gnu11) kind=()
    name=$(basename "${1%.*}")
    [[ $1 == *.c ]] || compiler=(g++ -std=c++17)
    grep -q 'main(' "$1" || kind=(-shared -fPIC) name=lib$name.so
    # shellcheck disable=SC2046 # words on purpose
    "${compiler[@]}" -O0 "${kind[@]}" "$1" $(pkg-config --cflags --libs zfc-app) -o "$name"
}
export -f compile

# Every example with a file examples/expected/NAME.txt writes just that, in a folder of its own beside
# the sample files and the plug-ins; NAME.args has its arguments. Python's word size is the machine's,
# and that clang takes them is known from the tree.
mkdir "$work/examples"
cd "$work/examples"
shopt -s nullglob
expected=("$tree"/examples/expected/*.txt)
[[ $cxx != *clang* ]] || expected=()
[[ $* != *-m32* ]] || mapfile -t expected < <(for each in "${expected[@]}"; do
    name=$(basename "$each" .txt)
    [[ -e $tree/examples/$name.py ]] || echo "$each"
done)
# shellcheck disable=SC2016 # expanded by the other shell
for source in "$tree"/examples/*.{c,cpp}; do
    [[ " ${expected[*]} " != *"/$(basename "${source%.*}").txt "* ]] && grep -q 'main(' "$source" ||
        printf '%s\0' "$source"
done | PATH=$work/compilers:$PATH LD_RUN_PATH=$prefix/lib \
    xargs -0 -r -P "$(nproc)" -n 1 bash -c 'compile "$1"' _ >"$work/log" 2>&1 ||
    fail "an example does not compile: $(<"$work/log")"
for each in "${expected[@]}"; do
    name=$(basename "$each" .txt)
    program=("$work/examples/$name")
    [[ ! -e $tree/examples/$name.py ]] ||
        program=(env LD_LIBRARY_PATH="$prefix/lib" python3 "$tree/examples/$name.py")
    mkdir "$name.d"
    cp -r "$tree"/examples/files/. lib*.so "$name.d"
    read -ra arguments < <(cat "${each%.txt}.args" 2>/dev/null) || true
    (cd "$name.d" && pure timeout 60 "${program[@]}" "${arguments[@]}") >"$work/shown" 2>"$work/log" ||
        fail "the example $name failed: $(<"$work/log")"
    diff "$each" "$work/shown" >"$work/log" || fail "the example $name writes: $(<"$work/log")"
done
