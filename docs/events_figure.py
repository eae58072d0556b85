#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
"""Draws docs/events.svg: the suppression window of docs/events.md, threshold 3 and period 1000 ms, poll by poll.

    docs/events_figure.py >docs/events.svg

What it shows is computed here, by the rules of the page: the figure cannot disagree with them.
"""

THRESHOLD, PERIOD_POLLS, POLL_MS = 3, 1000 // 10, 500

# What happens, in order: ("event",), or ("poll", how many). Long runs of polls are drawn as a gap.
STORY = [("event",)] * 5 + [("poll", 99), ("poll", 1), ("event",), ("poll", 1), ("poll", 1)] + [("event",)] * 4

WIDTH, LEFT, STEP, GAP = 880, 40, 50, 100
CROWDED = 90  # two notes closer than this would touch
AXIS, LEGEND = 150, 228
COLOURS = {"delivered": "#1a7f37", "dropped": "#cf222e", "poll": "#57606a", "suppressed": "#ffd8d3", "ink": "#1f2328"}


def play(story):
    """Yields (kind, label of its mark, text below, suppressed afterwards, whether a gap precedes it)."""
    delivered, polls, suppressed, number, total = 0, 0, False, 0, 0
    for kind, *count in story:
        if kind == "event":
            number += 1
            note = ""
            if suppressed or delivered >= THRESHOLD:
                note = "" if suppressed else "suppress_cb"
                suppressed = True
                yield "dropped", str(number), note, suppressed, False
            else:
                delivered += 1
                yield "delivered", str(number), note, suppressed, False
            continue
        total += count[0]
        polls += count[0]
        note = ""
        if polls >= PERIOD_POLLS:
            if suppressed:
                suppressed, note = False, "release_cb"
            else:
                polls, delivered, note = 0, 0, "new window"
        yield "poll", f"{total}", note, suppressed, count[0] > 1


def text(x, y, content, colour="ink", size=13, anchor="middle", weight="normal"):
    return (f'<text x="{x}" y="{y}" fill="{COLOURS[colour]}" font-size="{size}" text-anchor="{anchor}" '
            f'font-weight="{weight}">{content}</text>')


def draw():
    x, begin, out = LEFT, None, []
    marks, note_x, height = [], -CROWDED, 44
    for kind, label, note, suppressed, gap in play(STORY):
        x += GAP if gap else STEP
        if gap:
            marks.append(text(x - GAP / 2, AXIS + 5, "&#8230;", "poll", 20))
        if kind == "poll":
            marks.append(f'<path d="M{x} {AXIS - 16}V{AXIS + 16}" stroke="{COLOURS["poll"]}" stroke-width="2"/>')
            marks.append(text(x, AXIS + 34, label, "poll"))
        else:
            marks.append(f'<circle cx="{x}" cy="{AXIS}" r="11" fill="{COLOURS[kind]}"/>')
            marks.append(f'<text x="{x}" y="{AXIS + 4}" fill="#ffffff" font-size="12" text-anchor="middle">{label}</text>')
        if note:
            height = 62 if x - note_x < CROWDED and height == 44 else 44  # neighbours stand at two heights
            note_x = x
            marks.append(f'<path d="M{x} {AXIS - 18}V{AXIS - height}" stroke="{COLOURS["ink"]}" stroke-width="1"/>')
            marks.append(text(x, AXIS - height - 6, note))
        if suppressed and begin is None:
            begin = x
        if not suppressed and begin is not None:
            out.append((begin, x))
            begin = None
    end = x + STEP
    if begin is not None:
        out.append((begin, end))
    seconds = PERIOD_POLLS * POLL_MS // 1000
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {LEGEND + 42}" font-family="sans-serif">',
        f'<rect width="{WIDTH}" height="{LEGEND + 42}" fill="#ffffff"/>',
        text(LEFT, 30, f"Threshold {THRESHOLD}, period {PERIOD_POLLS * 10} ms: a window of {PERIOD_POLLS} polls, {seconds} s",
             size=16, anchor="start", weight="bold"),
        text(LEFT, 54, "Circles are occurrences, strokes are polls of the 500 ms timer, counted below.", "poll",
             anchor="start"),
    ]
    lines += [f'<rect x="{a}" y="{AXIS - 26}" width="{b - a}" height="52" fill="{COLOURS["suppressed"]}"/>' for a, b in out]
    lines.append(f'<path d="M{LEFT} {AXIS}H{end}" stroke="{COLOURS["ink"]}" stroke-width="1"/>')
    lines += marks
    at = LEFT
    for kind, name in (("delivered", "delivered"), ("dropped", "dropped")):
        lines.append(f'<circle cx="{at + 8}" cy="{LEGEND + 14}" r="8" fill="{COLOURS[kind]}"/>')
        lines.append(text(at + 24, LEGEND + 19, name, anchor="start"))
        at += 120
    lines.append(f'<rect x="{at}" y="{LEGEND + 4}" width="24" height="20" fill="{COLOURS["suppressed"]}"/>')
    lines.append(text(at + 32, LEGEND + 19, "suppressed", anchor="start"))
    lines.append("</svg>")
    return "\n".join(lines)


if __name__ == "__main__":
    print(draw())
