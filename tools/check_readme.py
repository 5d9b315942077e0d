#!/usr/bin/env python3
"""The README tells the truth about the tree.

    check_readme.py [ROOT]        prints one line a falsehood, exits 1 if there are any
    check_readme.py --self-test   shows that every rule is able to fail

- every path of the map exists;
- the example is, word for word, part of the program that is compiled and run as a test;
- every link to a file, here and in the other documents, leads somewhere.
"""

import re
import sys
import tempfile
from pathlib import Path

EXAMPLE = "apps/first_steps/first_steps.c"
MAP_TITLE = "## The tree in five minutes"


def block_after(text, mark):
    """The first fenced block behind `mark`."""
    match = re.search(r"```\w*\n(.*?)```", text[text.index(mark):], flags=re.S)
    return match.group(1) if match else ""


def paths_of_map(block):
    """Paths of the map; an indented one lies below the last one that is not indented."""
    top = ""
    for line in block.splitlines():
        name = line.split()[0] if line.strip() else ""
        if not name:
            continue
        if line[0] != " ":
            top = name
        yield name if line[0] != " " else top + name


def broken_links(root, document):
    text = re.sub(r"```.*?```", "", document.read_text(), flags=re.S)
    for target in re.findall(r"\]\(([^)#\s]+)[^)]*\)", text):
        if "://" not in target and not (document.parent / target).exists():
            yield f"{document.relative_to(root)}: link to {target}, which is not there"


def falsehoods(root):
    root = Path(root)
    readme = (root / "README.md").read_text()
    lines = []

    paths = list(paths_of_map(block_after(readme, MAP_TITLE)))
    if not paths:
        lines.append("README.md: no map")
    lines += [f"README.md: the map names {path}, which is not there"
              for path in paths if not (root / path).exists()]

    example = block_after(readme, "## First steps").strip()
    if not example or example not in (root / EXAMPLE).read_text():
        lines.append(f"README.md: the example is not part of {EXAMPLE}")

    documents = [*root.glob("*.md"), *root.glob("docs/*.md"), root / "platform/README.md"]
    for document in documents:
        if document.exists():
            lines += broken_links(root, document)
    return lines


SOUND = ("# x\n\n" + MAP_TITLE + "\n\n"
         "```\napps/      programs\n  first_steps/   an example\n```\n\n"
         "## First steps\n\n```c\nint x;\n```\n\n[more](docs/more.md)\n")


def lies_in(readme):
    with tempfile.TemporaryDirectory() as root:
        for name, text in {EXAMPLE: "int w;\nint x;\nint y;\n", "docs/more.md": "# more\n",
                           "README.md": readme}.items():
            path = Path(root, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        return falsehoods(root)


def self_test():
    lines = [f"self-test: a true page is refused: {line}" for line in lies_in(SOUND)]
    for old, new in (("first_steps/ ", "last_steps/ "), ("apps/  ", "programs/  "),
                     ("int x;", "int z;"), ("docs/more.md", "docs/less.md")):
        if not lies_in(SOUND.replace(old, new, 1)):
            lines.append(f"self-test: not found: {old} replaced by {new}")
    return lines


def main(arguments):
    if arguments == ["--self-test"]:
        lines = self_test()
    else:
        lines = falsehoods(arguments[0] if arguments else Path(__file__).resolve().parent.parent)
    print("\n".join(lines) if lines else "readme: nothing to report")
    return 1 if lines else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
