#!/usr/bin/env bash
# Builds the Debian packages into build/packages, after installing what is missing, and tries them
# out: lintian, the binary interface, nothing left out, unpacked into a directory of their own with a
# user's programs built and run there, and built a second time elsewhere with the same bytes.
# usage: packages.sh [--once]
#   --once   without the second build, which takes as long as the first and uses no compiler cache
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[[ $# -eq 0 || ($# -eq 1 && $1 == --once) ]] || die "usage: packages.sh [--once]"
install_missing "${build_packages[@]}" debhelper dpkg-dev lintian abigail-tools mandoc man-db \
    g++-multilib lib32z1-dev pkg-config xz-utils

version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
result=$root/build/packages
work=$root/build/packages-work  # one place each time, for the compiler cache
rm -rf "$work"
trap 'rm -rf "$work"' EXIT
mkdir -p "$logs"

# build_packages FOLDER DATE: in a copy of the tree, whose files are of the date. The packages lie
# beside the copy.
build_packages() {
    local tree=$1/zfc
    mkdir -p "$tree"
    tar -C "$root" --exclude=./build --exclude=./.git --exclude=./.cache -c . | tar -C "$tree" -x
    find "$tree" -exec touch -h -d "$2" {} +
    # A cache that makes paths relative would put others into the debugging information.
    (cd "$tree" && env -u CCACHE_BASEDIR dpkg-buildpackage -b -us -uc) \
        >"$logs/packages-build.log" 2>&1 ||
        show_and_die packages-build.log "the packages could not be built"
}

# quiet LOG COMMAND...: its output matters only when it fails.
quiet() {
    local log=$1
    shift
    "$@" >"$logs/$log" 2>&1 || show_and_die "$log" "failed: $*"
}

say "== building $version"
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
build_packages "$work/first" now
rm -rf "$result"
mkdir -p "$result"
cp "$work"/first/*.{deb,changes,buildinfo} "$result"
tree=$work/first/zfc

say "== lintian"
quiet lintian.log lintian --allow-root --fail-on error,warning "$result"/*.changes

say "== the binary interface"
"$root/scripts/checks/abi.sh" "$tree"/obj-native/src/libzfc.so._*

say "== what is in them"
installed=$work/installed
mkdir -p "$installed" "$work/whole"
for package in "$result"/*.deb; do
    [[ $package == *-dbgsym_* ]] || dpkg-deb -x "$package" "$installed"
done
# files: what packages hold by the names that the build installs. The manual is compressed, and each
# package has a folder of its own for Debian's files.
files() {
    (cd "$1" && find . ! -type d | sed 's/\(\/man\/.*\)\.gz$/\1/' |
        grep -vE '/usr/share/(doc/[^/]*/(changelog(.Debian)?.gz|copyright)|lintian/.*)$|/usr/lib32/' |
        LC_ALL=C sort)
}
DESTDIR=$work/whole quiet packages-install.log cmake --install "$tree/obj-native"
DESTDIR=$work/whole quiet packages-install.log cmake --install "$tree/obj-native" --component static
diff <(files "$work/whole") <(files "$installed") ||
    die "packages (>) and \"cmake --install\" (<) hold different files"
twice=$(for package in "$result"/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -t | grep -v '/$'
done | LC_ALL=C sort | uniq -d)
[[ -z $twice ]] || die "two packages hold these files: $twice"
mapfile -t functions < <(grep -oP '^ZFC_API .*?\K\w+(?=\()' "$installed/usr/include/Z/zproperties_c.h")
[[ ${#functions[@]} -gt 0 ]] || die "no C functions are found"
for page in "${functions[@]}" zprop zlock zfc-stanza zfc-properties zfc-companion zfc-lock \
    zfc-recovery zfc-locks zfc-codesets zfc-errors; do
    man -M "$installed/usr/share/man" "$page" 2>/dev/null | grep -q . || die "no manual page: $page"
done
say "   ${#functions[@]} C functions have a page"
# Whatever they depend on is to be had.
quiet packages-apt.log apt-get -s install --no-install-recommends "$result"/*_"$version"_*.deb

say "== a user's programs"
libs=$(dirname "$(find "$installed" -name libzfc.so)")
export PKG_CONFIG_PATH=$libs/pkgconfig QCSDIR=$installed/usr/share/zfc/qcs LC_ALL=C.UTF-8
user=$work/user
mkdir -p "$user"
cd "$user"
cat >user.cpp <<'END'
#include <Z/ZStanzaFileProperties.h>

int main() {
    ZStanzaFileProperties settings("app.conf", 1);
    settings.setIntegerValue("jobs", "done", settings.getIntegerValue("jobs", "done", 1) + 1);
    settings.store(nullptr);
}
END
cat >user.c <<'END'
#include <Z/zproperties_c.h>

int main(void) {
    ZPROP_stz_handle* settings;
    int rc = zstzPropOpen(&settings, "app.conf", ZPROP_OPEN_WRITE);
    if (rc != ZPROP_OK) return rc;
    unsigned int done = zstzPropGetIntegerValue(settings, "jobs", "done", 1, &rc);
    if (rc == ZPROP_OK) rc = zstzPropSetIntegerValue(settings, "jobs", "done", done + 1);
    if (rc == ZPROP_OK) rc = zstzPropStore(settings, 0);
    zstzPropClose(settings);
    return rc;
}
END
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.20)
project(user LANGUAGES C CXX)
find_package(zfc 6.1 REQUIRED)
foreach(kind zfc static)
  foreach(language c cpp)
    add_executable(cmake_${kind}_${language} user.${language})
    target_link_libraries(cmake_${kind}_${language} PRIVATE zfc::${kind})
  endforeach()
endforeach()
END
quiet user.log cmake -S . -B . -G Ninja -DCMAKE_PREFIX_PATH="$installed/usr"
quiet user.log cmake --build .
read -ra flags <<<"$(pkg-config --cflags --libs zfc)"
quiet user.log g++ -std=c++17 user.cpp "${flags[@]}" -Wl,-rpath,"$libs" -o packaged_cpp
quiet user.log gcc -std=c11 user.c "${flags[@]}" -Wl,-rpath,"$libs" -o packaged_c
# Without QCSDIR, and with an empty environment: the object of zfc-app finds the data.
read -ra flags <<<"$(pkg-config --cflags --libs zfc-app)"
quiet user.log g++ -std=c++17 user.cpp "${flags[@]}" -Wl,-rpath,"$libs" -o app_cpp
soname=$(basename "$libs"/libzfc.so._*)
small=(-m32 -I "$installed/usr/include" "$installed/usr/lib32/$soname"
    "-Wl,-rpath,$installed/usr/lib32")
quiet user.log g++ -std=c++17 user.cpp "${small[@]}" -o small_cpp
quiet user.log gcc -std=c11 user.c "${small[@]}" -o small_c

# Each adds 1.
programs=(cmake_{zfc,static}_{c,cpp} packaged_{cpp,c} small_{cpp,c})
printf '# how far we are\n[jobs]\ndone = 0\n' >app.conf
for program in "${programs[@]}"; do
    quiet user.log "./$program"
done
env -i ./app_cpp || die "a program that links zfc-app fails with an empty environment"
count=$("$installed/usr/bin/zprop" get app.conf jobs "done")
[[ $count -eq $((${#programs[@]} + 1)) ]] ||
    die "$((${#programs[@]} + 1)) programs left $count"
say "   $count programs ran: C and C++, shared and static, both word sizes"
cd "$root"

if [[ $# -eq 0 ]]; then
    say "== building once more, elsewhere"
    export CCACHE_DISABLE=1 TZ=Pacific/Auckland
    build_packages "$work/another-place" 2001-01-01
    for package in "$result"/*.deb; do
        cmp "$package" "$work/another-place/$(basename "$package")" ||
            die "a second build made another $(basename "$package")"
    done
    say "   the same bytes"
fi
say
(cd "$result" && ls -l -- *.deb)
