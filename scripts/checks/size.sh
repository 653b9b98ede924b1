#!/usr/bin/env bash
# How many lines the library with its tools has, how many its tests, and what share that is.
# usage: size.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

# lines FOLDER...: of all files in them.
lines() {
    find "$@" -type f -exec cat {} + | wc -l
}

code=$(lines src tools) tests=$(lines tests)
awk -v code="$code" -v tests="$tests" 'BEGIN {
    printf "src and tools: %d lines, tests: %d lines, ratio %.2f\n", code, tests, tests / code
}'
