#!/usr/bin/env python3
"""Draw the angle conventions, as docs/images/angles.png, from the axes talvorix itself reports."""

from pathlib import Path

import matplotlib
import numpy as np
import talvorix

matplotlib.use("Agg")
import matplotlib.pyplot as plt
from matplotlib.patches import Arc, Ellipse

AZIMUTH, DIP, RAKE = 55, 30, 35
GREY, BLUE, RED = "0.45", "#1f5fa8", "#c23b22"


def unit_axes(azimuth, dip, rake):
    """Return the unit vectors of the r1, r2 and r3 axes as rows."""
    return np.asarray(talvorix.Ellipsoid(1, 1, 1, azimuth, dip, rake).matrix())


def arrow(panel, tip, text, colour, offset=(0, 0), style="-|>", line="-"):
    """Draw an arrow from the middle of a panel and name its tip."""
    look = {"arrowstyle": style, "color": colour, "lw": 1.8, "ls": line, "shrinkA": 0, "shrinkB": 0}
    panel.annotate("", tip, (0, 0), arrowprops=look)
    place = np.multiply(tip, 1.1) + offset
    panel.text(*place, text, color=colour, ha="center", va="center")


def angle(panel, start, end, text, radius=0.42):
    """Mark the angle that runs from `start` to `end`, in degrees counter-clockwise from right."""
    low, high = sorted((start, end))
    panel.add_patch(Arc((0, 0), 2 * radius, 2 * radius, theta1=low, theta2=high, color=RED, lw=1.6))
    turn = np.radians(end)
    ahead = np.sign(end - start) * np.array([-np.sin(turn), np.cos(turn)])
    tip = radius * np.array([np.cos(turn), np.sin(turn)])
    look = {"arrowstyle": "-|>", "color": RED, "lw": 1.6, "shrinkA": 0, "shrinkB": 0}
    panel.annotate("", tip, tip - 0.05 * ahead, arrowprops=look)
    middle = np.radians((start + end) / 2)
    place = (radius + 0.2) * np.array([np.cos(middle), np.sin(middle)])
    panel.text(*place, text, color=RED, ha="center", va="center")


def towards(vector, right, up):
    """Return the coordinates of a vector in the plane of a panel."""
    return np.array([vector @ right, vector @ up])


def main(path=Path(__file__).parent / "images" / "angles.png"):
    """Draw the three views and save the picture."""
    east, north, up = np.eye(3)
    level = unit_axes(AZIMUTH, 0, 0)[0]
    steep = unit_axes(AZIMUTH, DIP, 0)
    turned = unit_axes(AZIMUTH, DIP, RAKE)
    right = -steep[1]

    figure, panels = plt.subplots(1, 3, figsize=(10.2, 3.3), layout="constrained")
    plan, side, along = panels

    arrow(plan, (0, 1), "north, +y", GREY)
    arrow(plan, (1, 0), "east, +x", GREY, (0, -0.1))
    tip = towards(level, east, north)
    arrow(plan, tip, "r1 axis", BLUE, (0.14, 0))
    angle(plan, 90, np.degrees(np.arctan2(tip[1], tip[0])), "azimuth")
    plan.set_title("Azimuth: in plan,\nclockwise from north")

    arrow(side, (1, 0), "level, along\nthe azimuth", GREY, (0.3, 0))
    arrow(side, (0, 1), "up, +z", GREY, (0, -0.02))
    tip = towards(steep[0], level, up)
    arrow(side, tip, "r1 axis", BLUE, (0.14, 0.03))
    angle(side, 0, np.degrees(np.arctan2(tip[1], tip[0])), "dip")
    below = towards(unit_axes(AZIMUTH, -DIP, 0)[0], level, up)
    arrow(side, below, "negative dip", "0.55", (0.12, -0.07), line=":")
    side.set_title("Dip: from the side,\npositive upward")

    second, third = (towards(turned[k], right, steep[2]) for k in (1, 2))
    slant = np.degrees(np.arctan2(second[1], second[0])) % 360
    along.add_patch(Ellipse((0, 0), 2, 0.9, angle=slant, fc="#dbe7f4", ec=BLUE, lw=1))
    arrow(along, (-1, 0), "level", GREY, (-0.05, 0), line="--")
    arrow(along, second, "r2 axis", BLUE, (-0.14, 0.05))
    arrow(along, third * 0.45, "r3 axis", BLUE, (0.2, 0.08))
    angle(along, 180, slant, "rake")
    along.set_title("Rake: looking along the r1 axis,\nclockwise from level on the left")

    for panel in panels:
        panel.set(xlim=(-1.3, 1.3), ylim=(-0.8, 1.2), aspect="equal")
        panel.axis("off")
    figure.savefig(path, dpi=110)
    plt.close(figure)


if __name__ == "__main__":
    main()
