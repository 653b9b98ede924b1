#!/usr/bin/env bash
# Checks the model of store and recovery (docs/models/store.pml) completely, after installing what is
# missing; then plants each of its mistakes and sees that it is found: a model that cannot fail shows
# nothing. Fails when a property is violated; the steps that lead there are printed.
# usage: model.sh
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[[ $# -eq 0 ]] || die "usage: model.sh"
install_missing spin gcc libc6-dev
model=$root/docs/models/store.pml
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# search FAULT: a complete search with this mistake planted, 0 for none.
search() {
    local mistake=$1
    spin "-DFAULT=$mistake" -a "$model" >/dev/null
    gcc -O2 -w -DSAFETY -DCOLLAPSE -o pan pan.c
    ./pan -m1000000 -E >result 2>&1
}

# of NAME: what the result says of it.
of() { sed -n "s/.*$1: \([0-9]*\).*/\1/p" result | head -n 1; }

search 0
if [[ $(of errors) != 0 ]]; then
    spin -DFAULT=0 -k store.pml.trail -t -p -g "$model" | grep -E 'proc|^\s+[MCR](_onDevice)? =' || true
    die "the model violates: $(sed -n 's/^pan:1: //p' result)"
fi
grep -qE 'not completed|depth too small|out of memory' result && die "the search was cut off: $(cat result)"
say "no violation in $(sed -n 's/^ *\([0-9]*\) states, stored.*/\1/p' result) states"

mistakes=$(grep -oE 'FAULT [!=]= [1-9][0-9]*' "$model" | grep -oE '[0-9]+' | sort -nu)
for mistake in $mistakes; do
    search "$mistake"
    [[ $(of errors) == 1 ]] || die "mistake $mistake is not found"
    say "mistake $mistake is found: $(sed -n 's/^pan:1: \(.*\) (at depth.*/\1/p' result | tr -s ' ')"
done
say "all mistakes are found"
