#!/usr/bin/env bash
# Plants faults into the library, one at a time in a copy of the tree, and counts those that the
# 64-bit tests notice, after installing what is missing. Prints each that none noticed; the table of
# all is in build/faults. The same seed plants the same faults wherever the code is the same.
# usage: plant_faults.sh [--seed N] [--count N] [--room NAME] [--tree DIR] [--list]
#   --seed N      which faults are taken (1)
#   --count N     how many, shared out among the rooms in proportion to their code (200)
#   --room NAME   all of them in one folder of src/Z, or in qcs
#   --tree DIR    in another tree than the one of this script
#   --list        prints the choice and plants nothing; some will not compile and give way to others
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

install_missing "${build_packages[@]}" libgtest-dev python3 ccache lld
PYTHONDONTWRITEBYTECODE=1 exec python3 "$root/scripts/faults/plant.py" "$@"
