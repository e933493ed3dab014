#!/usr/bin/env python3
"""The start-up cost of one gralloc-layout request against linked_exit, a program linked to the
same libraries that exits at once, measured with hyperfine in interleaved rounds.

    bench/startup_ratio.py [--rounds N] [--runs N] [--build DIR]

Each round runs both programs with hyperfine (-N, no shell), in turn first and second, and takes
the median of each side's runs; the round's ratio is the tool's median over linked_exit's. Load
from other processes comes and goes between rounds but hardly within one, so it slows both sides
of a round alike. The figure is the median of the rounds' ratios (goal: at most 1.10); the
spread of the rounds is printed beside it, and the ratio of CPU time (user + system, which waiting
for a busy CPU does not inflate) as a second view. Standard library only; hyperfine's JSON goes into a
folder of the run's own, removed at the end."""
import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile

GOAL = 1.10


def medians(build, runs, warmup, tool_first, scratch, request):
    tool = " ".join([os.path.join(build, "bin", "gralloc-layout")] + request)
    base = os.path.join(build, "bin", "linked_exit")
    commands = [tool, base] if tool_first else [base, tool]
    out = os.path.join(scratch, "round.json")
    # hyperfine's outlier warnings are expected on a busy machine; its errors are not.
    run = subprocess.run(["hyperfine", "-N", "--style", "none", "--warmup", str(warmup), "--runs",
                          str(runs), "--export-json", out] + commands,
                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if run.returncode != 0:
        sys.exit("hyperfine failed (%d):\n%s" % (run.returncode, run.stderr))
    with open(out) as f:
        results = json.load(f)["results"]
    wall = {r["command"]: statistics.median(r["times"]) for r in results}
    cpu = {r["command"]: r["user"] + r["system"] for r in results}
    return wall[tool], wall[base], cpu[tool] / cpu[base]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=30)
    parser.add_argument("--runs", type=int, default=40, help="runs of each side per round")
    parser.add_argument("--warmup", type=int, default=20)
    parser.add_argument("--build", default=os.path.join(
        os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "build"))
    args = parser.parse_args()
    request = ["1920x1080", "YCrCb_420_SP"]

    ratios, cpuRatios = [], []
    with tempfile.TemporaryDirectory(prefix="zyncam-startup.") as scratch:
        for i in range(args.rounds):
            tool, base, cpu = medians(args.build, args.runs, args.warmup, i % 2 == 0, scratch,
                                      request)
            ratios.append(tool / base)
            cpuRatios.append(cpu)
            print("round %2d  gralloc-layout %7.1f us  linked_exit %7.1f us  ratio %.3f"
                  "  (CPU time ratio %.3f)" % (i + 1, tool * 1e6, base * 1e6, tool / base, cpu))
    median = statistics.median(ratios)
    print("gralloc-layout %s / linked_exit: median of %d round medians %.3f (min %.3f, max %.3f);"
          " goal <= %.2f: %s" % (" ".join(request), len(ratios), median, min(ratios), max(ratios),
                                GOAL, "met" if median <= GOAL else "NOT met"))
    print("CPU time (user + system, mean of each round) ratio: median %.3f" %
          statistics.median(cpuRatios))
    return 0 if median <= GOAL else 1


if __name__ == "__main__":
    sys.exit(main())
