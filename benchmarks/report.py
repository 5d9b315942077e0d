#!/usr/bin/env python3
"""Writes the performance document and its plot from one run of cmm_bench.

    report.py RESULT.json DOCUMENT.md     the plot is written beside it, as DOCUMENT.svg
    report.py --self-test                 shows that medians, ratios and verdicts are right

Every number comes from the result file; benchmarks/targets.toml says which rows there are and what each
is to reach, benchmarks/explanations.toml why a target is missed. A time is that of the fastest
repetition: whatever disturbs a measurement only adds to it, and a neighbour on the same core doubles it
for seconds, a long path of instructions more than a short one that waits. Rows of one thread take the
time that the processor spent, rows of two wall time, a thread's share of it. Figures that are no times
take the median.
"""

import json
import math
import statistics
import sys
import tomllib
from pathlib import Path
from xml.sax.saxutils import escape

HERE = Path(__file__).resolve().parent
COLUMNS = {
    "limit": "limit", "static": "ours, static", "shared": "ours, shared",
    "packet": "packet pool", "packet_nocache": "packet pool, no cache",
    "packet_bulk": "packet pool, bulk", "glibc": "glibc", "mimalloc": "mimalloc",
    "jemalloc": "jemalloc", "tcmalloc": "tcmalloc", "sector_loop": "libc a sector",
    "rados": "librados",
}
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


# ------------------------------------------------------------------------------ the figures

class Figure:
    """One cell: what the repetitions measured, and what counts of it."""

    def __init__(self, values, choose):
        self.value = choose(values)
        self.distance = abs(statistics.median(values) - self.value)


def value_of(entry, figure):
    """What one repetition measured, a time as nanoseconds of a thread for one operation."""
    if figure != "time":
        return entry[figure]
    scale = NANOSECONDS[entry["time_unit"]] / entry.get("per", 1)
    if entry["threads"] == 1:
        return entry["cpu_time"] * scale
    return entry["real_time"] * entry["threads"] * scale


class Run:
    """All figures of a result file, by row, threads, source and name."""

    def __init__(self, result):
        self.context = result["context"]
        self.entries = {}
        for entry in result["benchmarks"]:
            if entry["run_type"] != "iteration" or entry.get("error_occurred"):
                continue
            row, source = entry["run_name"].split("/")[:2]
            self.entries.setdefault((row, entry["threads"], source), []).append(entry)

    def sources(self, row, threads):
        found = {key[2] for key in self.entries if key[:2] == (row, threads)}
        return [source for source in COLUMNS if source in found]

    def figure(self, row, threads, source, figure):
        entries = [entry for entry in self.entries.get((row, threads, source), [])
                   if figure == "time" or figure in entry]
        if not entries:
            return None
        return Figure([value_of(entry, figure) for entry in entries],
                      min if figure == "time" else statistics.median)


# ------------------------------------------------------------------------------ the verdicts

def best_of(run, row, target):
    """The figure that a target divides by: (source, value), the lowest of those it names."""
    names = target["over"] if isinstance(target["over"], list) else [target["over"]]
    threads = target.get("threads", row["threads"])
    found = []
    for name in names:
        cell = run.figure(target.get("row", row["id"]), threads, name, row.get("figure", "time"))
        if cell is not None:
            found.append((cell.value, name))
    return min(found) if found else None


def scaling(run, row, form):
    """A thread's time on all threads against one, after dividing by what the limit itself loses."""
    cells = [run.figure(row["id"], threads, source, "time")
             for source in (form, "limit") for threads in (row["threads"], 1)]
    if None in cells:
        return None
    many, one, limit_many, limit_one = (cell.value for cell in cells)
    return (many / one) / (limit_many / limit_one)


def judge(run, row, target, form):
    """(what is compared, the measured number, the bound, whether it is met); None without data."""
    cell = run.figure(row["id"], row["threads"], form, row.get("figure", "time"))
    if cell is None:
        return None
    if "scaling" in target:
        measured = scaling(run, row, form)
        if measured is None:
            return None
        return "2 threads against 1, over the limit's own", measured, target["scaling"], \
            measured <= target["scaling"]
    if "equals" in target:
        return "exactly", cell.value, target["equals"], cell.value == target["equals"]
    if "over" not in target:
        return "at most", cell.value, target["max"], cell.value <= target["max"]
    best = best_of(run, row, target)
    if best is None or best[0] == 0:
        return None
    measured = cell.value / best[0]
    what = "ratio to " + COLUMNS[best[1]]
    if isinstance(target["over"], list):
        what += f" (the best of {len(target['over'])})"
    if "row" in target:
        what += " in " + target["row"]
    return what, measured, target["max"], measured <= target["max"]


# ------------------------------------------------------------------------------ the document

def number(value, unit="ns"):
    if unit == "%":
        return f"{100 * value:.2f} %"
    if abs(value) >= 10000:
        return f"{value:,.0f}"
    if abs(value) >= 100 or value == int(value):
        return f"{value:.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def unit_of(row):
    return "ns" if row.get("figure", "time") == "time" else row["unit"]


def cell_text(cell, unit):
    if cell is None:
        return ""
    text = number(cell.value, unit)
    if cell.value > 0 and cell.distance > 0 and unit != "%":
        text += f" +{100 * cell.distance / cell.value:.0f}%"
    return text


def table(run, rows):
    columns = [c for c in COLUMNS
               if any(c in run.sources(row["id"], row["threads"]) for row in rows)]
    lines = ["| | unit | " + " | ".join(COLUMNS[c] for c in columns) + " |",
             "|---|---|" + "---:|" * len(columns)]
    for row in rows:
        cells = [cell_text(run.figure(row["id"], row["threads"], c, row.get("figure", "time")),
                           unit_of(row)) for c in columns]
        lines.append(f"| {row['title']} | {unit_of(row)} | " + " | ".join(cells) + " |")
    return lines


def explanation_key(row, explanations):
    for key in (f"{row['id']}.{row['threads']}", row["id"]):
        if key in explanations:
            return key
    return None


class Targets:
    """The table of targets, with the explanations of those that are missed."""

    def __init__(self, run, explanations):
        self.run = run
        self.explanations = explanations
        self.used = []
        self.met = self.missed = self.unmeasured = 0

    def explain(self, row):
        """Notes the text that belongs to a missed target of the row; the verdict for its cell."""
        key = explanation_key(row, self.explanations)
        if key is None:
            return "**missed**; not explained yet"
        if key not in self.used:
            self.used.append(key)
        return f"**missed** ({self.used.index(key) + 1})"

    def line(self, row, target, form):
        judged = judge(self.run, row, target, form)
        name = COLUMNS[form]
        if judged is None:
            self.unmeasured += 1
            return f"| {row['title']} | {name} | | | | not measured |"
        what, measured, bound, is_met = judged
        unit = unit_of(row) if what in ("exactly", "at most") else "ratio"
        self.met += is_met
        self.missed += not is_met
        verdict = "met" if is_met else self.explain(row)
        return (f"| {row['title']} | {name} | {what} | {number(bound, unit)} "
                f"| {number(measured, unit)} | {verdict} |")

    def table(self, rows):
        lines = ["| | | target | bound | measured | |", "|---|---|---|---:|---:|---|"]
        known = len(self.used)
        for row in rows:
            for target in row["targets"]:
                lines += [self.line(row, target, form) for form in target["of"]]
        if len(self.used) > known:
            lines.append("")
        for at, key in enumerate(self.used[known:], known + 1):
            lines.append(f"({at}) " + " ".join(self.explanations[key].split()) + "\n")
        return lines


def facts(run):
    context = run.context
    names = [("cpu", "processor"), ("kernel", "kernel"), ("compiler", "compiler"),
             ("revision", "revision")]
    lines = [f"- {label}: {context[key]}" for key, label in names if key in context]
    lines.insert(1, f"- cores: {context['num_cpus']}, "
                 + ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KiB"
                             for c in context.get("caches", [])))
    peers = sorted(key for key in context if key.startswith("peer_"))
    if peers:
        lines.append("- peers: " + ", ".join(f"{key[5:]} {context[key]}" for key in peers))
    repetitions = max((len(e) for e in run.entries.values()), default=0)
    lines.append(f"- repetitions: {repetitions} of each measurement, in random order; "
                 f"load of the machine before the run {context['load_avg'][0]:.2f}"
                 if context.get("load_avg") else f"- repetitions: {repetitions}")
    return lines


PREAMBLE = """\
# Performance

Written by `./bench` from one run of one program, in which the library and its peers take turns;
nothing here is typed by hand but the explanations of missed targets. What counts are the ratios:
nanoseconds belong to the machine below, and to what else it had to do.

*ours, static* is the library compiled into the program with link-time optimisation, *ours, shared*
the shared libraries. The *limit* is what the work itself costs when the memory is handed over for
free: for a page the same stores and the same locked drop. A peer's memory gets the same stores and
drops as our page. A time is that of the fastest repetition, since what disturbs a measurement only
adds to it, and + says how far above it the median lay; rows of 2 threads give a thread's time.
Figures that are no times are medians. The plot's bars are logarithmic, each row on a scale of its own.
"""


def document(run, rows, explanations, plot_name):
    targets = Targets(run, explanations)
    body = []
    for group in dict.fromkeys(row["group"] for row in rows):
        members = [row for row in rows if row["group"] == group]
        body += ["", f"## {group}", ""] + table(run, members) + [""]
        body += ["- " + row["note"] for row in members if "note" in row]
        body += [""] + targets.table(members)
    summary = (f"{targets.met} targets are met, {targets.missed} are missed"
               + (f", {targets.unmeasured} were not measured" if targets.unmeasured else "") + ".")
    lines = [PREAMBLE, *facts(run), "", summary, "", f"![The times of all rows]({plot_name})"]
    for key in sorted(set(explanations) - set(targets.used)):
        print(f"report: the explanation of {key} belongs to no missed target", file=sys.stderr)
    return "\n".join(lines + body) + "\n", targets


def instructions_section(folder, rows):
    """What a thing costs in instructions, as callgrind counted; nothing when it has not."""
    path = folder / "instructions.json"
    if not path.exists():
        return []
    counted = {(cell["row"], cell["source"]): cell for cell in json.loads(path.read_text())}
    columns = [source for source in COLUMNS if any(source == key[1] for key in counted)]
    lines = ["", "## Instructions", "",
             "Counted by callgrind in rows of one thread, the difference between many turns and few,",
             "then the functions that take at least a fiftieth of *ours, static*, with what is compiled",
             "into them. Waiting for memory does not show here, and instructions of a copy move up to",
             "32 bytes. The plain copy of a long stretch is one string instruction, which counts once a",
             "byte.", "",
             "| | " + " | ".join(COLUMNS[source] for source in columns)
             + " | of ours, static |", "|---|" + "---:|" * len(columns) + "---|"]
    for row in rows:
        cells = [counted.get((row["id"], source)) for source in columns]
        if row["threads"] != 1 or not any(cells) or unit_of(row) != "ns":
            continue
        ours = counted.get((row["id"], "static"), {"functions": []})
        lines.append(f"| {row['title']} | "
                     + " | ".join(number(cell["instructions"]) if cell else "" for cell in cells)
                     + " | " + ", ".join(f"`{name.split('::')[-1]}` {number(value)}"
                                         for name, value in ours["functions"][:5]) + " |")
    return lines


def node_section(folder):
    """cmm_node beside cp, from hyperfine's files and the profile; nothing when they are not there."""
    lines = []
    for replicas in (1, 3):
        path = folder / f"node_{replicas}.json"
        if not path.exists():
            return []
        with open(path) as file:
            results = json.load(file)["results"]
        base = next(result["min"] for result in results if result["command"] == "cp")
        for result in results:
            rate = 256 * replicas / result["min"]
            lines.append(f"| {replicas} | {result['command']} | {1000 * result['min']:.0f} ms "
                         f"+{100 * (result['median'] / result['min'] - 1):.0f}% | {rate:,.0f} MiB/s "
                         f"| {result['min'] / base:.2f} |")
    lines = ["", "## The program cmm_node", "",
             "256 MiB in memory, replicas in memory, the fastest of 9 runs. cmm_node forms and checks",
             "integrity bytes, reads every replica back and compares; cp does neither.", "",
             "| replicas | | time | replicas written | ratio to cp |", "|---:|---|---:|---:|---:|",
             *lines]
    profile = folder / "node_profile.txt"
    if profile.exists():
        lines += ["", "Where its time goes with 3 replicas, by samples:", "", "```",
                  *profile.read_text().rstrip().splitlines(), "```"]
    return lines


# ------------------------------------------------------------------------------ the plot

BAR, GAP, LEFT, WIDTH = 13, 20, 170, 860
COLOURS = {"limit": "#9a9a9a", "static": "#1b6ca8", "shared": "#5fa8d3"}


def panel(run, row, top):
    """One row's bars, on a scale from 1 ns that is logarithmic."""
    cells = [(source, run.figure(row["id"], row["threads"], source, row.get("figure", "time")))
             for source in run.sources(row["id"], row["threads"])]
    cells = [(source, cell) for source, cell in cells if cell is not None and cell.value > 0]
    longest = max((math.log10(1 + cell.value) for _, cell in cells), default=1)
    parts = [f'<text x="8" y="{top + 12}" class="title">{escape(row["title"])}</text>']
    at = top + 18
    for source, cell in cells:
        length = (WIDTH - LEFT - 110) * math.log10(1 + cell.value) / longest
        parts.append(
            f'<text x="{LEFT - 6}" y="{at + 10}" class="name">{escape(COLUMNS[source])}</text>'
            f'<rect x="{LEFT}" y="{at}" width="{length:.1f}" height="{BAR - 2}" '
            f'fill="{COLOURS.get(source, "#d9a441")}"/>'
            f'<text x="{LEFT + length + 4:.1f}" y="{at + 10}">{number(cell.value)} ns</text>')
        at += BAR
    return parts, at + GAP


def plot(run, rows):
    parts, top = [], 10
    for row in rows:
        if unit_of(row) != "ns" or not run.sources(row["id"], row["threads"]):
            continue
        more, top = panel(run, row, top)
        parts += more
    style = ("text{font:11px sans-serif;fill:#222}.title{font-weight:bold}"
             ".name{text-anchor:end}")
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{top}" '
            f'viewBox="0 0 {WIDTH} {top}"><style>{style}</style>'
            f'<rect width="{WIDTH}" height="{top}" fill="#fff"/>' + "\n".join(parts) + "</svg>\n")


# ------------------------------------------------------------------------------ running it

def load(name):
    with open(HERE / name, "rb") as file:
        return tomllib.load(file)


def written_by_others(document_path):
    """The block device's section, which apps/nbd_node/measure writes: kept as it stands."""
    document = document_path.read_text() if document_path.exists() else ""
    begin = document.find("\n## The block device\n")
    return "\n" + document[begin:] if begin >= 0 else ""


def write(result_path, document_path):
    with open(result_path) as file:
        run = Run(json.load(file))
    rows = load("targets.toml")["row"]
    plot_path = document_path.with_suffix(".svg")
    text, targets = document(run, rows, load("explanations.toml"), plot_path.name)
    folder = Path(result_path).parent
    kept = written_by_others(document_path)
    ours = instructions_section(folder, rows) + node_section(folder) + [""]
    document_path.write_text(text + "\n".join(ours) + kept)
    plot_path.write_text(plot(run, rows))
    print(f"{document_path}: {targets.met} targets met, {targets.missed} missed, "
          f"{targets.unmeasured} not measured")
    return 0


def self_test():
    def entry(name, threads, time, **counters):
        return {"run_name": name, "run_type": "iteration", "threads": threads, "time_unit": "ns",
                "cpu_time": time, "real_time": time, **counters}

    result = {"context": {"num_cpus": 2}, "benchmarks": [
        entry("r/limit/real_time/threads:1", 1, 10), entry("r/limit/real_time/threads:2", 2, 6),
        entry("r/static/real_time/threads:1", 1, 30, per=2),
        entry("r/static/real_time/threads:1", 1, 40, per=2),
        entry("r/static/real_time/threads:1", 1, 90, per=2),
        entry("r/static/real_time/threads:2", 2, 24, per=2),
        entry("r/glibc/real_time/threads:1", 1, 50), entry("r/jemalloc/x", 1, 25, objects=7),
    ]}
    run = Run(result)
    row = {"id": "r", "threads": 1}
    assert run.figure("r", 1, "static", "time").value == 15
    assert run.figure("r", 2, "static", "time").value == 24
    assert run.figure("r", 1, "packet", "time") is None
    both = {"over": ["glibc", "jemalloc"], "max": 0.8}
    assert judge(run, row, both, "static")[1:] == (0.6, 0.8, True)
    assert judge(run, row, {"over": "limit", "max": 1.4}, "static")[1:] == (1.5, 1.4, False)
    assert judge(run, row, {"max": 15}, "static")[3] and not judge(run, row, {"max": 14},
                                                                   "static")[3]
    scaled = judge(run, {"id": "r", "threads": 2}, {"scaling": 0.9}, "static")
    assert scaled[1:] == ((24 / 15) / (12 / 10), 0.9, False)
    counted = {"id": "r", "threads": 1, "figure": "objects"}
    assert judge(run, counted, {"equals": 7}, "jemalloc")[3]
    assert judge(run, row, {"max": 1}, "packet") is None
    print("report: the self-test passed")
    return 0


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    return write(Path(arguments[0]), Path(arguments[1]))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
