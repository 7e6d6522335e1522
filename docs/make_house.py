"""Draw the families of the sources as storeys of a house, by what they include from each other."""

import re
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
from matplotlib.patches import FancyBboxPatch, Polygon

SOURCES = Path(__file__).resolve().parents[1] / "src"
WIDTH, HEIGHT, GAP = 2.3, 0.62, 1.25


def read_includes():
    """Return for each family of the core the others that its sources include."""
    known = {}
    for folder in SOURCES.iterdir():
        if folder.is_dir() and folder.name != "module":
            files = [f for f in folder.glob("*.*") if f.name != "bindings.cpp"]
            text = "".join(f.read_text() for f in files if f.suffix in (".h", ".cpp"))
            known[folder.name] = set(re.findall(r'#include "(\w+)/', text)) - {folder.name}
    return known


def storeys(known):
    """Return the storey of each family: one above the highest of those it knows."""
    levels = {}

    def level(family, above=()):
        if family in above:
            raise ValueError(f"families include each other: {' -> '.join([*above, family])}")
        if family not in levels:
            below = [level(other, (*above, family)) for other in known[family]]
            levels[family] = 1 + max(below, default=-1)
        return levels[family]

    for family in known:
        level(family)
    return levels


def reach(known, family):
    """Return all that a family knows, directly or through others."""
    return set().union(*({other} | reach(known, other) for other in known[family]))


def route(x, y, u, v):
    """Return the bend and the ends of an arrow that keeps clear of the rooms in between."""
    if y - v < 1.5 * GAP:
        return 0, (x, y - HEIGHT / 2), (u, v + HEIGHT / 2)
    side = 1 if u > 0 else -1
    if x * u > 0:
        return -0.22 * side, (x + side * WIDTH / 2, y), (u + side * WIDTH / 2, v)
    return 0, (x + side * WIDTH / 2, y), (u - side * WIDTH / 2, v)


def main(path):
    """Draw the house and save the picture."""
    known = read_includes()
    levels = storeys(known)
    # What is known through another one needs no arrow of its own.
    shown = {
        family: others - set().union(*(reach(known, other) for other in others))
        for family, others in known.items()
    }
    places, top, half = {}, max(levels.values()), 2.1 * WIDTH

    def middle(family):
        below = [places[other][0] for other in shown[family]]
        return sum(below) / max(1, len(below)), family

    for storey in range(top + 1):
        rooms = sorted((family for family in levels if levels[family] == storey), key=middle)
        for k, family in enumerate(rooms):
            # Those alone on a storey step aside in turn, so that arrows pass beside them.
            aside = 0.0 if storey == 0 or len(rooms) > 1 else 0.55 * WIDTH * (-1) ** storey
            places[family] = (1.6 * WIDTH * (k - (len(rooms) - 1) / 2) + aside, storey * GAP)

    figure, panel = plt.subplots(figsize=(8.4, 8.2), layout="constrained")
    roof = (top + 0.75) * GAP
    panel.add_patch(
        Polygon(
            [(-half, roof), (half, roof), (0, roof + 1.15 * GAP)],
            fc="#f4e3df",
            ec="#c23b22",
            lw=1.4,
        )
    )
    panel.text(0, roof + 0.36, "module: the Python face", ha="center", va="center", color="#c23b22")
    panel.plot([-half, half], [roof - 0.18] * 2, "--", color="0.5", lw=1)
    panel.text(half, roof - 0.26, "no Python below", ha="right", va="top", color="0.4", fontsize=9)
    for family, (x, y) in places.items():
        width = 1.9 * half if levels[family] == 0 else WIDTH
        box = FancyBboxPatch(
            (x - width / 2, y - HEIGHT / 2),
            width,
            HEIGHT,
            boxstyle="round,pad=0.02,rounding_size=0.1",
            fc="#dbe7f4",
            ec="#1f5fa8",
            zorder=3,
        )
        panel.add_patch(box)
        panel.text(x, y, family, ha="center", va="center", zorder=4, fontsize=11)
    for family, others in shown.items():
        for other in sorted(others):
            bow, start, end = route(*places[family], *places[other])
            if levels[other] == 0:
                end = start[0], HEIGHT / 2
            look = {"arrowstyle": "-|>", "color": "0.35", "lw": 1.1, "shrinkA": 0, "shrinkB": 0}
            look["connectionstyle"] = f"arc3,rad={bow}"
            panel.annotate("", end, start, arrowprops=look, zorder=2)
    panel.set(xlim=(-half - 0.2, half + 0.2), ylim=(-0.6, roof + 1.3 * GAP), aspect="equal")
    panel.axis("off")
    figure.savefig(path, dpi=110)
    plt.close(figure)
