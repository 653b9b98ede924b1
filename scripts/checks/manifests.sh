# Sourced by what installs a build to try it: the user's own manifests of that build stay.
# shellcheck shell=bash

# keep_manifests BUILD: makes the directory $work, and at the end takes it away and the manifests back.
keep_manifests() {
    build_of_manifests=$1
    work=$(mktemp -d)
    mkdir "$work/manifests"
    find "$1" -maxdepth 1 -name 'install_manifest*.txt' -exec mv -t "$work/manifests" {} +
    trap give_manifests_back EXIT
}

give_manifests_back() {
    rm -f "$build_of_manifests"/install_manifest*.txt
    find "$work/manifests" -type f -exec mv -t "$build_of_manifests" {} +
    rm -rf "$work"
}
