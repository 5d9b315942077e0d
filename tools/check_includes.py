#!/usr/bin/env python3
"""Who may include what.

    check_includes.py [ROOT]       prints one line a breach, exits 1 if there are any
    check_includes.py --self-test  shows that every rule is able to fail

The folders of the project are its architecture, and an include is the only way to break it
unnoticed. Every file belongs to an area by its path, every include to a kind by what it names; the
table RULES says which kinds an area may use. A kind that no rule knows is a breach too.

    include/              exported interface     -> the types header; that one -> seam records;
                                                    libc where a declaration has its type
    src/cmm_umm/<x>       the library            -> its own _local.h first, exported, common, seam
    platform/include      the seam               -> seam headers of its own layer and lower ones
    platform/linux/<x>    a layer of the platform -> its own layer and lower ones
    console/              commands of the console -> exported, host interfaces, seam, its own
    apps/                 programs               -> everything that is handed to an embedder
    benchmarks/           measurements           -> the same, and the peers' headers

The header of the system's static probes belongs to one header of the library and one of the slab
layer. It is assembler for one family of systems; behind those two a system without it is a system
without probes, and every other source names its probes in words of its own.
"""

import re
import sys
import tempfile
from pathlib import Path

LAYERS = {"zyax": 0, "zymm": 1, "zyumm": 2}
SEAM_LAYER = {
    "zylog.h": 0, "zyax.h": 0, "zyax_xml.h": 0, "bounded.h": 0, "dbg_console.h": 0,
    "zymm.h": 1, "zyumm.h": 2,
}
TYPES_HEADER = "zyumm_cmm_types.h"
TYPES_MAY_EMBED = {"zyax.h", "zymm.h", "zyumm.h"}
LIBC_OF_HEADERS = {"stdint.h", "stddef.h", "stdarg.h"}
LIBC_OF_ONE = {"zyumm_cmm_page.h": {"pthread.h"}}  # an exported once-control
PROBES = "sys/sdt.h"
PROBE_HEADERS = {"cmm_probe.h", "zymm_probe.h"}
VENDORS = ("mxml.h", "numa.h", "numaif.h", "ini.h", "INIReader.h", "spdlog/", "fmt/", "CLI/",
           "gtest/", "nbdkit-", "isa-l/")

INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]')


def layer_of(name):
    """The layer of a host interface header, by its first word."""
    return LAYERS.get(re.split(r"[_.]", name)[0])


class Tree:
    """The project's files, and what their includes name."""

    def __init__(self, root):
        self.root = Path(root)
        self.exported = self.names("include")
        self.seam = self.names("platform/include")
        self.host = self.names("platform/linux/include")
        self.console = self.names("console/include")

    def names(self, folder):
        return {p.name for p in (self.root / folder).glob("*.h")}

    def files(self):
        for top in ("include", "src", "platform", "console", "apps", "benchmarks"):
            for path in sorted((self.root / top).rglob("*")):
                if path.suffix in (".h", ".hpp", ".c", ".cpp"):
                    yield path

    def includes(self, path):
        for number, text in enumerate(path.read_text().splitlines(), 1):
            match = INCLUDE.match(text)
            if match:
                yield number, match.group(2)

    def kind(self, path, name):
        """What an include names: (kind, detail)."""
        base = name.rsplit("/", 1)[-1]
        if ".." in name.split("/"):
            return "path", name
        if name.startswith("common/"):
            return "common", base
        if (path.parent / name).is_file() and path.parent.parent.name in ("linux", "cmm_umm"):
            return ("local" if base.endswith("_local.h") else "own"), path.parent.name
        if name in self.seam:
            return "seam", name
        if name in self.exported:
            return "exported", name
        if name in self.host:
            return "host", name
        if name in self.console:
            return "console", name
        if base.endswith("_local.h"):
            return "local", base[: -len("_local.h")]
        if name == PROBES:
            return "probes", path.name
        if name.startswith(VENDORS):
            return "vendor", name
        if (path.parent / name).is_file():
            return "own", path.parent.name
        for layer in LAYERS:
            if (self.root / "platform/linux" / layer / base).is_file():
                return "private", layer
        if name.split("/")[0] in ("src", "include", "platform", "tests", "apps"):
            return "path", name
        return "system", name


def exported_header(path, kind, detail):
    if kind == "system":
        return detail in LIBC_OF_HEADERS | LIBC_OF_ONE.get(path.name, set())
    if path.name == TYPES_HEADER:
        return kind == "seam" and detail in TYPES_MAY_EMBED
    return kind == "exported" and detail == TYPES_HEADER


def seam_header(path, kind, detail):
    if kind == "vendor":
        return path.name == "zyax_xml.h" and detail == "mxml.h"
    if kind == "system":
        return detail in LIBC_OF_HEADERS
    if kind in ("seam", "own"):
        name = detail if kind == "seam" else None
        return name is None or SEAM_LAYER.get(name, 9) <= SEAM_LAYER.get(path.name, -1)
    return False


def host_header(path, kind, detail):
    own = layer_of(path.name)
    if own is None:
        return False
    if kind == "seam":
        return SEAM_LAYER.get(detail, 9) <= own
    if kind == "host":
        return layer_of(detail) is not None and layer_of(detail) <= own
    return kind == "system"


def platform_source(path, kind, detail):
    own = LAYERS.get(path.parent.name)
    if own is None:
        return False
    if kind == "seam":
        return SEAM_LAYER.get(detail, 9) <= own
    if kind == "host":
        return layer_of(detail) is not None and layer_of(detail) <= own
    if kind == "private":
        return LAYERS[detail] < own
    if kind == "vendor":
        return detail not in ("mxml.h",) and not detail.startswith(("CLI/", "gtest/"))
    if kind == "probes":
        return detail in PROBE_HEADERS
    return kind in ("system", "own", "local")


def library_source(path, kind, detail):
    component = path.parent.name
    if kind == "local":
        return detail == component
    if kind == "own":
        return True
    return kind in ("exported", "seam", "common", "system")


def library_common(path, kind, detail):
    if kind == "exported":
        return detail == TYPES_HEADER
    if kind == "probes":
        return detail in PROBE_HEADERS
    return kind in ("seam", "common", "own", "system")


def console_header(path, kind, detail):
    return False


def console_source(path, kind, detail):
    return kind in ("exported", "seam", "host", "console", "own", "system")


def program(path, kind, detail):
    if kind == "vendor":
        return detail.startswith(("CLI/", "nbdkit-", "isa-l/"))
    return kind in ("exported", "seam", "host", "console", "own", "system")


def measurement(path, kind, detail):
    return kind in ("exported", "seam", "host", "console", "own", "system", "vendor")


RULES = [
    ("include/", exported_header),
    ("src/cmm_umm/common/", library_common),
    ("src/cmm_umm/", library_source),
    ("platform/include/", seam_header),
    ("platform/linux/include/", host_header),
    ("platform/linux/", platform_source),
    ("console/include/", console_header),
    ("console/", console_source),
    ("apps/", program),
    ("benchmarks/", measurement),
]


def rule_of(relative):
    for prefix, rule in RULES:
        if relative.startswith(prefix):
            return rule
    return None


def check_order(tree, path, relative, found):
    """A component's own _local.h, when it is included, comes first: so it always stands alone."""
    if not relative.startswith("src/cmm_umm/") or path.suffix != ".cpp":
        return []
    locals_at = [i for i, (_, name) in enumerate(found) if tree.kind(path, name)[0] == "local"]
    if locals_at and locals_at[0] != 0:
        return [f"{relative}:{found[locals_at[0]][0]}: the component's _local.h is included first"]
    return []


def breaches(root):
    tree = Tree(root)
    lines = []
    for path in tree.files():
        relative = path.relative_to(tree.root).as_posix()
        rule = rule_of(relative)
        found = list(tree.includes(path))
        if rule is None:
            lines.append(f"{relative}: belongs to no area of the project")
            continue
        for number, name in found:
            kind, detail = tree.kind(path, name)
            if not rule(path, kind, detail):
                lines.append(f"{relative}:{number}: may not include {name} ({kind})")
        lines += check_order(tree, path, relative, found)
    return lines


# ---------------------------------------------------------------- self test

SOUND = {
    "include/zyumm_cmm_types.h": "#include <stdint.h>\n#include \"zyax.h\"\n",
    "include/zyumm_cmm_page.h": "#include <pthread.h>\n#include \"zyumm_cmm_types.h\"\n",
    "include/zyumm_cmm_sgl.h": "#include \"zyumm_cmm_types.h\"\n",
    "platform/include/zyax.h": "#include <stdint.h>\n",
    "platform/include/zyax_xml.h": "#include <mxml.h>\n",
    "platform/include/zylog.h": "#include <stdint.h>\n",
    "platform/include/zymm.h": "#include \"zyax.h\"\n",
    "platform/include/zyumm.h": "#include \"zymm.h\"\n",
    "platform/linux/include/zyax_log.h": "#include \"zylog.h\"\n",
    "platform/linux/include/zymm_stats.h": "#include \"zymm.h\"\n",
    "platform/linux/zyax/timer.cpp": "#include \"timer.h\"\n#include <sys/timerfd.h>\n",
    "platform/linux/zyax/timer.h": "#include \"zyax.h\"\n",
    "platform/linux/zymm/zymm_private.h": "#include \"zyax.h\"\n",
    "platform/linux/zymm/zymm_probe.h": "#include <sys/sdt.h>\n",
    "platform/linux/zymm/slab.cpp": "#include \"zymm_private.h\"\n#include <numa.h>\n",
    "platform/linux/zyumm/pool.cpp": "#include \"zymm_private.h\"\n#include \"zyumm.h\"\n",
    "src/cmm_umm/common/cmm_log.h": "#include \"zylog.h\"\n#include \"zyumm_cmm_types.h\"\n",
    "src/cmm_umm/common/cmm_probe.h": "#include <sys/sdt.h>\n",
    "src/cmm_umm/page/page_local.h": "#include \"zyumm_cmm_page.h\"\n",
    "src/cmm_umm/page/alloc.cpp": "#include \"page_local.h\"\n#include \"zyumm_cmm_sgl.h\"\n"
                                  "#include \"common/cmm_log.h\"\n",
    "src/cmm_umm/sgl/sgl_local.h": "#include \"zyumm_cmm_sgl.h\"\n",
    "console/include/zyumm_console.h": "",
    "console/show.h": "#include <stdint.h>\n",
    "console/show.cpp": "#include \"show.h\"\n#include \"zyumm_console.h\"\n"
                        "#include \"zyax_log.h\"\n#include \"zyumm_cmm_page.h\"\n",
    "apps/node/main.cpp": "#include <CLI/CLI.hpp>\n#include \"zyumm_cmm_page.h\"\n"
                          "#include \"zyumm_console.h\"\n",
}

BREACHES = [
    ("include/zyumm_cmm_page.h", "zyumm_cmm_sgl.h", "one exported header uses another"),
    ("include/zyumm_cmm_page.h", "zyax.h", "only the types header knows the seam"),
    ("include/zyumm_cmm_types.h", "zyax_xml.h", "Mini-XML in the exported interface"),
    ("include/zyumm_cmm_page.h", "vector", "C++ in a C interface"),
    ("include/zyumm_cmm_page.h", "sys/mman.h", "system interfaces in an exported header"),
    ("include/zyumm_cmm_sgl.h", "pthread.h", "threads in a header that declares nothing of them"),
    ("platform/include/zyax.h", "zymm.h", "a lower seam header includes a higher one"),
    ("platform/include/zymm.h", "mxml.h", "Mini-XML outside its header"),
    ("platform/include/zyax.h", "zyumm_cmm_types.h", "the seam knows the library"),
    ("platform/linux/include/zyax_log.h", "zymm.h", "a host header of a higher layer"),
    ("platform/linux/zyax/timer.cpp", "zymm.h", "a layer includes a higher one"),
    ("platform/linux/zyax/timer.cpp", "zymm_private.h", "a layer's private header, from below"),
    ("platform/linux/zyax/timer.cpp", "zymm_stats.h", "a host header, from below"),
    ("platform/linux/zymm/slab.cpp", "zyumm_cmm_types.h", "the platform knows the library"),
    ("platform/linux/zymm/slab.cpp", "common/cmm_log.h", "the platform uses the library's helpers"),
    ("platform/linux/zymm/slab.cpp", "mxml.h", "Mini-XML past its header"),
    ("src/cmm_umm/page/alloc.cpp", "sgl_local.h", "another component's private header"),
    ("src/cmm_umm/page/alloc.cpp", "../sgl/sgl_local.h", "the same by its path"),
    ("src/cmm_umm/page/alloc.cpp", "zyax_log.h", "the library uses a host interface"),
    ("src/cmm_umm/page/alloc.cpp", "numa.h", "the library goes past the seam"),
    ("src/cmm_umm/page/alloc.cpp", "zymm_private.h", "the library uses a platform's insides"),
    ("src/cmm_umm/common/cmm_log.h", "zyumm_cmm_page.h", "the helpers know a component"),
    ("src/cmm_umm/common/cmm_log.h", "sys/sdt.h", "static probes past their header"),
    ("src/cmm_umm/page/alloc.cpp", "sys/sdt.h", "the same in a component"),
    ("platform/linux/zymm/slab.cpp", "sys/sdt.h", "the same in the platform"),
    ("include/zyumm_cmm_page.h", "sys/sdt.h", "static probes in an exported header"),
    ("console/show.cpp", "page_local.h", "the console knows a component's insides"),
    ("console/show.cpp", "common/cmm_log.h", "the console uses the library's helpers"),
    ("console/show.cpp", "zymm_private.h", "the console uses a platform's insides"),
    ("console/include/zyumm_console.h", "zyax_console.h", "the console's header knows more"),
    ("src/cmm_umm/page/alloc.cpp", "zyumm_console.h", "the library knows its console"),
    ("apps/node/main.cpp", "common/cmm_log.h", "a program uses the library's insides"),
    ("apps/node/main.cpp", "../../src/cmm_umm/page/page_local.h", "the same by its path"),
]


def write_tree(root, files):
    for name, text in files.items():
        path = Path(root) / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def missed(files, reason):
    with tempfile.TemporaryDirectory() as root:
        write_tree(root, files)
        return [] if breaches(root) else [f"self-test: not found: {reason}"]


def self_test():
    with tempfile.TemporaryDirectory() as root:
        write_tree(root, SOUND)
        lines = [f"self-test: a sound tree is refused: {line}" for line in breaches(root)]
    for name, include, reason in BREACHES:
        lines += missed({**SOUND, name: SOUND[name] + f'#include "{include}"\n'}, reason)
    late = '#include "zyumm_cmm_sgl.h"\n#include "page_local.h"\n'
    lines += missed({**SOUND, "src/cmm_umm/page/alloc.cpp": late}, "_local.h not first")
    lines += missed({**SOUND, "src/elsewhere/x.cpp": "int x;\n"}, "a file outside every area")
    return lines


def main(arguments):
    if arguments == ["--self-test"]:
        lines = self_test()
    else:
        lines = breaches(arguments[0] if arguments else Path(__file__).resolve().parent.parent)
    print("\n".join(lines) if lines else "includes: nothing to report")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
