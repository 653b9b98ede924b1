#!/usr/bin/env bash
# Builds all fuzz targets with the address and undefined-behaviour sanitizers and runs each of them,
# after installing what is missing; stops at the first that finds something. Tells the processor
# time that each has had in all its runs, which build/fuzz/fuzz/processor-time keeps.
# usage: fuzz.sh [SECONDS [TARGET...]]
#   SECONDS   how long each target runs; 60 without it
#   TARGET    runs these alone, named as their seeds in fuzz/seeds
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=${1-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || die "usage: fuzz.sh [SECONDS [TARGET...]]"
targets=("${@:2}")
for target in "${targets[@]}"; do
    [[ -f $root/fuzz/${target}_fuzz.cpp ]] || die "there is no target \"$target\""
done

install_missing "${build_packages[@]}" clang-14 libclang-rt-14-dev
say "== building the fuzz targets"
configure_and_build fuzz
export QCSDIR=$root/data/qcs
cd "$root/build/fuzz/fuzz"
if [[ ${#targets[@]} -eq 0 ]]; then
    targets=(*_fuzz)
    targets=("${targets[@]%_fuzz}")
fi
times=$PWD/processor-time
touch "$times"

# fuzz TARGET: what it finds stays beside its corpus in build/fuzz/fuzz. Paths are whole, because
# targets that call a tool work in a directory of their own.
fuzz() {
    local target=$1 log=$1-fuzz.log TIMEFORMAT='%U %S' used
    mkdir -p "corpus/$target"
    used=$({ time "./${target}_fuzz" -max_total_time="$seconds" -timeout=20 \
        -artifact_prefix="$PWD/found-$target-" \
        "$PWD/corpus/$target" "$root/fuzz/seeds/$target" >"$logs/$log" 2>&1; } 2>&1) ||
        show_and_die "$log" "\"$target\" found something; build/fuzz/fuzz/found-$target-* has it"
    echo "$target $used" >>"$times"
    say "   $(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 runs in \2 s/p' "$logs/$log")," \
        "$(awk -v target="$target" '$1 == target { sum += $2 + $3 } END { printf "%d", sum }' \
            "$times") s of processor time so far"
}

for target in "${targets[@]}"; do
    say "== $target, $seconds s"
    fuzz "$target"
done
say
say "nothing found in $SECONDS s"
