#!/usr/bin/env bash
# Compares properties files with a real Java: what its Properties.store writes is read here, what is
# written here is read by its Properties.load, and the pairs must be equal.
#
# The two formats are not the same, so there are three sets of pairs:
#
#   shared     both ways. Keys of visible ASCII characters without = : # ! and backslash, since keys
#              are written here as they are; values of every character of the Basic Multilingual
#              Plane, but
#                = # !        Java writes a backslash before them, which the reader here refuses,
#                \t \n \r \f  Java writes these escapes, which the reader here does not know,
#                U+007F       which the writer here cannot keep,
#              and no blank at the beginning, which the writer here does not escape. Characters
#              beyond that plane are in it as the pairs of escapes that Java writes
#   from-java  what Java writes alone: also blanks, = : and backslash in keys (not at their
#              beginning), blanks at the beginning of values, and U+007F
#   to-java    what is written here alone: also = # ! \t \f in values
#
# usage: java.sh PROGRAM      with java_pairs of a build, as CTest does when Java is installed
#        java.sh --interop    installs Java and builds first
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=scripts/common.sh
source "$here/../../scripts/common.sh"

case ${1-} in
--interop)
    install_missing "${build_packages[@]}" libgtest-dev openjdk-17-jdk-headless
    configure_and_build release
    program=$root/build/release/tests/java_pairs
    export QCSDIR=$root/data/qcs
    ;;
'' | -*) die "usage: java.sh PROGRAM | --interop" ;;
*) program=$1 ;;
esac

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
javac -d . "$here/Pairs.java"

# pairs ARGUMENT...: Java's side.
pairs() {
    java -XX:+UseSerialGC -cp . Pairs "$@"
}

for set in shared from-java to-java; do
    pairs make $set $set.pairs java.properties
    [[ $(wc -l <$set.pairs) -gt 3000 ]] || die "the set $set has lost its pairs"
    if [[ $set != to-java ]]; then
        "$program" check $set.pairs java.properties ||
            die "$set: what Java wrote is read otherwise here"
    fi
    if [[ $set != from-java ]]; then
        "$program" store $set.pairs ours.properties
        pairs check $set.pairs ours.properties ||
            die "$set: what was written here is read otherwise by Java"
    fi
    say "$set: $(wc -l <$set.pairs) pairs"
done
