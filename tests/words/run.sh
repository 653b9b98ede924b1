#!/usr/bin/env bash
# Programs of both word sizes work on the same files: each reads what the other wrote, both write the
# same bytes, and edits that they make at the same time are all kept.
# usage: run.sh ZPROP ZPROP    the tool in its two word sizes
set -euo pipefail

one=$1 other=$2
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export QCSDIR=$root/data/qcs LC_ALL=C.UTF-8
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

[[ $(od -An -j4 -N1 -tu1 "$one") -ne $(od -An -j4 -N1 -tu1 "$other") ]] ||
    fail "both programs have one word size"

# write ZPROP FILE: plain and obfuscated values, comments, a template.
write() {
    cp "$root/examples/files/app.conf" "$2"
    printf '%s\n' 'set server timeout 60' 'set secret key "two words" --obfuscate' \
        'set secret key more --add --obfuscate' 'set server größe 3' 'unset log rotate' \
        'comment "of the stanza" --stanza server' | "$1" edit "$2"
}

write "$one" "$work/a.conf"
write "$other" "$work/b.conf"
sed -i 's/a\.conf\.obf/b.conf.obf/' "$work/a.conf"
cmp "$work/a.conf" "$work/b.conf" || fail "the stanza files differ"
cmp "$work/a.conf.obf" "$work/b.conf.obf" || fail "the companion files differ"

write "$one" "$work/shared.conf"
[[ $("$other" get "$work/shared.conf" secret key --all --reveal) == $'two words\nmore' ]] ||
    fail "obfuscated values of the other word size"
[[ $("$one" dump "$work/shared.conf" --json --reveal) == \
    "$("$other" dump "$work/shared.conf" --json --reveal)" ]] || fail "the dumps differ"

edit_often() {
    local i
    for i in {1..20}; do "$1" --wait 60 set "$work/shared.conf" many "$2$i" v; done
}
edit_often "$one" a &
edit_often "$other" b
wait $!
[[ $("$one" list "$work/shared.conf" many | grep -c ' = v$') -eq 40 ]] || fail "an edit was lost"
