#!/usr/bin/env python3
"""Pixel measurements on journey screenshots (ImageMagick decodes them).

  pixels.py button-rows FILE X    the first and last row of the lowest band of
                                  26..44 rows at column X that differ from the
                                  bottom-left background (a push button)
  pixels.py checked-tool FILE     the checked tool button's centre x and width
  pixels.py text-contrast FILE    WCAG contrast of text against its background,
                                  per band of rows, and the lowest ("min R")
  pixels.py border-contrast FILE  a frame's border against its inside
  pixels.py listed FILE HEADING TEXT...
                                  reads FILE's text (OCR) and prints its lines;
                                  fails unless a line reads HEADING and each
                                  TEXT starts one of the lines just below it
  pixels.py words FILE            per band of text rows, its words (marks
                                  closer than 6 columns joined): "X0-X1/INK",
                                  INK the number of pixels marked
"""
import subprocess
import sys


def load(path):
    ppm = subprocess.run(["convert", path, "-alpha", "off", "-depth", "8", "ppm:-"],
                         check=True, capture_output=True).stdout
    fields, pos = [], 0
    while len(fields) < 4:
        while ppm[pos:pos + 1].isspace():
            pos += 1
        end = pos
        while not ppm[end:end + 1].isspace():
            end += 1
        fields.append(ppm[pos:end])
        pos = end
    width, height = int(fields[1]), int(fields[2])
    data = ppm[pos + 1:]
    return width, height, [tuple(data[i:i + 3]) for i in range(0, 3 * width * height, 3)]


def near(a, b, tolerance=24):
    return max(abs(x - y) for x, y in zip(a, b)) <= tolerance


def button_rows(path, x):
    width, height, px = load(path)
    background = px[(height - 3) * width + 3]
    bands, start = [], None
    for y in range(height):
        differs = not near(px[y * width + x], background, 6)
        if differs and start is None:
            start = y
        if not differs and start is not None:
            bands.append((start, y - 1))
            start = None
    bands = [b for b in bands if 26 <= b[1] - b[0] + 1 <= 44]
    print(*(bands[-1] if bands else (-1, -1)))


def checked_tool(path):
    """The centre and width of the checked tool button: the widest run of
    20..40 strongly coloured pixels (the palette's highlight) in the top rows."""
    width, _, px = load(path)
    best = (-1, 0)
    for y in range(4, 40):
        run = 0
        for x in range(width + 1):
            p = px[y * width + x] if x < width else (0, 0, 0)
            if max(p) - min(p) > 80:
                run += 1
                continue
            if best[1] < run <= 40:
                best = (x - (run + 1) // 2, run)
            run = 0
    print(*(best if best[1] >= 20 else (-1, 0)))


def luminance(rgb):
    def channel(c):
        c /= 255.0
        return c / 12.92 if c <= 0.04045 else ((c + 0.055) / 1.055) ** 2.4
    r, g, b = (channel(c) for c in rgb)
    return 0.2126 * r + 0.7152 * g + 0.0722 * b


def ratio(a, b):
    la, lb = luminance(a), luminance(b)
    return (max(la, lb) + 0.05) / (min(la, lb) + 0.05)


def dominant(pixels):
    counts = {}
    for p in pixels:
        counts[p] = counts.get(p, 0) + 1
    return sorted(counts.items(), key=lambda kv: -kv[1])


def on_line(px, width, height, x, y, length=14):
    """Whether the pixel lies on a straight run of its colour as long as a
    frame's edge (glyph strokes of a dialog's text are shorter)."""
    c = px[y * width + x]
    run = 1
    for step in (-1, 1):
        i = x + step
        while 0 <= i < width and near(px[y * width + i], c, 12):
            run, i = run + 1, i + step
    if run >= length:
        return True
    run = 1
    for step in (-1, 1):
        j = y + step
        while 0 <= j < height and near(px[j * width + x], c, 12):
            run, j = run + 1, j + step
    return run >= length


def text_bands(width, height, px):
    """Bands of at least 7 rows that differ from the window's colour (its most
    frequent one), separated by rows of plain window: lines of text, fields,
    buttons. Returns the window colour and the bands as (top, end) rows."""
    window = dominant(px)[0][0]
    rows = [any(not near(p, window, 6) for p in px[y * width + 2:(y + 1) * width - 2])
            for y in range(height)]
    bands, y = [], 1
    while y < height - 1:
        if not rows[y]:
            y += 1
            continue
        top = y
        while y < height - 1 and rows[y]:
            y += 1
        if y - top >= 7:
            bands.append((top, y))
    return window, bands


def band_words(path):
    """Columns of a band holding anything but the window's colour, the
    window's frame left out, joined into words across gaps under 6 columns
    (a space between words of one label is narrower than the gap between two
    labels of a row)."""
    width, height, px = load(path)
    window, bands = text_bands(width, height, px)
    for top, end in bands:
        marked = [sum(not near(px[y * width + x], window, 24) for y in range(top, end))
                  for x in range(2, width - 2)]
        found, start, gap, ink = [], None, 0, 0
        for x, m in enumerate(marked + [0] * 6, start=2):
            ink += m
            if m:
                start, gap = (x if start is None else start), 0
            elif start is not None:
                gap += 1
                if gap == 6:
                    found.append("%d-%d/%d" % (start, x - 6, ink))
                    start, ink = None, 0
        print("band %d-%d: %s" % (top, end - 1, " ".join(found)))


def text_contrast(path):
    """Splits the picture into bands of rows separated by rows of plain
    background. In a band, each colour covering a tenth of it is a background
    (window, button, field); the marks drawn on it are the other pixels that
    touch it. Anti-aliasing blends lie between a glyph's colour and its
    background, so the 95th percentile of the marks' contrast is the text's.
    A label painted near its background colour measures about 1:1."""
    width, height, px = load(path)
    worst = None
    for top, y in text_bands(width, height, px)[1]:
        area = (y - top) * width
        blocks = [c for c, n in dominant(px[top * width:y * width]) if n >= 0.1 * area]
        for background in blocks:
            marks = []
            for yy in range(top, y):
                for x in range(1, width - 1):
                    p = px[yy * width + x]
                    if p in blocks or near(p, background, 12):
                        continue
                    if background in (px[yy * width + x - 1], px[yy * width + x + 1],
                                      px[(yy - 1) * width + x], px[(yy + 1) * width + x]) \
                            and not on_line(px, width, height, x, yy):
                        marks.append(ratio(p, background))
            if len(marks) < min(80, area // 40):  # a frame's rounded corners, not text
                continue
            marks.sort()
            r = marks[int(0.95 * (len(marks) - 1))]
            print("band %d-%d: %.2f on #%02x%02x%02x (%d marks)"
                  % ((top, y - 1, r) + background + (len(marks),)))
            worst = r if worst is None else min(worst, r)
    print("min %.2f" % (worst or 0))


def border_contrast(path):
    """Contrast of a frame's one-pixel border (its most frequent colour on the
    edge, corners left out) against the colour just inside it."""
    width, height, px = load(path)
    edge = [px[x] for x in range(4, width - 4)] + [px[y * width] for y in range(4, height - 4)]
    inner = [px[2 * width + x] for x in range(4, width - 4)]
    print("%.2f" % ratio(dominant(edge)[0][0], dominant(inner)[0][0]))


def words(text):
    """Lower case, punctuation as spaces, runs of spaces as one."""
    return " ".join("".join(c if c.isalnum() else " " for c in text.lower()).split())


def distance(a, b):
    """Edits (insertions, deletions, substitutions) from a to b."""
    row = list(range(len(b) + 1))
    for i, ca in enumerate(a, 1):
        prev, row[0] = row[0], i
        for j, cb in enumerate(b, 1):
            prev, row[j] = row[j], min(row[j] + 1, row[j - 1] + 1, prev + (ca != cb))
    return row[-1]


def reads(line, text):
    """Whether an OCR line starts with text, give or take a misread letter in
    six (OCR of small interface text confuses l, i and 1, drops or adds a space)."""
    want = words(text)
    return min(distance(want, line[:n]) for n in range(max(1, len(want) - 2), len(want) + 3)) \
        <= max(1, len(want) // 6)


def listed(path, heading, texts):
    """Tesseract reads the picture in grey, as dark text on light, three times
    larger. HEADING must be a line of its own (a scene's "Show 'NAME'" row is
    not the source's heading), and the TEXTs must be in the lines right after
    it, each on a line of its own, so that another source's rows do not count."""
    mean = subprocess.run(["convert", path, "-colorspace", "Gray", "-format", "%[fx:mean]",
                           "info:"], check=True, capture_output=True, text=True).stdout
    png = subprocess.run(["convert", path, "-colorspace", "Gray"]
                         + (["-negate"] if float(mean) < 0.5 else [])
                         + ["-resize", "300%", "png:-"], check=True, capture_output=True).stdout
    text = subprocess.run(["tesseract", "stdin", "stdout"], input=png, check=True,
                          capture_output=True).stdout.decode("utf-8", "replace")
    lines = [words(line) for line in text.splitlines() if words(line)]
    print("\n".join(lines))
    want = words(heading)
    starts = [i for i, line in enumerate(lines)
              if distance(want, line) <= max(1, len(want) // 6)]
    for start in starts:
        below, missing = lines[start + 1:start + 3 + len(texts)], []
        # One line per text, longest first: "Wiggle off" also starts like "Wiggle on".
        for t in sorted(texts, key=len, reverse=True):
            line = next((line for line in below if reads(line, t)), None)
            if line is None:
                missing.append(t)
            else:
                below.remove(line)
        print("under line %d: %s"
              % (start + 1, "missing " + ", ".join(missing) if missing else "all"))
        if not missing:
            return True
    if not starts:
        print("no line reads %r" % heading)
    return False


if __name__ == "__main__":
    if sys.argv[1] == "button-rows":
        button_rows(sys.argv[2], int(sys.argv[3]))
    elif sys.argv[1] == "checked-tool":
        checked_tool(sys.argv[2])
    elif sys.argv[1] == "text-contrast":
        text_contrast(sys.argv[2])
    elif sys.argv[1] == "border-contrast":
        border_contrast(sys.argv[2])
    elif sys.argv[1] == "listed":
        sys.exit(not listed(sys.argv[2], sys.argv[3], sys.argv[4:]))
    elif sys.argv[1] == "words":
        band_words(sys.argv[2])
