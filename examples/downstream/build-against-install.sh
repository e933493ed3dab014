#!/usr/bin/env bash
# Installs a built tree into a temporary prefix, then builds this example against that prefix
# alone, once through find_package(ZynCamGralloc) and once through pkg-config, and runs it.
#
#   examples/downstream/build-against-install.sh [BUILD_DIR]    (default: build)
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix"
# Nothing installed may point back into the source or build tree.
if grep -rIl -e "$build" -e "$root" "$prefix"; then
    echo "installed files above refer to $build or $root" >&2
    exit 1
fi
# The simulator's mapper is found beside the installed host platform, not through a path.
unset ZYNCAM_SPHAL_PATH

echo "-- find_package(ZynCamGralloc) from $prefix"
cmake -S "$root/examples/downstream" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
cmake --build "$work/cmake"
ctest --test-dir "$work/cmake" --output-on-failure

echo "-- pkg-config zyncam_grallocutils_aidlv2helper from $prefix"
pc="$(find "$prefix" -name zyncam_grallocutils_aidlv2helper.pc)"
export PKG_CONFIG_PATH="$(dirname "$pc")"
flags=$(pkg-config --cflags --libs zyncam_grallocutils_aidlv2helper)
libdir=$(pkg-config --variable=libdir zyncam_grallocutils_aidlv2helper)
# shellcheck disable=SC2086 # the flags are words
"${CXX:-c++}" -std=c++20 -Wall -Wextra -Werror "$root"/examples/downstream/{main,StreamPlan}.cpp \
    -o "$work/stream_planner" $flags -Wl,-rpath,"$libdir"
"$work/stream_planner"
