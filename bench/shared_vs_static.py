#!/usr/bin/env python3
"""The library's benchmarks of xml_bench and net_bench linked statically and against
libquorlin.so, run in alternation in one run; prints each benchmark's time with the shared
library over its time with the static one (the fastest of the rounds for each).

    python3 bench/shared_vs_static.py [BUILD_DIR] [ROUNDS]
"""
import json
import math
import os
import signal
import subprocess
import sys

# Ctrl-C ends this script as it ends the benchmark it runs, without a traceback.
signal.signal(signal.SIGINT, signal.SIG_DFL)

build = sys.argv[1] if len(sys.argv) > 1 else "build/release"
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 3
# The library's own benchmarks; the peers' do not change with the link.
benches = {"xml_bench": "BM_xml_(parse|to_string)", "net_bench": "BM_LibraryRoundTrip"}


def run(binary, pattern):
    out = subprocess.run([binary, f"--benchmark_filter={pattern}", "--benchmark_format=json",
                          "--benchmark_min_time=0.5"], check=True, capture_output=True, text=True)
    # A benchmark that skipped its document (error_occurred) has no time.
    return {b["name"]: b["cpu_time"] for b in json.loads(out.stdout)["benchmarks"]
            if not b.get("error_occurred")}


missing = [f"{build}/bench/{bench}{suffix}" for bench in benches for suffix in ("", "_shared")
           if not os.access(f"{build}/bench/{bench}{suffix}", os.X_OK)]
if missing:
    sys.exit(f"{missing[0]} is missing: build the release preset first "
             f"(cmake --preset release && cmake --build --preset release)")

worst = 0.0
ratios = []
for bench, pattern in benches.items():
    best = {"static": {}, "shared": {}}
    for _ in range(rounds):
        for kind, suffix in (("static", ""), ("shared", "_shared")):
            for name, time in run(f"{build}/bench/{bench}{suffix}", pattern).items():
                best[kind][name] = min(time, best[kind].get(name, time))
    for name, static_time in best["static"].items():
        ratio = best["shared"][name] / static_time
        worst = max(worst, ratio)
        ratios.append(ratio)
        print(f"{bench:10} {name:30} shared/static {ratio:5.3f}")
mean = math.prod(ratios) ** (1 / len(ratios))
print(f"shared/static: geometric mean {mean:5.3f}, worst {worst:5.3f}")
