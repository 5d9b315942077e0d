#!/usr/bin/env python3
"""The static probes are what docs/operating.md says.

    check_probes.py --manual FILE LIBRARY...         compares the manual with the libraries' notes
    check_probes.py --left-out COMPILE_COMMANDS      builds the sources without probes
    check_probes.py --self-test                      shows that every rule is able to fail

The manual lists the probes in a table, one a row, its arguments in their order:

    | `zyumm_cmm:request_queued` | `req` `pages` ... | when it fires |

- every probe of the table is in a library, and every one of a library is in the table;
- wherever a probe is, it has as many arguments as the table names;
- the manual shows a bpftrace line for each, which uses no argument beyond those.

Without probes every source that has some compiles, and leaves no note behind.
"""

import argparse
import json
import re
import shlex
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROW = re.compile(r"^\| `(\w+:\w+)` \|((?: `\w+`)*) \|", flags=re.M)
LINE = re.compile(r"usdt:[^:\s]+:(\w+:\w+)\b((?:(?!usdt:).)*)")  # a line may have several probes
NOTE = re.compile(r"Provider: (\w+)\s+Name: (\w+)\s+Location:.*\n\s+Arguments:(.*)")
PROBE_HEADERS = ("cmm_probe.h", "zymm_probe.h")


def documented(manual):
    """Probe -> names of its arguments."""
    return {name: re.findall(r"\w+", arguments) for name, arguments in ROW.findall(manual)}


def shown(manual):
    """Probe -> the numbers of the arguments that its bpftrace lines use."""
    used = {}
    for name, text in LINE.findall(manual):
        used.setdefault(name, set()).update(int(n) for n in re.findall(r"\barg(\d+)\b", text))
    return used


def noted(readelf_text):
    """Probe -> the counts of arguments with which it occurs."""
    found = {}
    for provider, name, arguments in NOTE.findall(readelf_text):
        found.setdefault(f"{provider}:{name}", set()).add(len(arguments.split()))
    return found


def differences(manual, notes):
    table, lines = documented(manual), shown(manual)
    wrong = [f"{name}: in the manual, in no library" for name in table if name not in notes]
    wrong += [f"{name}: in a library, not in the manual" for name in notes if name not in table]
    if not notes:
        wrong.append("no probe at all")
    for name, arguments in table.items():
        wrong += [f"{name}: has {count} arguments, the manual names {len(arguments)}"
                  for count in notes.get(name, ()) if count != len(arguments)]
        if name not in lines:
            wrong.append(f"{name}: the manual has no bpftrace line for it")
        wrong += [f"{name}: its bpftrace line uses arg{number}, there are {len(arguments)}"
                  for number in lines.get(name, ()) if number >= len(arguments)]
    return sorted(wrong)


def notes_of(file):
    return subprocess.run(["readelf", "-n", file], check=True, capture_output=True,
                          text=True).stdout


def probed_sources(commands):
    """How the libraries' sources that have probes are compiled; tests compile some once more."""
    for entry in commands:
        if "_objects.dir/" not in entry["command"]:
            continue
        text = Path(entry["file"]).read_text()
        if any(f'{header}"' in text for header in PROBE_HEADERS):
            yield entry


def without_probes(entry, folder):
    """What is wrong when this source is compiled without probes; one line, or none."""
    command = shlex.split(entry["command"])
    target = Path(folder, Path(entry["file"]).name + ".o")
    command[command.index("-o") + 1] = str(target)
    for option in ("-MD", "-MT", "-MF"):
        if option in command:
            at = command.index(option)
            del command[at:at + (1 if option == "-MD" else 2)]
    built = subprocess.run(command + ["-DCMM_WITHOUT_PROBES"], cwd=entry["directory"],
                           capture_output=True, text=True)
    if built.returncode != 0:
        return [f"{entry['file']}: does not compile without probes\n{built.stderr}"]
    return [f"{entry['file']}: {name} is there although probes are left out"
            for name in noted(notes_of(target))]


def left_out(compile_commands):
    entries = list(probed_sources(json.loads(Path(compile_commands).read_text())))
    if not entries:
        return ["no source has probes"]
    with tempfile.TemporaryDirectory() as folder, ThreadPoolExecutor(2) as pool:
        results = pool.map(lambda entry: without_probes(entry, folder), entries)
        return [line for lines in results for line in lines]


# ---------------------------------------------------------------- self test

SOUND_MANUAL = """
| `lib:one` | `a` `b` | now |
| `lib:none` | | never |

    bpftrace -p PID -e 'usdt:/x/lib.so:lib:one { @[arg0, arg1] = count(); }'
    bpftrace -p PID -e 'usdt:/x/lib.so:lib:none { @ = count(); }'
"""
SOUND_NOTES = """
  stapsdt              0x00000052\tNT_STAPSDT (SystemTap probe descriptors)
    Provider: lib
    Name: one
    Location: 0x1, Base: 0x2, Semaphore: 0x0
    Arguments: 8@%rax -4@$1
  stapsdt              0x00000052\tNT_STAPSDT (SystemTap probe descriptors)
    Provider: lib
    Name: none
    Location: 0x1, Base: 0x2, Semaphore: 0x0
    Arguments:\x20
"""
FAULTS = [
    ("`lib:one` | `a` `b` |", "`lib:one` | `a` |", SOUND_NOTES, "an argument too few"),
    ("arg1]", "arg2]", SOUND_NOTES, "a line with an argument that is not there"),
    ("usdt:/x/lib.so:lib:none", "nothing", SOUND_NOTES, "a probe without a line"),
    ("count(); }'\n    bpftrace -p PID -e 'usdt:/x/lib.so:lib:none { @",
     "count(); } usdt:/x/lib.so:lib:none { @[arg0]", SOUND_NOTES, "the same in one line of two"),
    ("| `lib:none` | |", "| none | |", SOUND_NOTES, "a probe that the manual forgets"),
    ("| `lib:none` |", "| `lib:other` | | |\n| `lib:none` |", SOUND_NOTES, "a probe nowhere"),
    ("", "", SOUND_NOTES.replace("8@%rax", "8@%rax 8@%rbx"), "an argument too many in a library"),
    ("", "", "", "libraries without notes"),
]


def self_test():
    lines = [f"self-test: a sound manual is refused: {line}"
             for line in differences(SOUND_MANUAL, noted(SOUND_NOTES))]
    for old, new, notes, reason in FAULTS:
        manual = SOUND_MANUAL.replace(old, new, 1)
        if not differences(manual, noted(notes)):
            lines.append(f"self-test: not found: {reason}")
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--self-test", action="store_true")
    parser.add_argument("--manual")
    parser.add_argument("--left-out", metavar="COMPILE_COMMANDS")
    parser.add_argument("libraries", nargs="*")
    arguments = parser.parse_args()

    if arguments.self_test:
        lines = self_test()
    elif arguments.left_out:
        lines = left_out(arguments.left_out)
    else:
        notes = noted("".join(notes_of(library) for library in arguments.libraries))
        lines = differences(Path(arguments.manual).read_text(), notes)
    print("\n".join(lines) if lines else "probes: nothing to report")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main())
