#!/usr/bin/env bash
# Installs a build into a fresh directory and uses it as an outside project does: found by CMake,
# found by pkg-config, from C++ and from C, and after the whole tree was moved.
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
[[ -f $prefix/include/Z/ztags.h ]] || fail "no public headers were installed"
[[ -d $prefix/share/zfc/qcs ]] || fail "the codeset data directory was not installed"

# The tools find the library that was installed with them, and each has a manual page that knows
# all its options and commands.
for tool in "$prefix"/bin/*; do
    [[ -x $tool ]] || continue
    quiet "$tool" --help
    page=$prefix/share/man/man1/$(basename "$tool").1
    commands=$("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p')
    options=$(for command in "" $commands; do "$tool" $command --help; done |
        sed -n 's/^  \(-h,\)\?--\([a-z-]*\).*/\2/p' | sort -u)
    for word in $commands $options; do
        [[ $word == help ]] || grep -qE "(Fl -|Cm )$word\b" "$page" ||
            fail "$(basename "$page") does not tell of \"$word\""
    done
done

export QCSDIR=$prefix/share/zfc/qcs LC_ALL=C.UTF-8

# Where this compiler and word size find zlib, which the static library needs.
libraries=$(dirname "$("$cxx" "$@" -print-file-name=libz.so)")
quiet cmake -S "$outside" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_LIBRARY_PATH="$libraries" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_FLAGS="$*" -DCMAKE_C_FLAGS="$*"
quiet cmake --build "$work/build"
for program in cxx_user c_user static_user; do
    quiet "$work/build/$program"
done

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig LD_LIBRARY_PATH=$prefix/lib
read -ra flags <<<"$(pkg-config --cflags --libs zfc)"
quiet "$cxx" "$@" -std=c++17 "$outside/user.cpp" "${flags[@]}" -o "$work/cxx_user"
quiet "$cc" "$@" -std=c11 "$outside/user.c" "${flags[@]}" -o "$work/c_user"
for program in cxx_user c_user; do
    quiet "$work/$program"
done
[[ -d $(pkg-config --variable=qcsdir zfc) ]] || fail "qcsdir of zfc.pc names no directory"

# readme_program LANGUAGE COMPILER...: compiles the README's example and runs it on a file of ours.
readme_program() {
    local source=$work/readme.$1
    awk -v fence="\`\`\`$1" '$0 == fence { on = 1; next } on && /^```$/ { exit } on' "$readme" >"$source"
    quiet "${@:2}" "$source" "${flags[@]}" -o "$work/readme_program"
    (cd "$work" && quiet ./readme_program)
}
printf '# who answers\n[server]\nport = 80\n' >"$work/app.conf"
readme_program cpp "$cxx" "$@" -std=c++17
readme_program c "$cc" "$@" -std=c11
[[ $(<"$work/app.conf") == $'# who answers\n[server]\nport = 82' ]] ||
    fail "the README's programs did not leave port 82: $(<"$work/app.conf")"
