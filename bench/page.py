"""The page of the benchmarks: one file, its plots inline, for light and dark."""
import html
import math

import wire

STYLE = """
:root{color-scheme:light dark;--back:#fff;--card:#f5f6f8;--text:#1b1f24;--dim:#5a6572;--line:#c9d0d9;
--good:#2e6b1f;--bad:#b3261e;--c0:#3b78c9;--c1:#c9822b;--c2:#5c9a3e;--c3:#8b5bb5;--c4:#b54a6a;--c5:#7c8794;
--c6:#2f9aa0;--c7:#a3a04a}
@media(prefers-color-scheme:dark){:root{--back:#14171b;--card:#1d2127;--text:#e8ebef;--dim:#9aa6b3;
--line:#3a424d;--good:#9bd989;--bad:#ff8a80;--c0:#79b4ff;--c1:#e0a45c;--c2:#8fd07a}}
*{box-sizing:border-box}
body{margin:0 auto;max-width:62rem;padding:1.5rem 1rem 4rem;background:var(--back);color:var(--text);
font:15px/1.45 system-ui,"Segoe UI","DejaVu Sans",sans-serif}
h1{font-size:1.6rem;line-height:1.2;margin:0 0 .6rem}h2{font-size:1.2rem;margin:2.2rem 0 .6rem}
h3{font-size:.95rem;margin:1.2rem 0 .4rem}
p{max-width:46rem}.dim{color:var(--dim)}.good{color:var(--good)}.bad{color:var(--bad);font-weight:600}
.wide{overflow-x:auto}.long{text-align:right}.rows td:first-child{width:55%}.rows td:last-child{width:22%}
table{border-collapse:collapse;width:100%;font-size:.92rem}
td,th{padding:.25rem .8rem .25rem 0;text-align:left;vertical-align:top;border-bottom:1px solid var(--line)}
td.number,th.number{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
.plots{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(28rem,100%),1fr));gap:1rem}
.full{grid-column:1/-1}figure{margin:0;background:var(--card);border-radius:.5rem;padding:.7rem .9rem;min-width:0}
figcaption{font-weight:600;font-size:.9rem;margin-bottom:.4rem}
svg{display:block;width:100%;max-width:34rem;height:auto}svg text{fill:var(--text);font:12px system-ui,"DejaVu Sans",sans-serif}
svg .dim{fill:var(--dim)}
.key{display:flex;flex-wrap:wrap;gap:.2rem .9rem;font-size:.82rem;margin:.4rem 0 0;padding:0;list-style:none}
.key b{display:inline-block;width:.75rem;height:.75rem;border-radius:.15rem;margin-right:.35rem}
details{margin:.4rem 0}summary{cursor:pointer}
@media(max-width:40rem){body{padding:1rem .6rem 3rem;font-size:14px}td,th{padding-right:.5rem}}
"""
TITLES = {
    "journeys": ("Journeys", "What the driver adds to a card's own time. Instructions are counted by callgrind over "
                             "a recorded card; times over the PC/SC daemon are ratios within one run."),
    "steps": ("Instructions by step", "The same journeys, step by step."),
    "wire": ("On the wire", "The least that the bytes of a journey take on their way, whatever the card's own time. "
                            + "; ".join(wire.SPEEDS.values()) + "."),
    "load": ("Loading", "What a process pays that loads the driver."),
    "size": ("Size", "What the DLLs are made of, by the linker's map."),
    "memory": ("Memory", "Heap of an acquired context, and the most at a time on the way there."),
    "growth": ("Growth", "How costs grow with certificates, agreements, readers and threads."),
    "times": ("Building and testing", "Times of ./test.sh on this machine."),
}


def escape(text):
    return html.escape(str(text))


def colour(number):
    return f"var(--c{number % 8})"


def key(names):
    return '<ul class="key">' + "".join(
        f'<li><b style="background:{colour(number)}"></b>{escape(name)}</li>'
        for number, name in enumerate(names)) + "</ul>"


def figure(title, svg, legend=""):
    return f"<figure><figcaption>{escape(title)}</figcaption>{svg}{legend}</figure>"


def bars(title, groups, form=",.0f"):
    """Groups of bars: [(label, [(name, value), ...]), ...]."""
    names = [name for name, _ in groups[0][1]]
    most = max(value for _, values in groups for _, value in values)
    height, parts = 6, []
    for label, values in groups:
        top = height
        for number, (name, value) in enumerate(values):
            width = 300 * value / most
            parts.append(f'<rect x="70" y="{height}" width="{width:.1f}" height="14" rx="2" '
                         f'fill="{colour(number)}"><title>{escape(label)}, {escape(name)}: {value:{form}}</title></rect>'
                         f'<text x="{76 + width:.1f}" y="{height + 11}">{value:{form}}</text>')
            height += 16
        parts.append(f'<text x="0" y="{(top + height) / 2 + 3:.0f}">{escape(label)}</text>')
        height += 8
    svg = f'<svg viewBox="0 0 440 {height}" role="img" aria-label="{escape(title)}">{"".join(parts)}</svg>'
    return figure(title, svg, key(names) if len(names) > 1 else "")


def stack(title, shares):
    """One bar of shares: {name: value}."""
    whole, at, parts = sum(shares.values()) or 1, 0.0, []
    for number, (name, value) in enumerate(shares.items()):
        width = 440 * value / whole
        parts.append(f'<rect x="{at:.1f}" y="0" width="{max(width - 1, 0):.1f}" height="26" fill="{colour(number)}">'
                     f"<title>{escape(name)}: {value:,}</title></rect>")
        at += width
    svg = f'<svg viewBox="0 0 440 28" role="img" aria-label="{escape(title)}">{"".join(parts)}</svg>'
    return figure(title, svg, key(f"{name} {value:,} ({100 * value / whole:.0f} %)"
                                  for name, value in shares.items()))


def ticks(most):
    step = 10 ** math.floor(math.log10(most)) if most > 0 else 1
    while most / step < 3:
        step /= 2
    return [step * number for number in range(int(most / step) + 1)]


def short(value):
    for size, name in ((1e6, "M"), (1e3, "k")):
        if abs(value) >= size:
            return f"{value / size:g}{name}"
    return f"{value:g}"


def curve(title, points):
    """A line through points, from 0 on both axes."""
    right, top = max(x for x, _ in points), max(y for _, y in points)
    def place(x, y):
        return 46 + 374 * x / right, 176 - 160 * y / top
    parts = []
    for value in ticks(top):
        _, y = place(0, value)
        parts.append(f'<line x1="46" x2="420" y1="{y:.1f}" y2="{y:.1f}" stroke="var(--line)"/>'
                     f'<text class="dim" x="40" y="{y + 4:.1f}" text-anchor="end">{short(value)}</text>')
    for value in ticks(right):
        x, _ = place(value, 0)
        parts.append(f'<text class="dim" x="{x:.1f}" y="194" text-anchor="middle">{short(value)}</text>')
    path = " ".join(f"{x:.1f},{y:.1f}" for x, y in (place(*point) for point in points))
    parts.append(f'<polyline points="{path}" fill="none" stroke="{colour(0)}" stroke-width="2"/>')
    for point in points:
        x, y = place(*point)
        parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour(0)}">'
                     f"<title>{point[0]:,}: {point[1]:,.0f}</title></circle>")
    return figure(title, f'<svg viewBox="0 0 440 200" role="img" aria-label="{escape(title)}">{"".join(parts)}</svg>')


def table(title, heads, lines):
    head = "".join(f"<th>{escape(name)}</th>" for name in heads)
    body = "".join("<tr>" + "".join(f"<td>{escape(cell)}</td>" for cell in one) + "</tr>" for one in lines)
    return f'<figure class="full"><figcaption>{escape(title)}</figcaption><div class="wide"><table><tr>{head}</tr>{body}</table></div></figure>'


def wire_tables(cards):
    """Each command of each journey with its bytes and its time on the wire."""
    made = []
    for card, (calls, protocol) in cards.items():
        totals, lines = [0.0] * len(wire.SPEEDS), []
        for call, exchanges in calls:
            if not exchanges:
                continue
            lines.append(f'<tr><th colspan="{3 + 2 * len(wire.SPEEDS)}">{escape(call)}</th></tr>')
            for meaning, out, back in exchanges:
                cells = [f"<td>{escape(meaning)}</td>", f'<td class="number">{out}</td>',
                         f'<td class="number">{back}</td>']
                for number, speed in enumerate(wire.SPEEDS):
                    time = 1000 * wire.seconds(out, back, protocol, speed)
                    totals[number] += time
                    cells += [f'<td class="number">{time:.2f}</td>', f'<td class="number">{totals[number]:.1f}</td>']
                lines.append("<tr>" + "".join(cells) + "</tr>")
        heads = "".join(f'<th class="number">ms at {speed:,}</th><th class="number">so far</th>'
                        for speed in wire.SPEEDS)
        made.append(f'<details><summary>Card type {card}, {protocol}: {totals[0]:.0f} ms at 115,200 bits/s, '
                    f'{totals[1]:.0f} ms at 848,000</summary><div class="wide"><table><tr><th>command</th>'
                    f'<th class="number">out</th><th class="number">back</th>{heads}</tr>{"".join(lines)}'
                    "</table></div></details>")
    return '<div class="full">' + "".join(made) + "</div>"


def whole(rows, plots, made_with):
    """The page."""
    parts, missed = [], [row for row in rows if row[4] is False]
    held = sum(1 for row in rows if row[4])
    for name, (title, text) in TITLES.items():
        mine = [row for row in rows if row[0] == name]
        if not mine:
            continue
        lines = "".join(
            f'<tr><td>{escape(row[1])}</td><td class="{"number" if len(row[2]) < 40 else "long"}">{escape(row[2])}</td>'
            f'<td class="{ {True: "good", False: "bad", None: "dim"}[row[4]] }">'
            f'{ {True: "holds: ", False: "missed: ", None: ""}[row[4]] if row[3] else ""}{escape(row[3])}</td></tr>'
            for row in mine)
        inside = f'<div class="wide"><table class="rows">{lines}</table></div>'
        if name == "steps":
            inside = f"<details><summary>{len(mine)} steps</summary>{inside}</details>"
        drawn = "".join(plot for part, plot in plots if part == name)
        parts.append(f'<h2 id="{name}">{title}</h2><p class="dim">{escape(text)}</p>{inside}'
                     f'<div class="plots" style="margin-top:1rem">{drawn}</div>')
    tools = ", ".join(f"{name} {value}" for name, value in made_with.items())
    outcome = (f'<p class="bad">{len(missed)} limits are missed, {held} hold.</p>' if missed else
               f'<p class="good">All {held} limits hold.</p>')
    return ('<!doctype html><html lang="en"><head><meta charset="utf-8">'
            '<meta name="viewport" content="width=device-width,initial-scale=1">'
            f"<title>The driver, measured</title><style>{STYLE}</style></head><body>"
            f"<h1>The driver, measured</h1>{outcome}<p class=\"dim\">{escape(tools)}</p>{''.join(parts)}</body></html>\n")
