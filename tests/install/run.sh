#!/usr/bin/env bash
# Installs a build into a fresh directory, moves the tree, and compiles and runs the programs of the
# README, in C++ and in C, as an outside project does: found by CMake and found by pkg-config.
# usage: run.sh BUILD_DIR CXX CC [COMPILER_FLAG...]
set -euo pipefail

build=$1 cxx=$2 cc=$3
shift 3
outside=$(cd "$(dirname "${BASH_SOURCE[0]}")/outside" && pwd)
readme=$outside/../../../README.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

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

export QCSDIR=$prefix/share/zfc/qcs LC_ALL=C.UTF-8

for language in cpp c; do
    awk -v fence="\`\`\`$language" '$0 == fence { on = 1; next } on && /^```$/ { exit } on' \
        "$readme" >"$work/readme.$language"
done

# Where this compiler and word size find zlib, which the static library needs.
libraries=$(dirname "$("$cxx" "$@" -print-file-name=libz.so)")
quiet cmake -S "$outside" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_LIBRARY_PATH="$libraries" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_FLAGS="$*" -DCMAKE_C_FLAGS="$*" -DREADME="$work/readme"
quiet cmake --build "$work/build"

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
read -ra flags <<<"$(pkg-config --cflags --libs zfc) -Wl,-rpath,$prefix/lib"
quiet "$cxx" "$@" -std=c++17 "$work/readme.cpp" "${flags[@]}" -o "$work/build/cxx_packaged"
quiet "$cc" "$@" -std=c11 "$work/readme.c" "${flags[@]}" -o "$work/build/c_packaged"
[[ -d $(pkg-config --variable=qcsdir zfc) ]] || fail "qcsdir of zfc.pc names no directory"

# Each adds 1 to the port.
cd "$work"
printf '# who answers\n[server]\nport = 80\n' >app.conf
for program in cxx_user c_user static_user cxx_packaged c_packaged; do
    quiet "build/$program"
done
[[ $(<app.conf) == $'# who answers\n[server]\nport = 85' ]] ||
    fail "the programs did not leave port 85: $(<app.conf)"
