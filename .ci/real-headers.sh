#!/usr/bin/env bash
# The host stand-ins against the real platform headers that Debian packages (AOSP headers of
# Android 10 under /usr/include/android), in 64-bit and in 32-bit (-m32):
#   1. every library source compiles with the real headers in front of the stand-ins;
#   2. a probe of the declarations the library relies on compiles against the real headers and
#      against the stand-ins alone, so a stand-in whose signature, linkage or layout drifts from
#      the platform fails here, not in a device build;
#   3. each public header compiles alone with only what the library exports on a device;
#   4. gralloc-layout's device sources compile with the real headers in front of the stand-ins.
set -euo pipefail
cd "$(dirname "$0")/.."

real=/usr/include/android
cxx=${CXX:-g++}
flags=(-std=c++20 -fsyntax-only -Wall -Wextra -Werror)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Real headers that cannot be used on glibc; the stand-in takes their place, through an overlay
# searched before the real headers.
#   cutils/properties.h: includes bionic's <sys/system_properties.h>, which glibc lacks.
skipped=(cutils/properties.h)
for header in "${skipped[@]}"; do
    mkdir -p "$work/overlay/$(dirname "$header")"
    echo "#include \"$PWD/host/include/$header\"" >"$work/overlay/$header"
done

# What the library exports on a device: IMapper.h and ARect (libimapper_stablec, libarect_headers), which
# Debian lacks, so the stand-ins stand for them; cutils/native_handle.h (libcutils), the real one.
exported="$work/exported"
for header in android/hardware/graphics/mapper/IMapper.h android/rect.h; do
    mkdir -p "$exported/$(dirname "$header")"
    ln -s "$PWD/host/include/$header" "$exported/$header"
done
mkdir -p "$exported/cutils"
ln -s "$real/cutils/native_handle.h" "$exported/cutils/native_handle.h"

# The camera stack's log service interface (ULogger.h) is the project's own header.
library_includes=(-Iinclude -Iutils/gralloc/aidl/v2 -Iutils/gralloc/aidl/v2/logging -Icamera/include)
mapfile -t sources < <(find utils -name '*.cpp' | sort)
mapfile -t public_headers < <(find include -name '*.h' | sort)
# gralloc-layout as the device builds it: the tool's portable sources, its device profile scope
# and the exact-answer records a capture writes (jsoncpp from the host).
tool_sources=(tools/*.cpp tools/device/ProfileScope.cpp host/gralloc/ProfileFormat.cpp)
tool_includes=(-Iinclude -Icamera/include -Itools -Ihost/api -I/usr/include/jsoncpp)

failed=0
run() {
    if ! "$@"; then
        echo "FAILED: $*" >&2
        failed=1
    fi
}

for arch in -m64 -m32; do
    echo "== $arch: library sources, real headers in front of the stand-ins"
    for source in "${sources[@]}"; do
        run "$cxx" "${flags[@]}" "$arch" -I"$work/overlay" -I"$real" -Ihost/include \
            "${library_includes[@]}" "$source"
    done
    echo "== $arch: gralloc-layout's device sources, real headers in front of the stand-ins"
    for source in "${tool_sources[@]}"; do
        run "$cxx" "${flags[@]}" "$arch" -I"$work/overlay" -I"$real" -Ihost/include \
            "${tool_includes[@]}" "$source"
    done
    echo "== $arch: declarations the library relies on, real headers and stand-ins"
    run "$cxx" "${flags[@]}" "$arch" -I"$work/overlay" -I"$real" .ci/real-headers/conformance.cpp
    run "$cxx" "${flags[@]}" "$arch" -Ihost/include .ci/real-headers/conformance.cpp
    echo "== $arch: public headers with only what the library exports"
    for header in "${public_headers[@]}"; do
        run "$cxx" "${flags[@]}" "$arch" -Iinclude -I"$exported" -include "$header" -x c++ /dev/null
    done
done

if ((failed)); then
    echo "real-header check failed" >&2
    exit 1
fi
echo "real-header check passed (${#sources[@]} library and ${#tool_sources[@]} tool sources," \
    "${#public_headers[@]} public headers)"
