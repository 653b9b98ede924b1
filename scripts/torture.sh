#!/usr/bin/env bash
# Tries to break what the library stores, after installing what is missing and building; prints what
# it found as tables and fails when that is anything. Without a mode: a kill at each call of a store,
# each call failing, then kills at random moments until the time is over.
# usage: torture.sh [MINUTES] [--dir DIR]... [--kills N] [--seed N] [--all]
#        torture.sh --programs SECONDS | --random SECONDS [--dir DIR]... [--seed N]
#        torture.sh --threads SECONDS [--dir DIR]... [--seed N]
#   MINUTES              how long, about (10); the calls are always gone through to the end
#   --dir DIR            where; a memory file system (/dev/shm) and the build directory without it
#   --kills N            how many random kills inside of stores for each cell (500)
#   --seed N             of the random numbers; printed
#   --all                tells every finding, not one of each kind and cell
#   --programs SECONDS   four programs that edit one file at once: no update may be lost
#   --random SECONDS     random files and edits: what is stored comes back, or was refused
#   --threads SECONDS    each of: forks beside busy threads, threads that are cancelled, processes
#                        that end while threads wait: nothing hangs, stays held or stays open
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

usage="usage: torture.sh [MINUTES | --programs SECONDS | --random SECONDS | --threads SECONDS]
           [--dir DIR]... [--kills N] [--seed N] [--all]"
mode=store seconds=600 kills=500 seed=$((RANDOM * 32768 + RANDOM)) directories=() tells=()
is_number() { [[ ${1-} =~ ^[1-9][0-9]{0,8}$ ]]; }
need_number() { is_number "$1" || die "$usage"; }
if is_number "${1-}"; then
    seconds=$(($1 * 60))
    shift
fi
while [[ $# -gt 0 ]]; do
    case $1 in
        --all) tells=(--all) && shift && continue ;;
        --dir)
            [[ -d ${2-} ]] || die "no directory: ${2-}"
            directories+=(--dir "$(cd "$2" && pwd)")
            ;;
        --kills) need_number "${2-}" && kills=$2 ;;
        --seed) need_number "${2-}" && seed=$2 ;;
        --programs | --random | --threads) need_number "${2-}" && mode=${1#--} seconds=$2 ;;
        *) die "$usage" ;;
    esac
    shift 2
done

[[ $(uname -m) == x86_64 ]] || die "system calls are traced as x86-64 has them"
install_missing "${build_packages[@]}" python3
say "building in build/release ..."
configure_and_build release -DZFC_BUILD_TORTURE=ON
export QCSDIR=$root/data/qcs LC_ALL=C.UTF-8
torture=$root/build/release/scripts/torture/torture
if [[ ${#directories[@]} -eq 0 ]]; then
    mkdir -p "$root/build/torture"
    directories=(--dir /dev/shm --dir "$root/build/torture")
fi
common=("${directories[@]}" --seed "$seed" "${tells[@]}")

# four_programs: in each directory, on a file of its own.
four_programs() {
    local word work result=0
    for word in "${directories[@]}"; do
        [[ $word != --dir ]] || continue
        work=$(mktemp -d "$word/zfc-programs-XXXXXX")
        say "== four programs for $seconds s, in $word"
        PYTHONDONTWRITEBYTECODE=1 python3 "$root/scripts/torture/programs.py" "$torture" \
            "$root/build/release/tools/zprop" "$work/app.conf" "$seconds" || result=1
        rm -rf "$work"
    done
    return "$result"
}

# stores: the calls, and what is left of the time for the random kills.
stores() {
    local result=0
    "$torture" calls "${common[@]}" || result=1
    local left=$((seconds - SECONDS))
    "$torture" kills "${common[@]}" --kills "$kills" --seconds $((left > 60 ? left : 60)) || result=1
    return "$result"
}

# storms: of threads, one after the other.
storms() {
    local result=0 storm
    for storm in forks cancels exits; do
        "$torture" "$storm" "${common[@]}" --seconds "$seconds" || result=1
    done
    return "$result"
}

say "seed $seed"
case $mode in
    programs) four_programs || die "updates were lost" ;;
    random) "$torture" random "${common[@]}" --seconds "$seconds" || die "something came back otherwise" ;;
    threads) storms || die "threads came to harm" ;;
    store) stores || die "a store was broken" ;;
esac
say
say "nothing found in $SECONDS s"
