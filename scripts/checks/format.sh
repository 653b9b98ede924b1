#!/usr/bin/env bash
# Every C and C++ file of the tree reads as clang-format would write it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

mapfile -t files < <(find src tools tests bench fuzz examples -name '*.cpp' -o -name '*.h' -o -name '*.c' \
    2>/dev/null | sort)
clang-format-14 --dry-run -Werror "${files[@]}"
echo "format: ${#files[@]} files"
