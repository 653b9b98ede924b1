#!/usr/bin/env bash
# Fetches the peers for 32-bit x86 into a folder, where nothing of the machine's own is replaced:
# Debian packages with all that they need, but for the C and C++ runtime, which the compiler has.
# usage: peers_32.sh FOLDER PACKAGE...
set -euo pipefail

folder=$(mkdir -p "$1" && cd "$1" && pwd)
shift
[[ ! -e $folder/complete ]] || exit 0

mkdir -p "$folder/lists/partial" "$folder/cache/archives/partial" "$folder/root"
: >"$folder/status" # nothing is installed there
apt=(apt-get -o APT::Architecture=i386 -o APT::Architectures::=i386
    -o "Dir::State::Lists=$folder/lists" -o "Dir::State::status=$folder/status"
    -o "Dir::Cache=$folder/cache" -o Debug::NoLocking=1 -o APT::Sandbox::User=root)
# A source that cannot be reached is no matter where the packages can be had from the others.
"${apt[@]}" update || true
"${apt[@]}" -y --no-install-recommends --download-only install "$@"

for package in "$folder"/cache/archives/*.deb; do
    case $(basename "$package") in
        libc6* | libc-* | libstdc++* | libgcc* | linux-libc* | gcc-* | g++* | cpp* | perl* | dpkg*) ;;
        *) dpkg -x "$package" "$folder/root" ;;
    esac
done
# A link to a place of the machine means that place in the folder.
find "$folder/root" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -sfn "$folder/root$(readlink "$link")" "$link"
done
rm -rf "$folder/cache"
touch "$folder/complete"
