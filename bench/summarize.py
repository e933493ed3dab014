#!/usr/bin/env python3
"""Summarises a `gralloc_benchmarks --benchmark_format=json` run.

    gralloc_benchmarks --benchmark_repetitions=5 --benchmark_format=json > run.json
    bench/summarize.py run.json        (or: ... | bench/summarize.py)

Prints the machine's load, each benchmark's median CPU and real time with its counters, and the
ratio lines the benchmark program prints itself: the `ratio` counter of each paired benchmark per
repetition, then median, min and max, against their goals. A run reported with aggregates only
has no repetitions; its ratio lines then hold the median alone.
"""

import json
import statistics
import sys

CACHE_SIZES = (1, 16, 1000, 10000)
COUNTERS = ("ratio", "numerator_ns", "denominator_ns", "allocs_per_hit", "items_per_second",
            "p50_ns", "p99_ns", "p999_ns", "max_ns", "probes")


def ratio_definitions():
    """(label, paired benchmark, goal for the median, goal for each repetition)."""
    out = [(f"hit/floor {n}", f"BM_HitOverFloor/{n}", 1.10, 1.25) for n in CACHE_SIZES]
    out += [(f"hit/floor-without-found-test {n}", f"BM_HitOverFloorWithoutFoundTest/{n}",
             None, None) for n in CACHE_SIZES]
    out.append(("straddle/aligned", "BM_StraddleOverAligned", 1.10, None))
    return out


def collect(benchmarks):
    """Per run name: CPU times by repetition, and the runs themselves (medians if aggregated)."""
    repetitions, medians = {}, {}
    for b in benchmarks:
        if b.get("error_occurred"):
            continue
        name = b.get("run_name", b["name"])
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                medians[name] = b
        else:
            repetitions.setdefault(name, []).append(b)
    for runs in repetitions.values():
        runs.sort(key=lambda b: b.get("repetition_index", 0))
    return repetitions, medians


def median_of(runs, key):
    values = [b[key] for b in runs if key in b]
    return statistics.median(values) if values else None


def format_ratio(label, values, goal_median, goal_each):
    line = label.ljust(36) + "".join(f" {v:.3f}" for v in values)
    median, low, high = statistics.median(values), min(values), max(values)
    line += f" | median {median:.3f} min {low:.3f} max {high:.3f}"
    if goal_median is None:
        return line + " (reference)"
    met = median <= goal_median and (goal_each is None or high <= goal_each)
    goal = f"goal median <= {goal_median:.2f}"
    if goal_each is not None:
        goal += f", each <= {goal_each:.2f}"
    return line + f" ({goal}): " + ("met" if met else "MISSED")


def summarize(report, out):
    context = report.get("context", {})
    load = context.get("load_avg")
    out.write(f"{context.get('date', '?')} on {context.get('host_name', '?')}, "
              f"{context.get('num_cpus', '?')} CPUs"
              + (f", load average {' '.join(f'{x:.2f}' for x in load)}" if load else "")
              + "\n")

    repetitions, medians = collect(report.get("benchmarks", []))
    names = list(dict.fromkeys(list(repetitions) + list(medians)))
    width = max([len(n) for n in names] + [len("benchmark")])
    out.write(f"{'benchmark':{width}} {'reps':>4} {'cpu':>12} {'real':>12}  counters (median)\n")
    for name in names:
        runs = repetitions.get(name) or [medians[name]]
        unit = runs[0].get("time_unit", "ns")
        cells = []
        for counter in COUNTERS:
            value = median_of(runs, counter)
            if value is not None:
                cells.append(f"{counter}={value:.4g}")
        reps = len(repetitions.get(name, [])) or "-"  # "-": aggregates only
        out.write(f"{name:{width}} {reps:>4} "
                  f"{median_of(runs, 'cpu_time'):>9.4g} {unit:2} "
                  f"{median_of(runs, 'real_time'):>9.4g} {unit:2}  {' '.join(cells)}\n")

    lines = []
    for label, name, goal_median, goal_each in ratio_definitions():
        runs = repetitions.get(name) or ([medians[name]] if name in medians else [])
        values = [b["ratio"] for b in runs if "ratio" in b]
        if values:
            lines.append(format_ratio(label, values, goal_median, goal_each))
    if lines:
        out.write("ratios of time per call, in alternating blocks, repetition by repetition:\n")
        out.write("\n".join(lines) + "\n")


def main(argv):
    if len(argv) > 2 or (len(argv) == 2 and argv[1] in ("-h", "--help")):
        sys.stderr.write(__doc__)
        return 2
    try:
        if len(argv) == 2:
            with open(argv[1], encoding="utf-8") as f:
                report = json.load(f)
        else:
            report = json.load(sys.stdin)
    except (OSError, ValueError) as e:
        sys.stderr.write(f"summarize.py: cannot read the benchmark report: {e}\n")
        return 1
    summarize(report, sys.stdout)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
