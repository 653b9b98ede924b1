#!/usr/bin/env bash
# Makes the site in build/site: guides from Markdown, the reference from the public headers,
# and the manual pages.
# usage: site.sh [--check]
#   --check    the same without the look in a browser: contracts, pages, links
# A public name without a contract, a link that leads nowhere and a page that reads badly are
# errors.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[[ $# -eq 0 || ($# -eq 1 && $1 == --check) ]] || die "usage: site.sh [--check]"
# Debian's packages are those of its own Python, which need not be the first in PATH.
python=/usr/bin/python3
work=$root/build/site-work

# quietly LOG REASON COMMAND...
quietly() {
    local log=$1 reason=$2
    shift 2
    "$@" >"$logs/$log" 2>&1 || show_and_die "$log" "$reason"
    tail -n 1 "$logs/$log"
}

# Where Doxygen runs, so that its complaints name the headers as they stand in the tree.
contracts() {
    rm -rf "$work"
    mkdir -p "$work"
    "$python" "$root/scripts/site/contracts.py" "$work"
    local complaints=0
    (cd "$work" && doxygen "$root/docs/Doxyfile") >"$work/doxygen.log" 2>&1 || complaints=1
    # One complaint for each place, though Doxygen has one for each class that inherits it.
    sed "s,$work/,," "$work/doxygen.log" | sort -u
    [[ $complaints -eq 0 ]] || return 1
    echo "contracts: every public name has one"
}

install_missing doxygen mandoc python3 python3-markdown-it python3-pygments
mkdir -p "$logs"
quietly site-contracts.log "a public name has no contract, or one that cannot be read" contracts
quietly site-build.log "the pages cannot be made" \
    "$python" "$root/scripts/site/build.py" "$work/xml" "$root/build/site"
quietly site-links.log "a page is malformed, or a link leads nowhere" \
    "$python" "$root/scripts/site/links.py" "$root/build/site"
if [[ ${1-} != --check ]]; then
    install_missing chromium fonts-liberation fonts-dejavu-core
    quietly site-browser.log "a page does not read well in a browser" \
        "$python" "$root/scripts/site/browser.py" "$root/build/site" "$root/build/site-shots"
    say "screenshots: build/site-shots"
fi
say "site: build/site/index.html ($SECONDS s)"
