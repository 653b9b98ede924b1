#!/usr/bin/env bash
# Every C and C++ file reads as clang-format would write it.
# usage: format.sh [FILE...]    (default: all of the tree)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

files=("$@")
if [[ $# -eq 0 ]]; then
    mapfile -t files < <(find src tools examples bench fuzz scripts tests \
        -name '*.cpp' -o -name '*.h' -o -name '*.c' 2>/dev/null | sort)
fi
clang-format-14 --style=file:.clang-format --dry-run -Werror "${files[@]}"
echo "format: ${#files[@]} files"
