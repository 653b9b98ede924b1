#!/usr/bin/env bash
# Builds the library after installing what is missing, and shows the main job on the sample files:
# reading, editing, several values, an obfuscated value, a refused file, a locked file.
# usage: demo.sh [BUILD]
#   BUILD   shows the build in this folder as it is, and builds nothing
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[[ $# -le 1 ]] || die "usage: demo.sh [BUILD]"
build=${1-$root/build/demo}
if [[ $# -eq 0 ]]; then
    install_missing "${build_packages[@]}"
    say "building in build/demo ..."
    configure_and_build demo
fi

work=$(mktemp -d)
holder=
finish() {
    [[ -z $holder ]] || kill "$holder" 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

export PATH=$build/tools:$build/examples:$PATH
export QCSDIR=$root/data/qcs
cp "$root"/examples/files/*.{conf,properties} "$work"
cd "$work"

bold='' plain=''
if [[ -t 1 ]]; then bold=$'\033[1m' plain=$'\033[0m'; fi
title() { printf '\n%s%s%s\n' "$bold" "$*" "$plain"; }
show() {
    printf '$ %s\n' "$*"
    "$@"
}
# refused STATUS COMMAND...: shows a command that must fail with that status.
refused() {
    local expected=$1 status=0
    shift
    show "$@" || status=$?
    printf '(exit status %d)\n' "$status"
    [[ $status -eq $expected ]] || die "expected exit status $expected"
}

title "1. A file as its administrator left it"
show cat app.conf

title "2. Questions with a type"
show zprop get app.conf server host
show zprop get app.conf server port --type int
show zprop get app.conf log rotate --type bool
show zprop get app.conf server timeout --default 30
refused 1 zprop get app.conf server timeout

title "3. An edit, and what it changed: comments and order stay, the key goes below its template"
cp app.conf before.conf
show zprop set app.conf server timeout 60
printf '$ diff before.conf app.conf\n'
! diff before.conf app.conf || die "the edit changed nothing"

title "4. A key with several values"
show zprop get app.conf server listen --all
show zprop set app.conf server listen 10.0.0.3 --add
show zprop get app.conf server listen --all

title "5. An obfuscated value stands in a companion file"
show zprop set app.conf database password s3cret --obfuscate
show zprop get app.conf database password
show zprop get app.conf database password --reveal
show tail -n 3 app.conf
show ls -l app.conf app.conf.obf

title "6. A bad file is refused with its line"
refused 1 zprop check broken.conf app.conf

title "7. While another process holds the file, a second one is told so"
coproc hold { exec hold_lock app.conf; }
# shellcheck disable=SC2154 # coproc sets it
holder=$hold_PID
read -r _ <&"${hold[0]}"
refused 3 zprop --wait 0.2 set app.conf server port 9090
to_holder=${hold[1]}
exec {to_holder}>&-
wait "$holder"
holder=
show zprop set app.conf server port 9090
show zprop get app.conf server port

title "8. The same from programs in C++ and C"
show settings app.conf
show settings_c app.conf
show zprop list app.conf server

title "9. A properties file that Java programs share, and a stanza file made from it"
show cat app.properties
show zprop get app.properties greeting
refused 1 zprop convert app.properties from_java.conf --stanza all
show zprop convert app.properties from_java.conf --stanza all --drop-comments
show cat from_java.conf

printf '\nDone. The programs are examples/settings.cpp and examples/settings_c.c.\n'
