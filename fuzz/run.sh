#!/usr/bin/env bash
# Runs fuzz targets of the fuzz preset's build, each for SECONDS from its seed corpus.
#
#   fuzz/run.sh SECONDS [TARGET...]     (default: every target)
#
# New inputs go to build-fuzz/corpus/TARGET (the checked-in seeds are only read); a finding
# (crash, sanitizer report, leak, timeout, out-of-memory) is written to build-fuzz/findings/
# TARGET/ and makes the script fail. FUZZ_JOBS targets run at once (default: the number of
# cores). Extra libFuzzer flags can be given in FUZZ_FLAGS, for example -max_len=8192.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(dirname "$here")"
build="${FUZZ_BUILD_DIR:-$root/build-fuzz}"

if (($# < 1)) || ! [[ $1 =~ ^[0-9]+$ ]]; then
    awk 'NR > 1 && !/^#/ { exit } NR > 1 { sub(/^# ?/, ""); print }' "$0" >&2
    exit 2
fi
seconds=$1
shift
targets=("$@")
if ((${#targets[@]} == 0)); then
    for seeds in "$here"/corpus/*/; do targets+=("$(basename "$seeds")"); done
fi
jobs="${FUZZ_JOBS:-$(nproc)}"

run_one() {
    local target=$1
    local binary="$build/bin/$target"
    local corpus="$build/corpus/$target"
    local findings="$build/findings/$target"
    local log="$build/findings/$target.log"
    if [[ ! -x $binary ]]; then
        echo "$target: not built (cmake --workflow --preset fuzz)" >&2
        return 1
    fi
    mkdir -p "$corpus" "$findings"
    # Whatever a target writes goes into a folder of this run's own, removed however it ends.
    local scratch
    scratch="$(mktemp -d "${TMPDIR:-/tmp}/zyncam-fuzz.XXXXXX")"
    local dict=()
    [[ -f $here/$target.dict ]] && dict=("-dict=$here/$target.dict")
    # -timeout: one input may take this long; the probe of a huge buffer is the slowest path.
    local status=0
    TMPDIR="$scratch" ASAN_OPTIONS="detect_leaks=1" \
        UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
        "$binary" "$corpus" "$here/corpus/$target" "${dict[@]}" \
        -max_total_time="$seconds" -timeout=25 -print_final_stats=1 \
        -artifact_prefix="$findings/" ${FUZZ_FLAGS:-} >"$log" 2>&1 || status=$?
    rm -rf "$scratch"
    if ((status == 0)); then
        echo "$target: no finding in ${seconds}s; $(grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' "$log" | tr '\n' ' ')$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -1)"
    else
        echo "$target: FINDING, see $log and $findings/" >&2
        grep -E '^(==[0-9]+==ERROR|SUMMARY|==fuzz==)|runtime error' "$log" | head -5 >&2 || true
        # An abort's reason is the line before libFuzzer's verdict; its stack follows.
        grep -B2 -A12 -m1 'ERROR: libFuzzer: deadly signal' "$log" >&2 || true
        return 1
    fi
}

failed=0
running=0
for target in "${targets[@]}"; do
    run_one "$target" &
    if ((++running >= jobs)); then
        wait -n || failed=1
        ((running--))
    fi
done
while ((running > 0)); do
    wait -n || failed=1
    ((running--))
done
exit "$failed"
