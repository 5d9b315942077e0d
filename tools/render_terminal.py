#!/usr/bin/env python3
"""Draws the screen of a terminal as an SVG picture.

    tmux capture-pane -epN | render_terminal.py --columns 80 --title 'cmmctl top' > picture.svg
    render_terminal.py --self-test        shows that what is on a screen is in the picture

Input are the lines of the screen with the sequences that set colours and weights (SGR), as tmux
captures them. What a terminal draws is drawn: text of one look is one piece, placed by its column,
so that the picture is the same whatever width a viewer's font has.
"""

import argparse
import re
import sys
from html import escape

CELL_WIDTH, LINE_HEIGHT, FONT_SIZE = 8.4, 18, 14
MARGIN, BAR = 14, 30

FOREGROUND, BACKGROUND, FRAME = "#d8dee9", "#1c2128", "#2d333b"
PALETTE = [
    "#22272e", "#f47067", "#6bc46d", "#daaa3f", "#539bf5", "#b083f0", "#39c5cf", "#adbac7",
    "#768390", "#ff938a", "#8ddb8c", "#eac55f", "#6cb6ff", "#dcbdfb", "#56d4dd", "#ffffff",
]
SGR = re.compile(r"\x1b\[([0-9;]*)m")
OTHER = re.compile(r"\x1b(\[[0-9;?]*[A-Za-ln-z]|[()].|[=>]|\x0e|\x0f)|[\x0e\x0f]")


def colour_of(number):
    """One of the 256 colours."""
    if number < 16:
        return PALETTE[number]
    if number >= 232:
        grey = 8 + 10 * (number - 232)
        return f"#{grey:02x}{grey:02x}{grey:02x}"
    number -= 16
    parts = (number // 36, number // 6 % 6, number % 6)
    return "#" + "".join(f"{0 if part == 0 else 55 + 40 * part:02x}" for part in parts)


class Look:
    """How text is drawn at this moment."""

    def __init__(self):
        self.reset()

    def reset(self):
        self.front = self.back = None
        self.bold = self.dim = self.underlined = self.reversed = False

    def key(self):
        front = self.front or FOREGROUND
        back = self.back
        if self.reversed:
            front, back = back or BACKGROUND, front
        return front, back, self.bold, self.dim, self.underlined

    def extended(self, codes):
        """The colour behind a 38 or 48."""
        kind = codes.pop(0) if codes else None
        if kind == 5 and codes:
            return colour_of(codes.pop(0))
        if kind == 2 and len(codes) >= 3:
            return "#" + "".join(f"{codes.pop(0):02x}" for _ in range(3))
        return None

    def apply(self, text):
        codes = [int(code or 0) for code in text.split(";")]
        while codes:
            self.apply_one(codes.pop(0), codes)

    def apply_one(self, code, rest):
        flags = {1: ("bold", True), 2: ("dim", True), 4: ("underlined", True),
                 7: ("reversed", True), 24: ("underlined", False), 27: ("reversed", False)}
        if code == 0:
            self.reset()
        elif code in flags:
            setattr(self, *flags[code])
        elif code == 22:
            self.bold = self.dim = False
        elif code in (38, 48):
            setattr(self, "front" if code == 38 else "back", self.extended(rest))
        elif code in (39, 49):
            setattr(self, "front" if code == 39 else "back", None)
        elif 30 <= code <= 37 or 90 <= code <= 97:
            self.front = PALETTE[code - 30 if code < 90 else code - 82]
        elif 40 <= code <= 47 or 100 <= code <= 107:
            self.back = PALETTE[code - 40 if code < 100 else code - 92]


def pieces_of(line, look):
    """Pieces of a line: column, text, look."""
    column, at = 0, 0
    line = OTHER.sub("", line)
    for match in [*SGR.finditer(line), None]:
        text = line[at:match.start() if match else len(line)]
        if text:
            yield column, text, look.key()
            column += len(text)
        if match:
            look.apply(match.group(1))
            at = match.end()


def draw_piece(column, row, text, key):
    front, back, bold, dim, underlined = key
    x, y = MARGIN + column * CELL_WIDTH, BAR + MARGIN + row * LINE_HEIGHT
    width = len(text) * CELL_WIDTH
    drawn = ""
    if back:
        drawn += (f'<rect x="{x:.1f}" y="{y}" width="{width:.1f}" height="{LINE_HEIGHT}" '
                  f'fill="{back}"/>\n')
    if text.strip():
        lead = len(text) - len(text.lstrip())
        text = text.strip()
        style = (' font-weight="bold"' if bold else "") + (' opacity="0.6"' if dim else "") + \
                (' text-decoration="underline"' if underlined else "")
        drawn += (f'<text x="{x + lead * CELL_WIDTH:.1f}" y="{y + 13.5:.1f}" fill="{front}" '
                  f'textLength="{len(text) * CELL_WIDTH:.1f}" lengthAdjust="spacingAndGlyphs"'
                  f'{style}>{escape(text)}</text>\n')
    return drawn


def picture(screen, columns, title):
    lines = screen.rstrip("\n").split("\n")
    while lines and not OTHER.sub("", SGR.sub("", lines[-1])).strip():
        lines.pop()
    width = 2 * MARGIN + columns * CELL_WIDTH
    height = BAR + 2 * MARGIN + len(lines) * LINE_HEIGHT
    look, drawn = Look(), ""
    for row, line in enumerate(lines):
        for column, text, key in pieces_of(line, look):
            drawn += draw_piece(column, row, text, key)
    dots = "".join(f'<circle cx="{18 + 18 * i}" cy="15" r="5.5" fill="{PALETTE[colour]}"/>'
                   for i, colour in enumerate((1, 3, 2)))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height}" '
            f'viewBox="0 0 {width:.1f} {height}" role="img">\n'
            f'<title>{escape(title)}</title>\n'
            f'<rect width="100%" height="100%" rx="8" fill="{BACKGROUND}"/>\n'
            f'<path d="M0 {BAR}V8a8 8 0 0 1 8-8h{width - 16:.1f}a8 8 0 0 1 8 8v{BAR - 8}z" '
            f'fill="{FRAME}"/>\n{dots}\n'
            f'<text x="{width / 2:.1f}" y="20" fill="{PALETTE[7]}" text-anchor="middle" '
            f'font-family="sans-serif" font-size="13">{escape(title)}</text>\n'
            f'<g xml:space="preserve" font-size="{FONT_SIZE}" '
            f'font-family="\'DejaVu Sans Mono\', Menlo, Consolas, monospace">\n'
            f'{drawn}</g>\n</svg>\n')


# ---------------------------------------------------------------- self test

SCREEN = ("\x1b[1mbold\x1b[0m  <&>\n"
          "\x1b[30m\x1b[46m HEAD \x1b[39;49m\x1b(B \x1b[38;5;196mred\x1b[0m\n\n  \n")

DRAWN = [
    ('x="14.0" y="57.5"', 'font-weight="bold">bold</text>', "the first piece, at the first column"),
    ('x="64.4" y="57.5"', '>&lt;&amp;&gt;</text>', "a piece behind blanks, escaped"),
    ('<rect x="14.0" y="62" width="50.4"', 'fill="#39c5cf"/>', "a background, blanks included"),
    ('x="22.4" y="75.5" fill="#22272e"', '>HEAD</text>', "a text on it, at its column"),
    ('x="72.8" y="75.5" fill="#ff0000"', '>red</text>', "one of 256 colours"),
]


def self_test():
    lines = picture(SCREEN, 20, "a <title>").split("\n")
    missing = [what for start, end, what in DRAWN
               if not any(start in line and line.endswith(end) for line in lines)]
    if 'height="94"' not in lines[0]:
        missing.append("a height without the empty lines at the end")
    print("\n".join(f"self-test: not drawn: {what}" for what in missing) or "picture: as it should")
    return 1 if missing else 0


def main():
    parser = argparse.ArgumentParser(description="Draws the screen of a terminal as SVG.")
    parser.add_argument("--columns", type=int, default=80)
    parser.add_argument("--title", default="")
    parser.add_argument("--self-test", action="store_true")
    arguments = parser.parse_args()
    if arguments.self_test:
        sys.exit(self_test())
    sys.stdout.write(picture(sys.stdin.read(), arguments.columns, arguments.title))


if __name__ == "__main__":
    main()
