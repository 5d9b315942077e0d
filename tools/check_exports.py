#!/usr/bin/env python3
"""Exports, headers and version script say the same.

    check_exports.py --shared LIB.so --static LIB.a --map FILE --headers DIR --seam DIR
    check_exports.py --layers PLATFORM LIB.so...
    check_exports.py --self-test

The exported headers are the interface, the version script repeats their names grouped by header,
and the shared library's dynamic symbols are what programs really get. All three must name the same
functions and the same data. The libraries' link properties, on which embedders lean, are read
from the files themselves:

    shared   names the three platform libraries as its own needs; is never unloaded; binds no data
             to itself, so that a program and the library share one copy of each global
    static   defines no operation of the seam, and leaves the ones it calls undefined

Of the platform's layers the same holds for the headers of the seam and of the host interfaces. A
layer's script has groups besides that name what its private headers declare for the layer above.
"""

import argparse
import re
import subprocess
import sys
import tempfile
from pathlib import Path

PLATFORM = ("libzyumm.so", "libzymm.so", "libzyax.so")


def tool(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def without_comments(text):
    return re.sub(r"/\*.*?\*/|//[^\n]*", " ", text, flags=re.S)


def declarations(text, marker):
    """{name: "function" or "data"} of what follows `marker` in a C header."""
    found = {}
    for statement in re.findall(marker + r"\s+([^;{]*);", without_comments(text)):
        head = statement.split("(")[0]
        if statement.lstrip().startswith("extern ") and "(" not in statement:
            found[re.search(r"(\w+)\s*(\[[^\]]*\])*\s*$", statement).group(1)] = "data"
        else:
            found[re.search(r"(\w+)\s*$", head).group(1)] = "function"
    return found


def operations(header):
    """Names of the functions that a header without a marker declares."""
    names = set()
    text = re.sub(r"^\s*#.*$", "", without_comments(header.read_text()), flags=re.M)
    text = re.sub(r"\{[^{}]*\}", "{}", text.replace('extern "C" {', ""))
    for statement in text.split(";"):
        record = "struct" in statement.split("(")[0] and "*" not in statement
        if "typedef" in statement or record:
            continue
        match = re.match(r"\s*[\w\s\*]*?\b(\w+)\s*\(", statement)
        if match:
            names.add(match.group(1))
    return names


def seam_operations(directory):
    """Names of the functions that the seam headers declare."""
    return set().union(*(operations(header) for header in Path(directory).glob("*.h")))


def map_groups(text):
    """{header: [names]} of a version script's global part."""
    part = text.split("global:", 1)[1].split("local:", 1)[0]
    groups, current = {}, None
    for header, name in re.findall(r"/\*\s*(\S+\.h)\b[^*]*\*/|(\w+)\s*;", part):
        if header:
            current = header
            groups[current] = []
        else:
            groups.setdefault(current, []).append(name)
    return groups


def dynamic_symbols(library):
    """{name: "function" or "data"} that the shared library defines for others."""
    kinds = {}
    for text in tool("nm", "-D", "--defined-only", library).splitlines():
        _, letter, name = text.split()
        kinds[name.split("@")[0]] = "function" if letter in "TtWwi" else "data"
    return kinds


def archive_symbols(library):
    """(defined, undefined) names of a static library, as a link of all its members leaves them."""
    defined, undefined = set(), set()
    for text in tool("nm", library).splitlines():
        fields = text.split()
        if len(fields) == 2 and fields[0] in "Uw":
            undefined.add(fields[1])
        elif len(fields) == 3 and fields[1] not in "tdbr":
            defined.add(fields[2])
    return defined, undefined - defined


def compare(left, left_name, right, right_name):
    lines = [f"{name}: in {left_name}, not in {right_name}" for name in sorted(left - right)]
    return lines + [f"{name}: in {right_name}, not in {left_name}" for name in sorted(right - left)]


def check_names(headers, groups, exports):
    """`headers` is {header: {name: kind}}, `groups` the version script, `exports` {name: kind}."""
    lines = []
    for header in sorted(set(headers) | set(groups)):
        lines += compare(set(headers.get(header, {})), header,
                         set(groups.get(header, [])), f"the version script's group {header}")
    kinds = {name: kind for names in headers.values() for name, kind in names.items()}
    lines += compare(set(kinds), "the headers", set(exports), "the shared library")
    for name in sorted(set(kinds) & set(exports)):
        if kinds[name] != exports[name]:
            lines.append(f"{name}: {kinds[name]} in its header, {exports[name]} in the library")
    return lines


def check_dynamic(dynamic):
    """`dynamic` is what readelf -d prints of the shared library."""
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    lines = [f"the shared library does not need {name}" for name in PLATFORM
             if not any(need.startswith(name) for need in needed)]
    if "NODELETE" not in dynamic:
        lines.append("the shared library may be unloaded while its timer is armed")
    if re.search(r"\(SYMBOLIC\)|FLAGS\).*SYMBOLIC", dynamic):
        lines.append("the shared library binds its data to itself")
    return lines


def check_static(defined, undefined, seam):
    lines = [f"{name}: operation of the seam, defined in the static library"
             for name in sorted(defined & seam)]
    if not undefined & seam:
        lines.append("the static library calls no operation of the seam: was it linked whole?")
    return lines


def check(options):
    headers = {path.name: declarations(path.read_text(), "CMM_API")
               for path in Path(options.headers).glob("*.h") if path.name != "zyumm_cmm_types.h"}
    exports = dynamic_symbols(options.shared)
    lines = check_names(headers, map_groups(Path(options.map).read_text()), exports)
    lines += check_dynamic(tool("readelf", "-d", options.shared))
    seam = seam_operations(options.seam)
    lines += [f"{name}: operation of the seam, exported" for name in sorted(set(exports) & seam)]
    lines += check_static(*archive_symbols(options.static), seam)
    print(f"exports: {len(exports)} names, {len(seam)} operations of the seam")
    return lines


def check_layer_names(headers, groups, exports):
    """`headers` is {header: names}, `groups` the scripts of all layers, `exports` their names."""
    lines = []
    for header in sorted(headers):
        lines += compare(headers[header], header,
                         set(groups.get(header, [])), f"the version scripts' group {header}")
    scripted = {name for names in groups.values() for name in names}
    return lines + compare(scripted, "the version scripts", exports, "the shared libraries")


def check_layers(platform, *libraries):
    headers, groups, exports = {}, {}, set()
    for folder in ("include", "linux/include"):
        for path in Path(platform, folder).glob("*.h"):
            headers[path.name] = operations(path)
    for script in Path(platform, "linux").glob("*/*.map"):
        groups.update(map_groups(script.read_text()))
    for library in libraries:
        exports |= set(dynamic_symbols(library))
    print(f"exports: {len(exports)} names of the platform's layers")
    return check_layer_names(headers, groups, exports)


# ---------------------------------------------------------------- self test

HEADER = """
/* CMM_API int not_this(void); */
CMM_API extern uint64_t s_handle;
CMM_API extern record g_table[ENTRIES];
CMM_API uint32_t start(void);
CMM_API struct node *find(struct node *doc,
                          void (*visit)(void *));
"""
SEAM_HEADER = """
#define SEAM_H
extern "C" {
enum { A = 1, B = 2 };
typedef struct lock { uint64_t word; } lock;
void do_lock(lock *l, const char *func);
struct item { int (*create)(item *, int); void *next; };
int  log_line(const char *format, ...) __attribute__((format(printf, 1, 2)));
const char *name_of(uint32_t id);
}
"""
MAP = "{\n global:\n /* a.h */\n s_handle; g_table;\n start; find;\n local:\n *;\n};"
DYNAMIC = """ 0x1 (NEEDED) Shared library: [libzyumm.so.0]
 0x1 (NEEDED) Shared library: [libzymm.so.0]
 0x1 (NEEDED) Shared library: [libzyax.so.0]
 0x6 (FLAGS_1) Flags: NODELETE
"""


def self_test():
    lines = []

    def expect(what, claim):
        if not claim:
            lines.append(f"self-test: {what}")

    names = {"s_handle": "data", "g_table": "data", "start": "function", "find": "function"}
    groups = map_groups(MAP)
    expect("declarations are not read", declarations(HEADER, "CMM_API") == names)
    expect("the version script is not read", groups == {"a.h": list(names)})
    expect("agreement is refused", not check_names({"a.h": names}, groups, names))
    for name in names:
        less = {key: kind for key, kind in names.items() if key != name}
        expect(f"{name} may be missing in the library", check_names({"a.h": names}, groups, less))
        expect(f"{name} may be missing in the header", check_names({"a.h": less}, groups, names))
        fewer = {"a.h": [key for key in names if key != name]}
        expect(f"{name} may be missing in the script", check_names({"a.h": names}, fewer, names))
    expect("a function may become data",
           check_names({"a.h": names}, groups, {**names, "start": "data"}))
    expect("a name may stand under another header",
           check_names({"a.h": names}, {"b.h": list(names)}, names))

    layers = {"x.h": {"do_lock"}}, {"x.h": ["do_lock"], "private.h": ["help"]}
    expect("agreeing layers are refused", not check_layer_names(*layers, {"do_lock", "help"}))
    expect("a layer's name may be missing in its script",
           check_layer_names({"x.h": {"do_lock", "more"}}, layers[1], {"do_lock", "help"}))
    expect("a script's name may be missing in its header",
           check_layer_names({"x.h": set()}, layers[1], {"do_lock", "help"}))
    expect("a layer may keep a name", check_layer_names(*layers, {"do_lock"}))
    expect("a layer may export more", check_layer_names(*layers, {"do_lock", "help", "other"}))

    expect("sound link properties are refused", not check_dynamic(DYNAMIC))
    for word in (*PLATFORM, "NODELETE"):
        expect(f"{word} may be missing", check_dynamic(DYNAMIC.replace(word, "other")))
    expect("SYMBOLIC is overlooked", check_dynamic(DYNAMIC + " 0x10 (SYMBOLIC) 0x0\n"))

    with_seam = {"do_lock", "log_line", "name_of"}
    seam = Path(sys.argv[0]).resolve().parent.parent / "platform/include"
    expect("the seam's operations are not read", len(seam_operations(seam)) > 60)
    expect("a sound static library is refused", not check_static({"start"}, {"do_lock"}, with_seam))
    expect("a seam operation may be defined", check_static({"do_lock"}, {"name_of"}, with_seam))
    expect("an empty static library passes", check_static(set(), set(), with_seam))
    expect("seam declarations are misread", seam_of_text(SEAM_HEADER) == with_seam)
    return lines


def seam_of_text(text):
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "x.h").write_text(text)
        return seam_operations(folder)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--self-test", action="store_true")
    for name in ("shared", "static", "map", "headers", "seam"):
        parser.add_argument("--" + name)
    parser.add_argument("--layers", nargs="+")
    options = parser.parse_args()

    if options.self_test:
        lines = self_test()
    else:
        lines = check_layers(*options.layers) if options.layers else check(options)
    print("\n".join(lines) if lines else "exports: nothing to report")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main())
