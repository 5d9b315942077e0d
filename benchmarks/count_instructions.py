#!/usr/bin/env python3
"""Counts what the rows of cmm_bench cost in instructions, under callgrind.

    count_instructions.py CMM_BENCH RESULT.json

CMM_BENCH has to be built with NVALGRIND: the library otherwise notices Valgrind and tells it about each
object, which is no longer the path that is measured. Each row of one thread runs with few turns and
with more; the difference is what the turns cost, whatever starting and ending the program took. It
needs no quiet machine. Several rows run at once, one a core.
"""

import json
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

FEW, MORE, LONG, MANY = 10, 110, 1010, 100010
# A difference of fewer instructions than this may come from starting and ending the program.
ENOUGH = 20_000_000
SOURCES = ("limit", "static", "packet", "packet_nocache", "packet_bulk", "sector_loop")
# Rows whose turns are not alike, or that wait for memory or for a client, say nothing as an average.
LEFT_OUT = ("_tail", "dry_", "obtainable", "memory", "_cold", "_console", "pair_top", "page_ws")
LINE = re.compile(r"^\s*([\d,]+)\s+\(\s*[\d.]+%\)\s+(.*)$")
# A room for thread-local data that the program would otherwise start itself again for.
ENVIRONMENT = {**os.environ, "GLIBC_TUNABLES": "glibc.rtld.optional_static_tls=16384"}


def measurements(program):
    names = subprocess.run([program, "--benchmark_list_tests=true"], env=ENVIRONMENT, text=True,
                           capture_output=True, check=True).stdout.split()
    for name in names:
        row, source = name.split("/")[:2]
        if name.endswith("threads:1") and source in SOURCES and not any(
                part in row for part in LEFT_OUT):
            yield name


def function_of(place):
    """The bare function of "folder/file.cpp:name(arguments) [library]"."""
    name = re.sub(r" \[[^]]*\]$", "", place).split(":", 1)[-1]
    return re.sub(r"\(.*|'\d+$|\.(lto_priv|constprop|part|isra|cold)\S*", "", name)


def run_once(program, name, turns, folder):
    """(per function its own instructions, what one turn does many times over)"""
    trace, result = folder / f"trace.{turns}", folder / f"result.{turns}"
    subprocess.run(["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={trace}", program,
                    f"--turns={turns}", f"--benchmark_filter=^{name.split('/real_time')[0]}/.*:1$",
                    f"--benchmark_out={result}", "--benchmark_out_format=json"],
                   env=ENVIRONMENT, check=True, capture_output=True)
    text = subprocess.run(["callgrind_annotate", "--threshold=100", "--auto=no", trace], text=True,
                          capture_output=True, check=True).stdout
    own = {}
    for match in filter(None, map(LINE.match, text.splitlines())):
        if match[2] != "PROGRAM TOTALS":
            function = function_of(match[2])
            own[function] = own.get(function, 0) + int(match[1].replace(",", ""))
    [entry] = json.loads(result.read_text())["benchmarks"]
    return own, entry.get("per", 1)


def count(program, name):
    with tempfile.TemporaryDirectory() as folder:
        few, per = run_once(program, name, FEW, Path(folder))
        turns = MORE
        many, _ = run_once(program, name, turns, Path(folder))
        difference = sum(many.values()) - sum(few.values())
        if difference < ENOUGH:
            turns = LONG if difference > ENOUGH / 4 else MANY
            many, _ = run_once(program, name, turns, Path(folder))
    operations = (turns - FEW) * per
    cost = {function: (value - few.get(function, 0)) / operations for function, value in many.items()}
    row, source = name.split("/")[:2]
    whole = sum(cost.values())
    shown = sorted(((value, function) for function, value in cost.items() if value >= whole / 50),
                   reverse=True)
    print(f"{name}: {whole:.1f}", flush=True)
    return {"row": row, "source": source, "instructions": whole,
            "functions": [[function, value] for value, function in shown]}


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    program, result = arguments
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        counted = list(pool.map(lambda name: count(program, name), measurements(program)))
    Path(result).write_text(json.dumps(counted, indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
