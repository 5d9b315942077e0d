#!/usr/bin/env python3
"""What the unit tests reach of the library, line by line and branch by branch.

    check_coverage.py [ROOT]        runs them in build/coverage, prints a table, then
                                    "N passed, N failed"; exits 1 when anything failed
    check_coverage.py --self-test   shows that every rule is able to fail

It passes when
- the unit tests pass;
- every line of src/cmm_umm that is code has run;
- of all branches 95 % or more were taken, each way out of a condition counting as one;
- the branches never taken are exactly those of tests/coverage/uncovered.txt, each with its reason.

A source file is one claim of the sum, the unit tests and the percentage are one each. An entry of
the list names a branch by file, function and the text of its line, so it outlives edits elsewhere.
Instances of one template count as one; so do the library's two callers of an inline function.
"""

import json
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

SOURCES = "src/cmm_umm"
BUILD = "build/coverage"
LIST = "tests/coverage/uncovered.txt"
BRANCHES_NEEDED = 95.0
JOBS = "-j2"

# file | function | ways not taken | `text of the line` | reason
ENTRY = re.compile(r"^(\S+) \| (\w+) \| (\d+) \| `(.*)` \| (\S.*)$")
EXCLUDED = re.compile(r"[GL]COV_EXCL")


class Report:
    """One source file: counts, and where something is missing."""

    def __init__(self, name):
        self.name = name
        self.lines = self.lines_run = self.branches = self.taken = 0
        self.never_run = []       # "file:line: text"
        self.not_taken = Counter()  # (file, function, text) -> ways
        self.places = {}          # the same -> "file:line"
        self.excluded = False


def function_names(functions):
    """[(first line, plain name)], ascending; of "int f<x>(y)" the name is f."""
    names = [(f["lineno"], re.split(r"[<(]", f["name"])[0].split(" ")[-1]) for f in functions]
    return sorted(names)


def name_at(names, number):
    before = [name for first, name in names if first <= number]
    return before[-1] if before else "-"


def report_of(entry, text):
    """Of one file of gcovr's answer and the file's text."""
    report = Report(entry["file"])
    source = text.split("\n")
    names = function_names(entry["functions"])
    report.excluded = EXCLUDED.search(text) is not None

    for line in entry["lines"]:
        if line.get("gcovr/noncode"):
            continue
        number = line["line_number"]
        words = source[number - 1].strip()
        report.lines += 1
        if line["count"] != 0:
            report.lines_run += 1
        else:
            report.never_run.append(f"{report.name}:{number}: {words}")
        missing = sum(branch["count"] == 0 for branch in line["branches"])
        report.branches += len(line["branches"])
        report.taken += len(line["branches"]) - missing
        if missing:
            key = (report.name, name_at(names, number), words)
            report.not_taken[key] += missing
            report.places[key] = f"{report.name}:{number}"
    return report


def read_list(text):
    """What the list allows, and complaints about the list itself."""
    allowed, complaints = Counter(), []
    for number, line in enumerate(text.split("\n"), 1):
        if not line.strip() or line.startswith("#"):
            continue
        match = ENTRY.match(line)
        if match is None:
            complaints.append(f"{LIST}:{number}: not an entry")
        else:
            file, function, ways, words, _ = match.groups()
            allowed[(file, function, words)] += int(ways)
    return allowed, complaints


def complaints_about(report, allowed):
    lines = [f"never run: {line}" for line in report.never_run]
    if report.excluded:
        lines.append(f"{report.name}: switches the counting off")
    listed = {key: ways for key, ways in allowed.items() if key[0] == report.name}
    for key in sorted(set(report.not_taken) | set(listed)):
        found, expected = report.not_taken.get(key, 0), listed.get(key, 0)
        if found > expected:
            lines.append(f"{found} not taken, {expected} listed: {report.places[key]}: "
                         f"{key[1]}: {key[2]}")
        elif found < expected:
            lines.append(f"{found} not taken, {expected} listed: remove from {LIST}: "
                         f"{key[0]}: {key[1]}: {key[2]}")
    return lines


def percent(part, whole):
    """Cut to one decimal, so that 100.0 is said of all and of nothing less."""
    return 100.0 if whole == 0 else 1000 * part // whole / 10


def table_row(name, lines_run, lines, taken, branches):
    return (f"{name:<46}{lines_run:>6} of{lines:>5}{percent(lines_run, lines):>8.1f} %"
            f"{taken:>7} of{branches:>5}{percent(taken, branches):>8.1f} %")


def sums(reports):
    return [sum(getattr(report, field) for report in reports)
            for field in ("lines_run", "lines", "taken", "branches")]


def judge(reports, sources, allowed, complaints):
    """[(claim, complaints)]; a claim without complaints holds."""
    claims = [(report.name, complaints_about(report, allowed)) for report in reports]
    known = {report.name for report in reports}
    claims += [(name, [f"{name}: not in the report"]) for name in sorted(sources - known)]
    strange = sorted({key[0] for key in allowed} - known - sources)
    claims.append((LIST, complaints + [f"{LIST}: {name} is no source" for name in strange]))

    _, lines, taken, branches = sums(reports)
    low = [] if lines and percent(taken, branches) >= BRANCHES_NEEDED else [
        f"{percent(taken, branches)} % of the branches, {BRANCHES_NEEDED} % are needed"]
    claims.append(("branches", low))
    return claims


def show(reports, allowed, claims):
    print(f"{'source':<46}{'lines':>14}{'':>10}{'branches':>15}")
    for report in reports:
        print(table_row(report.name.removeprefix(SOURCES + "/"), report.lines_run, report.lines,
                        report.taken, report.branches))
    print(table_row("all", *sums(reports)))
    print(f"{sum(allowed.values())} branches are listed in {LIST} with their reasons")
    for _, lines in claims:
        for line in lines:
            print(line)


def run_unit_tests(root):
    for counters in (root / BUILD).rglob("*.gcda"):
        counters.unlink()
    done = subprocess.run(["ctest", "--test-dir", str(root / BUILD / "tests/unit"), JOBS,
                           "--output-on-failure", "--no-tests=error"],
                          capture_output=True, text=True)
    if done.returncode == 0:
        return []
    return ["the unit tests failed:", *done.stdout.split("\n")[-60:]]


def measured(root):
    done = subprocess.run(["gcovr", "--root", ".", BUILD, "--filter", SOURCES + "/", JOBS,
                           "--json", "-"], cwd=root, stdout=subprocess.PIPE, check=True)
    files = json.loads(done.stdout)["files"]
    return [report_of(entry, (root / entry["file"]).read_text()) for entry in files]


def check(root):
    unit = run_unit_tests(root)
    reports = measured(root)
    allowed, complaints = read_list((root / LIST).read_text())
    sources = {str(path.relative_to(root)) for path in (root / SOURCES).rglob("*.cpp")}
    claims = [("unit tests", unit), *judge(reports, sources, allowed, complaints)]

    show([report for report in reports if report.lines], allowed, claims)
    failed = sum(bool(lines) for _, lines in claims)
    print(f"{len(claims) - failed} passed, {failed} failed")
    return failed


# ------------------------------------------------------------------------------------- self-test

TEXT = "int f(int a)\n{\n    if (a)\n        return 1;\n    return 0;\n}\n"


def made_up(counts=(1, 1, 1), taken=(1,) * 38 + (0, 1), text=TEXT):
    """A report of the file above; its condition has 40 ways out, of which one is never taken."""
    lines = [{"line_number": number, "count": count, "branches": []}
             for number, count in zip((3, 4, 5), counts)]
    lines[0]["branches"] = [{"count": count} for count in taken]
    return report_of({"file": "a.cpp", "lines": lines,
                      "functions": [{"lineno": 1, "name": "int f<int>(int)"}]}, text)


SOUND = "# a list\na.cpp | f | 1 | `if (a)` | no caller passes 0\n"


def verdict(report, listed=SOUND, sources=("a.cpp",)):
    allowed, complaints = read_list(listed)
    return [line for _, lines in judge([report], set(sources), allowed, complaints)
            for line in lines]


def self_test():
    lines = [f"self-test: a sound report is refused: {line}" for line in verdict(made_up())]
    for what, found in (
            ("a line that never ran", verdict(made_up(counts=(1, 0, 1)))),
            ("a branch that is not listed", verdict(made_up(), listed="")),
            ("one way more than listed", verdict(made_up(taken=(1,) * 60 + (0, 0)))),
            ("a listed branch that was taken", verdict(made_up(taken=(1, 1)))),
            ("a listed line that changed", verdict(made_up(text=TEXT.replace("(a)", "(a > 0)")))),
            ("another function", verdict(made_up(), listed=SOUND.replace("| f |", "| g |"))),
            ("too few branches", verdict(made_up(taken=(1, 0)))),
            ("an entry without a reason", verdict(made_up(), SOUND + "a.cpp | f | 1 | `x` |\n")),
            ("an entry of a file that is gone", verdict(made_up(), SOUND.replace("a.c", "b.c"))),
            ("a source that is not measured", verdict(made_up(), sources=("a.cpp", "b.cpp"))),
            ("counting switched off", verdict(made_up(text=TEXT + "// GCOV_EXCL_LINE\n")))):
        if not found:
            lines.append(f"self-test: not found: {what}")
    return lines


def main(arguments):
    if arguments == ["--self-test"]:
        lines = self_test()
        print("\n".join(lines) if lines else "coverage: every rule is able to fail")
        return 1 if lines else 0
    root = Path(arguments[0]) if arguments else Path(__file__).resolve().parent.parent
    return 1 if check(root) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
