#!/usr/bin/env python3
"""Whether a text is valid OpenMetrics.

    check_openmetrics.py [FILE]                  prints one line a fault, exits 1 if there are any
    check_openmetrics.py --run COMMAND...        the same for a command's output
    check_openmetrics.py --self-test             shows that every rule is able to fail

The rules are those of the format: the last line is "# EOF" and nothing follows; a family's metadata
stand before its samples, each kind once; the samples of a family stand together, and so do those of
one set of labels; names and labels have their characters, values their escapes; a counter's samples
end in _total or _created and never fall below 0; an info's end in _info and are 1; a gauge's have
no ending; the name of a family with a unit ends in it; no series comes twice. Beyond the rules,
what is asked of every good exposition: each family has a type and a help text, and units are base
units.
"""

import math
import re
import subprocess
import sys

NAME = re.compile(r"[a-zA-Z_:][a-zA-Z0-9_:]*\Z")
LABEL_NAME = re.compile(r"[a-zA-Z_][a-zA-Z0-9_]*\Z")
NUMBER = re.compile(r"[+-]?(\d+\.?\d*([eE][+-]?\d+)?|\.\d+([eE][+-]?\d+)?|inf(inity)?|nan)\Z", re.I)
TIMESTAMP = re.compile(r"-?\d+(\.\d*)?\Z")
TYPES = {"gauge", "counter", "stateset", "info", "histogram", "gaugehistogram", "summary",
         "unknown"}
ENDINGS = {
    "counter": ("_total", "_created"), "info": ("_info",), "gauge": ("",), "unknown": ("",),
    "stateset": ("",), "summary": ("", "_count", "_sum", "_created"),
    "histogram": ("_bucket", "_count", "_sum", "_created"),
    "gaugehistogram": ("_bucket", "_gcount", "_gsum"),
}
BASE_UNITS = {"seconds", "bytes", "ratio", "joules", "grams", "meters", "volts", "amperes",
              "celsius"}


class Fault(Exception):
    pass


def unescaped_help(text):
    at = 0
    while at < len(text):
        if text[at] == "\\":
            if text[at + 1:at + 2] not in ("\\", "n", '"'):
                raise Fault("a backslash in a help text that escapes nothing")
            at += 1
        at += 1


def quoted_value(text, at):
    """The value that begins behind a quote at `at`, and where it ends, behind its quote."""
    value = ""
    while at < len(text):
        char = text[at]
        if char == '"':
            return value, at + 1
        if char == "\\":
            at += 1
            char = {"n": "\n", "\\": "\\", '"': '"'}.get(text[at:at + 1])
            if char is None:
                raise Fault("a backslash in a label's value that escapes nothing")
        value += char
        at += 1
    raise Fault("a label's value without its end")


def labels_of(text):
    """The labels in `{...}...`, as pairs, and the rest of the line."""
    labels, at = [], 1
    while text[at:at + 1] != "}":
        equals = text.find("=", at)
        if equals < 0 or text[equals + 1:equals + 2] != '"':
            raise Fault("a label without a quoted value")
        name = text[at:equals]
        if not LABEL_NAME.match(name):
            raise Fault(f"a label with the name {name!r}")
        value, at = quoted_value(text, equals + 2)
        labels.append((name, value))
        if text[at:at + 1] == ",":
            at += 1
            if text[at:at + 1] == "}":
                raise Fault("a comma behind the last label")
        elif text[at:at + 1] != "}":
            raise Fault("labels that are not parted by a comma")
    if len({name for name, _ in labels}) != len(labels):
        raise Fault("a label comes twice")
    return tuple(labels), text[at + 1:]


class Checker:
    """Reads lines in their order; what it knows of the present family, and of all before."""

    def __init__(self):
        self.family = None
        self.metadata = {}      # of the present family: TYPE, UNIT, HELP
        self.has_samples = False
        self.closed = set()     # families that have ended
        self.series = set()     # of the present family: sample name and labels
        self.metrics = []       # of the present family: sets of labels in their order
        self.used_names = {}    # sample name -> family

    def start(self, family):
        self.finish()
        if family in self.closed:
            raise Fault(f"the family {family} comes in two places")
        if not NAME.match(family):
            raise Fault(f"a family with the name {family!r}")
        self.family, self.metadata, self.has_samples = family, {}, False
        self.series, self.metrics = set(), []

    def finish(self):
        if self.family is None:
            return
        family, metadata = self.family, self.metadata
        self.family = None
        self.closed.add(family)
        for kind in ("TYPE", "HELP"):
            if kind not in metadata:
                raise Fault(f"the family {family} has no {kind}")
        unit = metadata.get("UNIT", "")
        if unit and not family.endswith("_" + unit):
            raise Fault(f"the family {family} does not end in its unit {unit}")
        if unit and unit not in BASE_UNITS:
            raise Fault(f"the unit {unit} of {family} is no base unit")
        if unit and metadata["TYPE"] in ("info", "stateset"):
            raise Fault(f"the family {family} may have no unit")
        if not unit and family.rsplit("_", 1)[-1] in BASE_UNITS:
            raise Fault(f"the family {family} does not name its unit")

    def metadata_line(self, line):
        match = re.match(r"# (TYPE|UNIT|HELP) (\S+)( (.*))?\Z", line)
        if not match:
            raise Fault("a comment that is no metadata")
        kind, family, text = match.group(1), match.group(2), match.group(4) or ""
        if family != self.family:
            self.start(family)
        if self.has_samples:
            raise Fault(f"{kind} of {family} behind its samples")
        if kind in self.metadata:
            raise Fault(f"a second {kind} of {family}")
        if kind == "TYPE" and text not in TYPES:
            raise Fault(f"the type {text!r}")
        if kind == "HELP":
            unescaped_help(text)
        self.metadata[kind] = text

    def ending_of(self, name):
        kind = self.metadata.get("TYPE", "unknown")
        if self.family is None or not name.startswith(self.family):
            raise Fault(f"the sample {name} without its family's metadata")
        ending = name[len(self.family):]
        if ending not in ENDINGS[kind]:
            raise Fault(f"the sample {name} of the {kind} {self.family}")
        return kind, ending

    def sample_line(self, line):
        match = re.match(r"[^{ ]+", line)
        name = match.group(0) if match else ""
        if not NAME.match(name):
            raise Fault(f"a sample with the name {name!r}")
        rest, labels = line[len(name):], ()
        if rest.startswith("{"):
            labels, rest = labels_of(rest)
        parts = rest.split(" ")
        if parts[0] != "" or len(parts) not in (2, 3) or not NUMBER.match(parts[1]):
            raise Fault("what stands behind the name is no value, nor one with a time")
        if len(parts) == 3 and not TIMESTAMP.match(parts[2]):
            raise Fault("a time that is no number")
        kind, ending = self.ending_of(name)
        self.check_value(kind, ending, float(parts[1]), name)
        self.check_place(name, labels)

    def check_value(self, kind, ending, value, name):
        if kind == "counter" and ending == "_total" and (math.isnan(value) or value < 0):
            raise Fault(f"the counter {name} is below 0 or no number")
        if kind == "info" and value != 1:
            raise Fault(f"the info {name} is not 1")

    def check_place(self, name, labels):
        self.has_samples = True
        series = (name, frozenset(labels))
        if series in self.series:
            raise Fault(f"the series {name}{dict(labels)} comes twice")
        self.series.add(series)
        if self.used_names.setdefault(name, self.family) != self.family:
            raise Fault(f"samples named {name} are in two families")
        plain = frozenset(pair for pair in labels if pair[0] not in ("le", "quantile"))
        if plain in self.metrics[:-1]:
            raise Fault(f"the samples of {name}{dict(labels)} do not stand together")
        if not self.metrics or self.metrics[-1] != plain:
            self.metrics.append(plain)


def faults(data):
    """All faults of an exposition, given as bytes, one line each."""
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError:
        return ["it is not UTF-8"]
    if not text.endswith("# EOF\n") and not text.endswith("# EOF"):
        return ["the last line is not # EOF"]
    lines = text.removesuffix("\n").split("\n")
    checker, found = Checker(), []
    for number, line in enumerate(lines, 1):
        try:
            if line == "# EOF":
                if number != len(lines):
                    raise Fault("# EOF before the end")
                checker.finish()
            elif line.startswith("#"):
                checker.metadata_line(line)
            elif line == "":
                raise Fault("an empty line")
            else:
                checker.sample_line(line)
        except Fault as fault:
            found.append(f"line {number}: {fault}: {line[:100]}")
    return found


# ---------------------------------------------------------------- self test

SOUND = r"""# TYPE a_bytes gauge
# UNIT a_bytes bytes
# HELP a_bytes Some \"help\" with a \\ and a \n.
a_bytes 1
a_bytes{pool="x"} 2.5
a_bytes{pool="a \"b\" \\ c\nd,}",line="1"} 18446744073709551615
# TYPE b counter
# HELP b Events.
b_total{x="1"} 0
b_created{x="1"} 1.5e9
b_total{x="2"} 7 1234.5
# TYPE c info
# HELP c What it is.
c_info{process="p"} 1
# TYPE d gauge
# HELP d Nothing is known of it.
# EOF
"""

BROKEN = [
    ("# EOF\n", "", "no end"),
    ("# EOF\n", "# EOF\nb_total{x=\"3\"} 1\n", "something behind the end"),
    ("# EOF\n", "\n# EOF\n", "an empty line"),
    ("# EOF\n", "# EOF\n# EOF\n", "two ends"),
    ("# TYPE a_bytes gauge\n", "", "no type"),
    ("# HELP b Events.\n", "", "no help"),
    ("# TYPE b counter", "# TYPE b count", "an unknown type"),
    ("# TYPE b counter\n", "# TYPE b counter\n# TYPE b counter\n", "a second type"),
    ("# UNIT a_bytes bytes\n", "", "a unit that is not named"),
    ("# UNIT a_bytes bytes", "# UNIT a_bytes seconds", "a unit that is not in the name"),
    ("# HELP b Events.\n", "# UNIT b kilobytes\n# HELP b Events.\n", "a unit beside the name"),
    (r"a \\ and", r"a \d and", "an escape in help"),
    ("# HELP c What", "# NOTE c What", "an unknown comment"),
    ("# HELP b Events.\nb_total{x=\"1\"} 0\n", "b_total{x=\"1\"} 0\n# HELP b Events.\n",
     "late help"),
    ("b_total{x=\"1\"}", "b{x=\"1\"}", "a counter without _total"),
    ("b_total{x=\"1\"} 0", "b_total{x=\"1\"} -1", "a counter below 0"),
    ("b_total{x=\"1\"} 0", "b_total{x=\"1\"} NaN", "a counter that is no number"),
    ("b_total{x=\"2\"} 7 1234.5", "b_total{x=\"1\"} 7", "a series twice"),
    ("b_total{x=\"2\"} 7 1234.5\n", "b_total{x=\"2\"} 7\nb_created{x=\"1\"} 2\n",
     "a metric in parts"),
    ("b_total{x=\"2\"} 7 1234.5", "b_total{x=\"2\"} 7 soon", "a time that is none"),
    ("b_total{x=\"2\"} 7 1234.5", "b_total{x=\"2\"}  7", "two blanks"),
    ("b_total{x=\"2\"} 7 1234.5", "b_total{x=\"2\"} seven", "a value that is none"),
    ("c_info{process=\"p\"} 1", "c_info{process=\"p\"} 2", "an info that is not 1"),
    ("c_info{", "c{", "an info without _info"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes_total{pool=\"x\"} 2.5", "a gauge with _total"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes{pool=\"x\",pool=\"y\"} 2.5", "a label twice"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes{pool=\"x\",} 2.5", "a comma too much"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes{po-ol=\"x\"} 2.5", "a label's name"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes{pool=x} 2.5", "no quotes"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes{pool=\"x} 2.5", "no closing quote"),
    ("a_bytes{pool=\"x\"} 2.5", "a_bytes{pool=\"x\\t\"} 2.5", "an escape in a label"),
    ("a_bytes{pool=\"x\"} 2.5", "a-bytes{pool=\"x\"} 2.5", "a sample's name"),
    ("# TYPE d gauge\n# HELP d Nothing is known of it.\n",
     "# TYPE b counter\n# HELP b More.\nb_total{x=\"9\"} 1\n", "a family in two places"),
    ("# TYPE d gauge\n# HELP d Nothing is known of it.\n", "e 1\n", "a sample of no family"),
    ("# TYPE c info\n", "# TYPE c info\n# UNIT c bytes\n", "an info with a unit"),
]


def self_test():
    lines = [f"self-test: a sound text is refused: {fault}" for fault in faults(SOUND.encode())]
    for old, new, reason in BROKEN:
        broken = SOUND.replace(old, new, 1)
        if broken == SOUND:
            lines.append(f"self-test: not applied: {reason}")
        elif not faults(broken.encode()):
            lines.append(f"self-test: not found: {reason}")
    if not faults(SOUND.encode().replace(b"process", b"\xff\xfe")):
        lines.append("self-test: not found: bytes that are no UTF-8")
    return lines


def output_of(command):
    done = subprocess.run(command, stdout=subprocess.PIPE, timeout=120)
    if done.returncode != 0:
        print(f"the command ended with {done.returncode}")
        sys.exit(1)
    return done.stdout


def main(arguments):
    if arguments == ["--self-test"]:
        lines = self_test()
    elif arguments[:1] == ["--run"]:
        lines = faults(output_of(arguments[1:]))
    else:
        source = open(arguments[0], "rb") if arguments else sys.stdin.buffer
        lines = faults(source.read())
    print("\n".join(lines) if lines else "openmetrics: nothing to report")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
