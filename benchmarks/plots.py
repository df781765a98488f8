# SPDX-FileCopyrightText: 2026 Vandrel
# SPDX-License-Identifier: MIT

"""The pictures of docs/performance.md, and the part of that page that the benchmarks write.

Pictures have no background and colours of middle lightness, for light and dark pages.
"""

import pathlib

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot, ticker  # noqa: E402: the backend comes first

BEGIN = "<!-- written by ./bench --plot -->\n"
END = "<!-- end of what ./bench --plot writes -->\n"

TEXT = "#7a828c"
OWN = "#2f81f7"
LIMIT = "#9aa3ad"
BAR_OF_PEER = "#c7903a"
PEERS = ["#d29922", "#a371f7", "#3fb950", "#db61a2", "#e5534b"]

pyplot.rcParams.update({
    "svg.fonttype": "none",  # the reader's font
    "svg.hashsalt": "kez",  # the same picture from the same results
    "font.family": "sans-serif",
    "font.size": 10,
    "axes.edgecolor": TEXT,
    "axes.labelcolor": TEXT,
    "axes.titlecolor": TEXT,
    "axes.titlesize": 11,
    "axes.titlelocation": "left",
    "axes.spines.top": False,
    "axes.spines.right": False,
    "grid.color": TEXT,
    "grid.alpha": 0.25,
    "legend.frameon": False,
    "legend.labelcolor": TEXT,
    "text.color": TEXT,
    "xtick.color": TEXT,
    "ytick.color": TEXT,
})


def contenders_of(case, measurements):
    """{contender: [(size, measurement)]} of a case, as registered."""
    found = {}
    for name, measurement in measurements.items():
        first, contender, *size = name.split("/")
        if first == case:
            found.setdefault(contender, []).append(("/".join(size), measurement))
    return found


def shown_name(contender):
    return contender.replace("_", " ")


def colours_for(contenders, peers):
    """{contender: colour}; `peers` are the colours that the other libraries share out."""
    others = [name for name in contenders if name != "kez" and not name.startswith("limit")]
    colours = {name: peers[i % len(peers)] for i, name in enumerate(others)}
    return {name: OWN if name == "kez" else colours.get(name, LIMIT) for name in contenders}


def save(figure, directory, name):
    figure.savefig(directory / f"{name}.svg", transparent=True, bbox_inches="tight",
                   metadata={"Date": None, "Creator": None})
    pyplot.close(figure)


def draw_bars(measurements, case, title, directory, name):
    contenders = contenders_of(case, measurements)
    times = {contender: found[0][1].time for contender, found in contenders.items()}
    if not times:
        return None
    order = sorted(times, key=times.get, reverse=True)
    colours = colours_for(contenders, [BAR_OF_PEER])
    figure, axes = pyplot.subplots(figsize=(7, 0.42 * len(order) + 0.9))
    bars = axes.barh([shown_name(name) for name in order], [times[name] for name in order],
                     color=[colours[name] for name in order], height=0.62)
    axes.bar_label(bars, [f"{times[name]:.0f}" for name in order], padding=4)
    axes.set_title(title)
    axes.xaxis.set_visible(False)
    axes.spines["bottom"].set_visible(False)
    axes.tick_params(axis="y", length=0)
    save(figure, directory, name)
    return name


def decades(sizes):
    """Of the sizes, those that are at least five times the one before: their texts have room."""
    shown = []
    for size in sorted(sizes):
        if not shown or size >= 5 * shown[-1]:
            shown.append(size)
    return shown


def draw_growth(axes, measurements, case, title):
    contenders = contenders_of(case, measurements)
    colours = colours_for(contenders, PEERS)
    sizes = set()
    for contender, found in contenders.items():
        points = [(int(size), measurement.time / 1000) for size, measurement in found
                  if size.isdigit()]
        if not points:
            continue
        sizes.update(size for size, _ in points)
        axes.plot(*zip(*sorted(points)), marker="o", markersize=4, linewidth=1.8,
                  color=colours[contender], label=shown_name(contender),
                  linestyle="--" if contender.startswith("limit") else "-")
    axes.set_xscale("log")
    axes.set_ylim(bottom=0)
    axes.set_title(title)
    axes.grid(True, axis="y")
    axes.xaxis.set_minor_locator(ticker.NullLocator())
    axes.set_xticks(decades(sizes))
    axes.xaxis.set_major_formatter(ticker.FuncFormatter(lambda size, _: f"{size:,.0f}"))
    if axes.get_legend_handles_labels()[0]:
        axes.legend(fontsize=9)


def draw_growths(measurements, cases, label, item, directory, name):
    shown = [(case, title) for case, title in cases if contenders_of(case, measurements)]
    if not shown:
        return None
    figure, axes = pyplot.subplots(1, len(shown), figsize=(4.6 * len(shown), 3.4), squeeze=False)
    for place, (case, title) in zip(axes[0], shown):
        draw_growth(place, measurements, case, title)
        place.set_xlabel(label)
    axes[0][0].set_ylabel(f"microseconds {item}")
    figure.tight_layout(w_pad=3)
    save(figure, directory, name)
    return name


def write(measurements, table, circumstances, directory):
    """Writes the pictures into a directory, and the table into the page of the same name."""
    directory = pathlib.Path(directory)
    directory.mkdir(parents=True, exist_ok=True)
    draw_bars(measurements, "LogLine", "A log line of 80 bytes, in the kernel at return: "
              "nanoseconds", directory, "logline")
    draw_growths(measurements,
                 [("RescanKnown", "Re-scan of known files"),
                  ("Arrivals", "Arrivals: made, handled by two consumers, deleted")],
                 "files", "a file", directory, "queue")
    draw_growths(measurements, [("XmlRead", "XML read into a tree"), ("XmlWrite", "XML written")],
                 "characters of the document", "an element", directory, "xml")
    page = directory.with_suffix(".md")
    before, rest = page.read_text().split(BEGIN)
    after = rest.split(END)[1]
    page.write_text(f"{before}{BEGIN}\n{circumstances}\n\n{table}\n\n{END}{after}")
