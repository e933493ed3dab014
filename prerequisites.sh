#!/usr/bin/env bash
# The Debian packages this project needs, grouped by what needs them; the one list of them.
#
#   ./prerequisites.sh [GROUP ...]     install what the groups need and is missing (default: tool)
#   ./prerequisites.sh --print GROUP   print the apt-get line for what is missing, install nothing
#   ./prerequisites.sh --list          print every group with its packages
#
# Quiet when everything is there. Installs with apt-get as root, through sudo otherwise; where
# neither works it prints the one apt-get line to run and exits 1. Exit 2: an unknown group.
set -euo pipefail

declare -A group_packages=(
    # configure, build and run gralloc-layout: the simulator reads device profiles with jsoncpp,
    # the tool writes JSON with it; the simulated mapper takes DRM fourccs from libdrm's header
    [tool]="cmake ninja-build g++ pkg-config libjsoncpp-dev libdrm-dev"
    # the GoogleTest suites and the python3 checks among them; rsvg-convert renders the SVG check
    [tests]="libgtest-dev libgmock-dev python3 librsvg2-bin"
    # the benchmarks (the default preset builds them) and the start-up comparison
    [bench]="libbenchmark-dev hyperfine"
    # the sanitizer, clang and fuzz presets: clang, libFuzzer and the sanitizer runtimes
    [presets]="clang libclang-rt-14-dev"
    # the real Android platform headers Debian packages, and the 32-bit build of the check
    [real-headers]="g++-multilib android-liblog-dev android-libcutils-dev android-libutils-dev
        android-platform-system-core-headers"
    # Android.bp without a platform tree: Blueprint's formatter, and python3 for the module check
    [android-bp]="blueprint-tools python3"
)
# What a group brings with it: the default workflow builds the tool, the tests and the benchmarks.
declare -A group_needs=(
    [tool]=""
    [tests]="tool bench"
    [bench]="tool"
    [presets]="tool tests bench"
    [real-headers]=""
    [android-bp]=""
)
group_order=(tool tests bench presets real-headers android-bp)

usage() {
    echo "usage: $0 [--print] [GROUP ...] | --list; groups: ${group_order[*]} all" >&2
    exit 2
}

declare -A wanted=()
want() {
    local group=$1 needed
    [[ -n ${group_packages[$group]+set} ]] || { echo "$0: unknown group '$group'" >&2; usage; }
    [[ -n ${wanted[$group]+set} ]] && return
    wanted[$group]=1
    for needed in ${group_needs[$group]}; do want "$needed"; done
}

print_only=0
groups=()
for arg in "$@"; do
    case $arg in
    --list)
        for g in "${group_order[@]}"; do echo "$g:" ${group_packages[$g]}; done
        exit 0
        ;;
    --print) print_only=1 ;;
    all) groups+=("${group_order[@]}") ;;
    -*) usage ;;
    *) groups+=("$arg") ;;
    esac
done
((${#groups[@]})) || groups=(tool)
for g in "${groups[@]}"; do want "$g"; done

missing=()
for g in "${group_order[@]}"; do
    [[ -n ${wanted[$g]+set} ]] || continue
    for p in ${group_packages[$g]}; do
        status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
        [[ $status == "install ok installed" ]] || missing+=("$p")
    done
done
((${#missing[@]})) || exit 0

line="apt-get install -y --no-install-recommends ${missing[*]}"
if ((print_only)); then
    echo "$line"
    exit 0
fi
if ((EUID == 0)); then
    as_root=()
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root=(sudo)
elif command -v sudo >/dev/null && [[ -t 0 ]]; then
    as_root=(sudo)  # sudo asks for the password at the terminal
else
    echo "$0: missing Debian packages; as root run:" >&2
    echo "  apt-get update && $line" >&2
    exit 1
fi
echo "$0: installing ${missing[*]}" >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update -qq &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
        --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "$0: apt-get failed; the line was: $line" >&2
    exit 1
fi
