"""The example scripts against brute-force searches, closed forms and bad input."""

import contextlib
import csv
import fcntl
import importlib
import math
import os
import pty
import re
import signal
import struct
import subprocess
import sys
import termios
import time
from pathlib import Path

import matplotlib.image
import numpy as np
import pytest
import talvorix

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "examples" / "estimate_drillholes.py"
VARIOGRAM = SCRIPT.with_name("variogram.py")
ANISOTROPY = SCRIPT.with_name("find_anisotropy.py")
SIMULATION = SCRIPT.with_name("simulate_deposit.py")
CUSTOM = SCRIPT.with_name("fit_custom_model.py")
FACIES = SCRIPT.with_name("simulate_facies.py")
MULTIVARIATE = SCRIPT.with_name("multivariate.py")
WORKFLOW = SCRIPT.with_name("workflow.py")
LOCAL = SCRIPT.with_name("local_anisotropy.py")
COLUMNS_SHOWN = 40
SEARCH = (60, 35, 25, 40, -20, 10)
COLUMNS = ["--x", "XC", "--y", "YC", "--z", "ZC", "--value", "CU", "--hole", "BHID"]
GRID = ["--origin", "-20 -10 -65", "--cells", "8 7 5", "--size", "20 22 16"]
MODEL = """
multiplier = 0.5
nugget = 0.2
search = [60, 35, 25, 40, -20, 10]
min_samples = 3
max_samples = 5
structure = [
    { kind = "exponential", sill = 0.9, ranges = [70, 50, 20], angles = [30, -10, 0] },
    { kind = "spherical", sill = 0.5, ranges = [150, 150, 60] },
]
"""


def run_script(*arguments, script=SCRIPT):
    command = [sys.executable, str(script), *map(str, arguments)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=300, check=False)
    # No status, either, where the error stream is no terminal.
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def heed_ctrl_c():
    """Undo what a shell does to those whom it starts in the background."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


def run_on_terminal(script, *arguments, stop_at=None):
    """Exit code, the states of the last line of a terminal, and the seconds after Ctrl-C.

    Ctrl-C is sent once the line shows some text.
    """
    leader, follower = pty.openpty()
    fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("4H", 24, COLUMNS_SHOWN, 0, 0))
    command = [sys.executable, str(script), *map(str, arguments)]
    process = subprocess.Popen(
        command, stdout=subprocess.DEVNULL, stderr=follower, preexec_fn=heed_ctrl_c
    )
    os.close(follower)
    received, sent = b"", math.nan
    try:
        # The end is an error of input, not an empty read.
        with contextlib.suppress(OSError):
            while True:
                received += os.read(leader, 4096)
                if stop_at and math.isnan(sent) and stop_at in received.decode():
                    time.sleep(0.2)  # the status comes just before the work
                    sent = time.monotonic()
                    process.send_signal(signal.SIGINT)
        code = process.wait(60)
    finally:
        process.kill()
        os.close(leader)
    lines = [""]
    for text in received.decode().split("\r"):
        lines.append(text + lines[-1][len(text) :])
    return code, lines, time.monotonic() - sent


@pytest.fixture(scope="module")
def campaign(tmp_path_factory):
    """Twelve holes of 14 samples each, one sample in ten without a value."""
    folder = tmp_path_factory.mktemp("campaign")
    rng = np.random.default_rng(5)
    locations, values, holes = [], [], []
    with (folder / "holes.csv").open("w", newline="") as stream:
        writer = csv.writer(stream)
        writer.writerow(["BHID", "NOTE", "XC", "YC", "ZC", "CU"])
        for hole in range(12):
            collar = rng.uniform([-20, -10, 0], [140, 150, 4])
            step = np.ravel(talvorix.Direction(rng.uniform(0, 360), rng.uniform(-90, -60))) * 5
            for k in range(14):
                place, value = np.round(collar + k * step, 3), round(rng.lognormal(), 4)
                empty = (hole + k) % 10 == 0
                writer.writerow([f"DH-{hole}", "a, b", *place, "" if empty else value])
                if not empty:
                    locations.append(place)
                    values.append(value)
                    holes.append(hole)
    (folder / "model.toml").write_text(MODEL)
    return folder, np.array(locations), np.array(values), holes


def choose(block, locations, holes, limits):
    """The samples of one block, one at a time from the nearest outward."""
    matrix = np.asarray(talvorix.Ellipsoid(*SEARCH).matrix())
    distances = np.linalg.norm((locations - block) @ matrix.T, axis=1)
    chosen, by_octant, by_hole = [], {}, {}
    for i in np.argsort(distances):
        octant = tuple(locations[i] > block)
        if distances[i] >= 1 or len(chosen) == 5:
            break
        if by_octant.get(octant, 0) >= limits.get("octant", 99):
            continue
        by_octant[octant] = by_octant.get(octant, 0) + 1
        if by_hole.get(holes[i], 0) < limits.get("hole", 99):
            by_hole[holes[i]] = by_hole.get(holes[i], 0) + 1
            chosen.append(i)
    return chosen if len(chosen) >= 3 else []


@pytest.mark.parametrize(
    ("options", "limits"),
    [
        ([], {}),
        (["--max-per-hole", "2", "--candidates", "168"], {"hole": 2}),
        (
            ["--max-per-hole", "2", "--max-octant", "2", "--candidates", "168"],
            {"hole": 2, "octant": 2},
        ),
    ],
)
def test_blocks_match_brute_force_selection(campaign, tmp_path, options, limits):
    folder, locations, values, holes = campaign
    methods = [f"--method={m}" for m in ("nearest", "simple", "idw", "ordinary")]
    table, model = folder / "holes.csv", folder / "model.toml"
    arguments = [table, "--model", model, "--out", tmp_path, *COLUMNS, *GRID, *methods, *options]
    printed = run_script(*arguments, "--mean", "1.5", "--power", "3")
    assert f"{len(values)} samples" in printed and "17 rows without a value skipped" in printed

    result = np.load(tmp_path / "blocks.npz")
    axes = [result[f"{axis}_centres"] for axis in "xyz"]
    assert [axis[0] for axis in axes] == [-10, 1, -57]
    shape = result["samples"].shape
    assert shape == (8, 7, 5)
    first = talvorix.Ellipsoid(70, 50, 20, 30, -10, 0)
    second = talvorix.Ellipsoid(150, 150, 60, 0, 0, 0)
    covs = [
        talvorix.Covariance.nugget(0.1),
        talvorix.Covariance.exponential(0.45, first),
        talvorix.Covariance.spherical(0.25, second),
    ]
    masked = 0
    for cell in np.ndindex(shape):
        block = np.array([axis[k] for axis, k in zip(axes, cell, strict=True)])
        chosen = choose(block, locations, holes, limits)
        assert result["samples"][cell] == len(chosen)
        got = {m: result[m][cell] for m in result.files if m[1:] != "_centres"}
        if not chosen:
            masked += 1
            assert all(np.isnan(got[m]) for m in got if m != "samples")
            continue
        data = locations[chosen], values[chosen]
        n, search = len(chosen), talvorix.Neighborhood(locations[chosen])
        ok, ok_variance = talvorix.compute_ordinary_kriging([block], *data, covs, search, n)
        sk, sk_variance = talvorix.compute_simple_kriging([block], *data, covs, 1.5, search, n)
        weights = np.linalg.norm(data[0] - block, axis=1) ** -3.0
        expected = {
            "ordinary": ok[0],
            "ordinary_variance": ok_variance[0],
            "simple": sk[0],
            "simple_variance": sk_variance[0],
            "idw": weights @ data[1] / weights.sum(),
            "nearest": data[1][0],
            "samples": n,
        }
        assert got == pytest.approx(expected, rel=1e-8)
    assert 20 < masked < 200

    rows = np.genfromtxt(tmp_path / "blocks.csv", delimiter=",", names=True)
    estimated = np.argwhere(result["samples"] > 0)
    assert len(rows) == len(estimated)
    for k, axis in enumerate("xyz"):
        np.testing.assert_allclose(rows[axis], axes[k][estimated[:, k]])
    for name in ("ordinary", "ordinary_variance", "simple", "idw", "nearest", "samples"):
        np.testing.assert_allclose(rows[name], result[name][tuple(estimated.T)], rtol=1e-6)
    picture = matplotlib.image.imread(tmp_path / "estimates.png")
    assert min(picture.shape[:2]) > 200 and picture.std() > 0.05


def test_demo_repeats_from_its_table_and_readme_code_runs(tmp_path, monkeypatch):
    coarse = ["--cells", "14 12 8", "--size", "50 50 47.5"]
    run_script("--out", tmp_path / "demo", *coarse)
    model = SCRIPT.with_name("campaign.toml")
    table = tmp_path / "demo" / "composites.csv"
    run_script(table, "--model", model, "--out", tmp_path / "again", "--threads", "1", *coarse)
    first, again = (np.load(tmp_path / name / "blocks.npz") for name in ("demo", "again"))
    assert np.isfinite(first["ordinary"]).sum() > 500
    for name in first.files:
        np.testing.assert_array_equal(first[name], again[name])

    code = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)
    monkeypatch.chdir(tmp_path)
    names = {}
    exec(compile(code[1], "README.md", "exec"), names)
    estimates = np.array(names["estimates"])
    inside = np.isfinite(estimates)
    data = np.genfromtxt(table, delimiter=",", names=True)["grade"]
    assert inside.all() and data.min() - 1 < estimates.min() < estimates.max() < data.max() + 1


def test_a_terminal_shows_the_status_and_wipes_it(tmp_path):
    code, lines, _ = run_on_terminal(SCRIPT, "--out", tmp_path, "--cells", "30 24 20")
    assert code == 0 and any(line.startswith("ordinary kriging of ") for line in lines)
    # A line that wraps could not be wiped.
    assert max(map(len, lines)) < COLUMNS_SHOWN and not lines[-1].strip()


@pytest.mark.parametrize(("script", "at"), [(SCRIPT, "search of samples"), (FACIES, "sation 2")])
def test_ctrl_c_ends_an_example_at_once_and_quietly(tmp_path, script, at):
    def late_by():
        code, lines, seconds = run_on_terminal(script, "--out", tmp_path, stop_at=at)
        assert code == 130 and not lines[-1].strip() and "\n" not in "".join(lines)
        return seconds

    # The machine itself may stall for once; what does not listen is late every time.
    assert late_by() < 1.5 or late_by() < 1.5


def read_directions(printed):
    """Azimuth, dip, pairs, shortest lag, range of the points and of the model by direction."""
    lines = re.findall(r"^([a-z ]+?) +(\d+ +-?\d+ +[\d,]+ .*)$", printed, re.MULTILINE)
    words = {name: row.replace(",", "").split() for name, row in lines}
    return {name: [math.nan if w == "-" else float(w) for w in row] for name, row in words.items()}


def test_variogram_runs_from_nothing_and_its_model_fits(tmp_path):
    printed = run_script("--out", tmp_path, "--most-samples", 2500, script=VARIOGRAM)
    table = read_directions(printed)
    assert list(table) == ["major axis", "middle axis", "minor axis", "along the holes"]
    azimuth, dip, _, shortest, points, model = table["along the holes"]
    assert [azimuth, dip] == pytest.approx([305, -70], abs=3)
    assert shortest < 10 and points == pytest.approx(model, rel=0.25)
    picture = matplotlib.image.imread(tmp_path / "variogram.png")
    assert min(picture.shape[:2]) > 400 and picture.std() > 0.05


def test_variogram_of_a_plane_wave(tmp_path, monkeypatch):
    box = talvorix.BoundingBox([[0, 0, 0], [100, 100, 100]])
    holes = talvorix.create_random_drillholes(box, 70, 3.0, azimuth=120, dip=-60, seed=4)
    locations, wave = np.reshape(holes[0], (-1, 3)), np.ravel(talvorix.Direction(220, -70))
    values = np.cos(2 * np.pi * locations @ wave / 40)
    rows = np.column_stack([locations, values, holes[1]])
    np.savetxt(tmp_path / "table.csv", rows, delimiter=",", header="x,y,z,cu,DH", comments="")
    model = ["--structure", "spherical 3 60 40 20 40 -20 0", "--value", "cu", "--hole", "DH"]
    narrow = ["--angle-tol", "4", "--bandwidth", "0.08", "--max-lag", "35"]
    options = [tmp_path / "table.csv", *model, *narrow, "--out", tmp_path]
    table = read_directions(run_script(*options, script=VARIOGRAM))
    axes = {"major axis": [40, -20], "middle axis": [310, 0], "minor axis": [220, -70]}
    assert {name: row[:2] for name, row in table.items()} == axes | {"along the holes": [120, -60]}
    # Across the planes the wave reaches 95 % of its variance where its cosine is 0.05; within them
    # it never does. The spherical model does where 1.5 h - 0.5 h^3 is 0.95.
    reach = next(h for h in np.roots([0.5, 0, -1.5, 0.95]) if 0 < h < 1)
    points = {name: row[4] for name, row in table.items()}
    assert points["minor axis"] == pytest.approx(40 * math.acos(0.05) / (2 * math.pi), rel=0.15)
    assert math.isnan(points["major axis"]) and math.isnan(points["middle axis"])
    models = [table[name][5] for name in axes]
    assert models == pytest.approx([math.nan, 40 * reach, 20 * reach], rel=0.01, nan_ok=True)

    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(VARIOGRAM.stem)
    variogram = talvorix.compute_exp_variogram(locations, values, -1, 4.0, bandwidth=0.08)
    plane = np.ravel(talvorix.Direction(40, -20)), np.ravel(talvorix.Direction(130, 0))
    across, opposite, *along = script.map_directions(variogram, 20, np.array([wave, -wave, *plane]))
    assert across == opposite and across > 0.7 and max(along) < 0.3


def test_anisotropy_of_the_demo_is_found(tmp_path):
    printed = run_script("--out", tmp_path, "--threads", 2, script=ANISOTROPY)
    rows = re.findall(r"^(found|isotropic|model) +(\d.*)$", printed, re.MULTILINE)
    (_, shape), _, _, (_, found), (_, sphere), _ = rows
    found, sphere = ([float(w.strip("%")) for w in row.split()] for row in (found, sphere))
    for k in (0, 3):
        assert found[k] < sphere[k] and found[k + 1] > sphere[k + 1] and found[k + 2] > 15
    lenses = talvorix.Ellipsoid(280, 190, 80, 35, -8, 52)
    shape = talvorix.Ellipsoid(*map(float, shape.split()))
    poles = [np.ravel(e.minor_axis()) for e in (lenses, shape)]
    cosine = abs(poles[0] @ poles[1]) / np.prod(np.linalg.norm(poles, axis=1))
    assert math.degrees(math.acos(cosine)) < 20 and shape.info().r1() > 1.5 * shape.info().r3()
    picture = matplotlib.image.imread(tmp_path / "anisotropy.png")
    assert min(picture.shape[:2]) > 400 and picture.std() > 0.05


def test_anisotropy_draws_shadows_and_cross_validates_an_exact_field(monkeypatch):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(ANISOTROPY.stem)
    ellipsoid = talvorix.Ellipsoid(50, 30, 10, 70, -25, 40)
    across = script.section_direction(ellipsoid)
    surface = np.reshape(ellipsoid.surface(20_000), (-1, 3))
    for view in (np.eye(3)[:2], np.array([across, [0, 0, 1]])):
        line, points = script.outline(ellipsoid, view), view @ surface.T
        for angle in np.linspace(0, np.pi, 7):
            side = np.array([np.cos(angle), np.sin(angle)])
            assert max(side @ line) == pytest.approx(max(side @ points), rel=2e-3)
    # East of a plane that strikes north and dips east; down the axis of a level one.
    assert script.section_direction(talvorix.Ellipsoid(9, 9, 1, 90, -30, 0)) == pytest.approx(
        [1, 0, 0], abs=1e-9
    )
    level = talvorix.Ellipsoid(9, 5, 1, 30, 0, 0)
    assert abs(script.section_direction(level)) == pytest.approx([0.5, math.sqrt(0.75), 0])

    locations = np.random.default_rng(2).uniform(-0.3, 0.3, (400, 3))
    values = 7 + 3 * np.sin(8 * locations[:, 0])
    search = script.read_search({}, 1)
    # Thin along x, across the sheets of equal values, and thin along z.
    right, wrong = (talvorix.Ellipsoid(3, 3, 0.4, 0, 0, rake) for rake in (90, 0))
    exact, blurred = (script.validate(locations, values, e, search, True) for e in (right, wrong))
    residuals = exact.estimates - exact.measured
    assert exact.explained == pytest.approx(1 - np.mean(residuals**2) / np.var(exact.measured))
    assert set(exact.measured) <= set(values) and abs(np.mean(residuals)) < 0.2
    assert exact.error < 0.6 * blurred.error and exact.correlation > 0.95


def test_simulation_runs_from_nothing_and_repeats_from_its_table(tmp_path):
    options = ["--cells", "14 12 8", "--size", "50 50 47.5", "--cutoff", 1.5]
    first, again, model = tmp_path / "first", tmp_path / "again", SCRIPT.with_name("campaign.toml")
    printed = run_script("--out", first, "--realisations", 4, *options, script=SIMULATION)
    options += ["--model", model, "--out", again, "--realisations", 3, "--threads", 1]
    run_script(first / "composites.csv", *options, script=SIMULATION)
    differences = re.search(r"at the samples: (\S+) of scores, (\S+) of values", printed).groups()
    assert max(map(float, differences)) < 1e-9
    full, less = (np.load(folder / "realisations.npz") for folder in (first, again))
    cubes = full["realisations"]
    assert cubes.shape == (4, 14, 12, 8) and np.isfinite(cubes).any()
    np.testing.assert_array_equal(cubes[:3], less["realisations"])
    rows = np.genfromtxt(first / "summary.csv", delimiter=",", names=True)
    inside = np.isfinite(cubes[0])
    for name, of_cells in (("probability", cubes > 1.5), ("mean", cubes), ("std", cubes)):
        expected = (of_cells.std if name == "std" else of_cells.mean)(axis=0, dtype=float)[inside]
        np.testing.assert_allclose(rows[name], expected, rtol=1e-5)
    assert matplotlib.image.imread(first / "simulation.png").std() > 0.05


def test_realisations_honour_samples_and_vary_as_kriging_says(monkeypatch):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script, jobs = (importlib.import_module(path.stem) for path in (SIMULATION, SCRIPT))
    ball, rng = talvorix.Ellipsoid(30, 30, 30, 0, 0, 0), np.random.default_rng(8)
    model = [talvorix.Covariance.nugget(0.4), talvorix.Covariance.spherical(0.6, ball)]
    grid = talvorix.CartesianGrid(number_of_cells=(5, 5, 1), cell_size=(7, 7, 7), origin=(0, 0, 0))
    cells = script.Cells(grid, np.full(25, True), np.asarray(grid))
    places = np.concatenate([cells.centres[:5], rng.uniform(0, 28, (30, 3)) * [1, 1, 0.1]])
    scores, limits = rng.standard_normal(35), {"max_octant": 0, "max_per_hole": 0}
    samples = jobs.Composites(places, scores, np.zeros(35, np.int32))
    normal = script.NormalScores(scores, ([-99.0, 99.0], [-99.0, 99.0]))
    job = jobs.Job({}, model, ball, limits, grid, [], 2, None)
    simulation = script.Simulation(model, "turning-bands", 800, 0, 5, 35)
    values = script.simulate(simulation, cells, samples, normal, job, 1).values
    assert abs(values[:, :5] - scores[:5]).max() < 1e-6
    kriging = talvorix.compute_simple_kriging, grid, places, scores, model, 0.0
    estimates, variances = kriging[0](*kriging[1:], talvorix.Neighborhood(places), 35)
    off = (values.mean(axis=0) - estimates)[5:] / np.sqrt(np.array(variances[5:]) / 800)
    assert max(abs(off)) < 4 and 0.7 < off.std() < 1.3
    assert np.mean(values.var(axis=0)[5:] / variances[5:]) == pytest.approx(1, abs=0.03)


HEADER = "x,y,z,grade,hole"
ROWS = [f"{x},{x % 3},{-x},{x / 10},DH-{x % 4}" for x in range(20)]
GOOD = {"--structure": "spherical 1 9 9 9", "--search": "9 9 9"} | {
    "--origin": "0 0 -20",
    "--cells": "4 4 4",
    "--size": "5 5 5",
}


@pytest.mark.parametrize(
    ("row", "changed", "expected"),
    [
        ("3,1,oops,0.3,DH-1", {}, ["row 5", "column 'z'", "a number", "'oops'"]),
        ("3,,0,0.3,DH-1", {}, ["row 5", "column 'y'", "got nothing"]),
        ("3,1,2,1e999,DH-1", {}, ["row 5", "column 'grade'", "'1e999'"]),
        ("3,1", {}, ["row 5", "fewer cells"]),
        ("3,1,2,0.3,", {"--max-per-hole": "2"}, ["row 5", "column 'hole'", "no name"]),
        (None, {"--value": "cu"}, ["no column 'cu' for --value", HEADER.replace(",", ", ")]),
        (None, {"--cells": "4 4.5 4"}, ["cells", "whole numbers"]),
        (None, {"--size": "5 0 5"}, ["size", "above 0"]),
        (None, {"--search": "9 9"}, ["search", "3 or 6 numbers"]),
        (None, {"--search": None}, ["search is missing", "--search"]),
        (None, {"--origin": "90 0 0"}, ["search", "no block has the 4 samples"]),
        (None, {"--structure": None}, ["model is empty", "--structure"]),
        (None, {"--structure": "cubic 1 9 9 9"}, ["structure 1", "'cubic'", "spherical"]),
        (None, {"--structure": "spherical 1 9 9"}, ["--structure", "3 numbers", "expected"]),
        (None, {"--min-samples": "13"}, ["min_samples", "13", "max_samples", "12"]),
        (None, {"--candidates": "5"}, ["candidates", "at least 12", "got 5"]),
        (None, {"--method": "cokriging"}, ["method", "ordinary", "cokriging"]),
        (None, {"--model": "none.toml"}, ["none.toml", "cannot be read"]),
        (None, {"--model": "typo.toml"}, ["typo.toml", "unknown key 'nuget'"]),
    ],
)
def test_bad_input_exits_2_and_names_the_place(
    tmp_path, monkeypatch, capsys, row, changed, expected
):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(SCRIPT.stem)
    monkeypatch.chdir(tmp_path)
    rows = ROWS if row is None else [*ROWS[:3], row, *ROWS[4:]]
    Path("table.csv").write_text("\n".join([HEADER, *rows]) + "\n")
    Path("typo.toml").write_text("nuget = 0.3\n")
    options = [f"{k}={v}" for k, v in (GOOD | changed).items() if v is not None]
    try:
        status = script.main(["table.csv", *options])
    except SystemExit as leave:
        status = leave.code
    message = capsys.readouterr().err
    assert status == 2
    for piece in expected:
        assert piece in message
    assert not Path("out").exists()


@pytest.mark.parametrize(
    ("options", "expected"),
    [
        (["--direction=3 95"], ["direction", "-90 to 90", "got 95"]),
        (["--max-lag=0"], ["max_lag", "above 0"]),
        (["--map-lag=999"], ["map_lag", "about 999", "there are from"]),
        (["--most-samples=1"], ["most_samples", "at least 2", "got 1"]),
        (["--value=flat"], ["column 'flat'", "values that differ", "7 only"]),
        (["--hole=BHID"], ["no column 'BHID' for --hole"]),
    ],
)
def test_variogram_names_what_is_wrong(tmp_path, monkeypatch, capsys, options, expected):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(VARIOGRAM.stem)
    monkeypatch.chdir(tmp_path)
    rows = [f"{HEADER},flat", *(f"{row},7" for row in ROWS)]
    Path("table.csv").write_text("\n".join(rows) + "\n")
    assert script.main(["table.csv", *options]) == 2
    message = capsys.readouterr().err
    assert [piece for piece in expected if piece not in message] == []
    assert not Path("out").exists()


@pytest.mark.parametrize(
    ("options", "expected"),
    [
        (["--kernel=cubic"], ["kernel", "spherical", "'cubic'"]),
        (["--min-range=0.7"], ["min_range", "max_range, which is 0.6", "0.7"]),
        (["--penalty=-1"], ["penalty", "at least 0", "got -1"]),
        (["--neighbors=9"], ["neighbors", "at least 30", "got 9"]),
        ([], ["column 'grade'", "at least 30 values", "got 20"]),
    ],
)
def test_anisotropy_names_what_is_wrong(tmp_path, monkeypatch, capsys, options, expected):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(ANISOTROPY.stem)
    monkeypatch.chdir(tmp_path)
    Path("table.csv").write_text("\n".join([HEADER, *ROWS]) + "\n")
    assert script.main(["table.csv", *options]) == 2
    message = capsys.readouterr().err
    assert [piece for piece in expected if piece not in message] == []
    assert not Path("out").exists()


@pytest.mark.parametrize(
    ("options", "expected"),
    [
        (["--cutoff=nan"], ["cutoff", "not a finite number"]),
        (["--realisations=0"], ["realisations", "at least 1", "got 0"]),
        (["--origin=900 0 0"], ["no sample lies within reach", "--origin"]),
        (["--search=1 1 1"], ["search", "no cell has the 4 samples"]),
    ],
)
def test_simulation_names_what_is_wrong(tmp_path, monkeypatch, capsys, options, expected):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(SIMULATION.stem)
    monkeypatch.chdir(tmp_path)
    Path("table.csv").write_text("\n".join([HEADER, *ROWS]) + "\n")
    assert script.main(["table.csv", *(f"{k}={v}" for k, v in GOOD.items()), *options]) == 2
    message = capsys.readouterr().err
    assert [piece for piece in expected if piece not in message] == []


def test_custom_model_agrees_with_scipy_and_recovers_a_known_one(tmp_path, monkeypatch, capsys):
    printed = run_script("--out", tmp_path, script=CUSTOM)
    rows = re.findall(r"^(?:measured|spoiled) +(?:squares|robust) +(.*)$", printed, re.MULTILINE)
    own, other, *_, departs = np.array([list(map(float, row.split())) for row in rows]).T
    assert own[0] == pytest.approx(other[0], rel=1e-6) and own == pytest.approx(other, rel=1e-5)
    assert departs[0] == 0 and departs[3] < 0.5 * departs[2]
    assert matplotlib.image.imread(tmp_path / "custom_model.png").std() > 0.05

    monkeypatch.syspath_prepend(SCRIPT.parent)
    script, h = importlib.import_module(CUSTOM.stem), np.linspace(2, 120, 40)
    known, curves = [0.1, 0.4, 0.5, 20, 90, 0.4], []
    for stretch in (1, 0.4):
        u, v = (root * h / reach / stretch for root, reach in ((20**0.5 - 1, 20), (19**0.5, 90)))
        gamma = 3 * (0.1 + 0.4 * (1 - (1 + u) ** -2) + 0.5 * v**2 / (1 + v**2))
        curves.append(script.Curve(h, gamma, np.full(40, 7), []))
    problem = script.pose(["hyperbolic", "quadratic"], ["a", "b"], 120)
    exact = script.gather_lags(curves, 3)
    spoiled, drawn = script.spoil(exact, 0.1)
    assert len(drawn) == 8 and script.fit_formula(problem, spoiled, 0).cost > 0.1
    for lags, cauchy in ((exact, 0), (spoiled, 1e-3)):
        fit = script.fit_formula(problem, lags, cauchy)
        assert fit.parameters == pytest.approx(known, rel=0.01)
    for option, expected in (
        ("--shapes=cubic", "steep, quadratic, got 'cubic'"),
        ("--max-lag=8", "no pairs of samples toward 35 -8"),
    ):
        assert script.main([f"--out={tmp_path / 'no'}", option]) == 2
        assert expected in capsys.readouterr().err and not (tmp_path / "no").exists()


def test_facies_honour_samples_and_the_model_turns_with_the_layers(tmp_path, monkeypatch, capsys):
    run_script("--out", tmp_path, "--realisations", 3, script=FACIES)
    cubes, names = (np.load(tmp_path / "facies.npz")[k] for k in ("realisations", "classes"))
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(FACIES.stem)
    columns = {"x": "x", "y": "y", "z": "z", "category": "lithology"}
    flat, by_cell = script.read_samples(tmp_path / "samples.csv", columns), {}
    for *cell, code in np.column_stack([flat.locations // [10, 10, 4], flat.codes]).astype(int):
        if all(np.array(cell) < cubes.shape[1:]):
            by_cell.setdefault(tuple(cell), set()).add(code)
    pure = [(cell, *codes) for cell, codes in by_cell.items() if len(codes) == 1]
    assert all((cubes[(slice(None), *cell)] == code).all() for cell, code in pure)
    assert len(pure) > 1000 and list(names) == flat.classes
    near, far = (np.mean(cubes[..., lag:] == cubes[..., :-lag]) for lag in (1, 14))
    assert near > far + 0.25 and matplotlib.image.imread(tmp_path / "facies.png").std() > 0.05

    level, axes = np.eye(3), np.asarray(talvorix.Ellipsoid(1, 1, 1, 35, -30, 9).matrix())
    turned = script.replace(flat, locations=flat.locations @ axes)
    model = script.fit(turned, axes, None)
    assert model.ranges == pytest.approx(script.fit(flat, level, None).ranges, rel=1e-3)
    u, v = np.array([[3.0, 40, 9], [-20.0, 21, 5]])
    table = model.formulas(model.ranges[1])(*model.stretch(np.array([u, v])).tolist())
    squared = np.sum(((v - u) @ axes.T / model.ranges[[0, 0, 1]]) ** 2)
    expected = model.shares + (np.eye(4) - model.shares) / (1 + squared) ** model.power
    for matrix in (table, model.transitions([v - u])[0]):
        np.testing.assert_allclose([list(row) for row in matrix], expected)
    for option, message in (("--ranges=5", "a list of 2 numbers"), ("--x=E", "'E' for --x")):
        grid = [*map("=".join, GOOD.items())][2:]
        assert script.main([f"{tmp_path}/samples.csv", *grid, f"--out={tmp_path}/no", option]) == 2
        assert message in capsys.readouterr().err and not (tmp_path / "no").exists()


def test_grades_become_independent_and_come_back(tmp_path, monkeypatch, capsys):
    first, again, short = tmp_path / "first", tmp_path / "again", ["--steps=2", "--bins=300"]
    run_script("--out", first, *short, script=MULTIVARIATE)
    lines = (first / "composites.csv").read_text().splitlines()
    table = tmp_path / "table.csv"
    table.write_text("\n".join([*lines, "DH-00,0.2,,0.3"]) + "\n")
    printed = run_script(table, "--out", again, "--threads", 1, *short, script=MULTIVARIATE)
    assert "3,372 samples, 1 rows that miss a grade left out" in printed
    assert (first / "scores.csv").read_text() == (again / "scores.csv").read_text()

    samples, apart, simulated = (
        np.genfromtxt(first / f"{name}.csv", delimiter=",", skip_header=1)[:, skipped:]
        for name, skipped in (("composites", 1), ("scores", 1), ("simulated", 0))
    )
    grades, scores, returned = np.split(apart, 3, axis=1)
    own = {line.split(",")[0] for line in (first / "scores.csv").read_text().splitlines()[1:]}
    assert len(own) == 9 and len(apart) == sum(line.split(",")[0] in own for line in lines)
    errors = np.quantile(abs(returned - grades) / samples.std(axis=0), [0.5, 0.95], axis=0)
    assert errors[0].max() < 0.04 and errors[1].max() < 0.25
    assert abs(np.percentile(scores, [16, 50, 84], axis=0).T - [-1, 0, 1]).max() < 0.4
    ranks = [np.argsort(np.argsort(x, axis=0), axis=0).T for x in (scores, samples, simulated)]
    independent, known, found = (np.corrcoef(rows) for rows in ranks)
    assert abs(independent - np.eye(3)).max() < 0.2 < known.min()
    np.testing.assert_allclose(found, known, atol=0.08)
    levels = [0.25, 0.5, 0.75, 0.95]
    both = (np.quantile(values, levels, axis=0) for values in (simulated, samples))
    np.testing.assert_allclose(*both, rtol=0.12)
    assert matplotlib.image.imread(first / "multivariate.png").std() > 0.05

    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(MULTIVARIATE.stem)
    table.write_text("\n".join([lines[0], "DH-00,0.2,-0.1,0.3"]) + "\n")
    for option, message in (
        ("--seed=1", "table.csv, row 2, column 'nickel': expected a grade of at least 0, got -0.1"),
        ("--sulphur=S", "no column 'S' for --sulphur; row 1 has hole, copper, nickel, sulphur"),
        ("--scale=roots", "scale: expected logarithms or grades, got 'roots'"),
    ):
        assert script.main([str(table), f"--out={tmp_path}/no", option]) == 2
        assert message in capsys.readouterr().err and not (tmp_path / "no").exists()


def test_missing_table_fails_as_a_command(tmp_path):
    command = [sys.executable, str(SCRIPT), str(tmp_path / "no.csv")]
    command += [f"{k}={v}" for k, v in GOOD.items()]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 2
    assert "no.csv: cannot be read" in done.stderr and "Traceback" not in done.stderr


def test_workflow_finds_its_known_model_and_hands_it_on(tmp_path, monkeypatch):
    coarse = ["--cells", "19 15 10", "--size", "40 40 38", "--realisations", 4]
    printed = run_script("--out", tmp_path, *coarse, "--threads", 2, script=WORKFLOW)
    found = re.search(r"scores and known: ranges by (.*); (\d+)° .* (\d+)° between", printed)
    assert [float(ratio) for ratio in found[1].split()] == pytest.approx([1, 1, 1], abs=0.35)
    assert int(found[2]) < 15 and int(found[3]) < 25
    rows = re.findall(r"^(kriging: scores|inverse distance) .* (\S+)%$", printed, re.MULTILINE)
    assert float(rows[0][1]) > float(rows[1][1]) + 2
    result = np.load(tmp_path / "workflow.npz")
    at, inside = [result[f"{axis}_centres"] for axis in "xyz"], np.isfinite(result["estimate"])
    assert [len(axis) for axis in at] == [19, 15, 10] and inside.mean() > 0.8
    # Realisations scatter about what kriging says, and less where samples are near.
    mean, spread = result["mean"][inside], result["std"][inside]
    assert np.corrcoef(mean, result["estimate"][inside])[0, 1] > 0.75
    table = np.genfromtxt(tmp_path / "composites.csv", delimiter=",", names=True)
    places = np.column_stack([table[axis] for axis in "xyz"])
    centres = np.stack(np.meshgrid(*at, indexing="ij"), axis=-1)[inside]
    distances = np.min([np.linalg.norm(centres - place, axis=1) for place in places], axis=0)
    assert spread[distances < 8].mean() < 0.9 * spread[distances > 25].mean()
    monkeypatch.syspath_prepend(SCRIPT.parent)
    jobs = importlib.import_module(SCRIPT.stem)
    job = jobs.read_job(jobs.read_settings(tmp_path / "model.toml"))
    assert sum(part.sill for part in job.model) == pytest.approx(table["grade"].var(), rel=1e-3)
    assert matplotlib.image.imread(tmp_path / "workflow.png").std() > 0.05


def test_workflow_maps_a_plane_wave_and_fits_an_exact_variogram(tmp_path, monkeypatch, capsys):
    monkeypatch.syspath_prepend(SCRIPT.parent)
    script, size = importlib.import_module(WORKFLOW.stem), np.array([9.0, 6.0, 2.0])
    places = np.random.default_rng(3).permutation(list(np.ndindex(24, 24, 24)))[:6000] * size
    wave = 2 * np.pi / 40 * np.ravel(talvorix.Direction(30, -70)) * [0.6, 0.6, 1]
    lags = script.map_variogram(places, np.sqrt(2) * np.cos(places @ wave), size, 0)
    off = lags.semivariances - (1 - np.cos(lags.vectors @ wave))
    assert np.sqrt(np.average(off**2, weights=lags.pairs)) < 0.1 and len(off) > 5000
    # Noise has its variance at the shortest lags as well: nothing of lag 0 may get into them.
    noise = script.map_variogram(places, np.random.default_rng(4).standard_normal(6000), size, 0)
    near = np.linalg.norm(noise.vectors / size, axis=1) < 2
    assert near.sum() > 100 and noise.semivariances[near].mean() == pytest.approx(1, abs=0.03)
    ellipsoid = talvorix.Ellipsoid(90, 50, 20, 70, -25, 40)
    model = [talvorix.Covariance.nugget(0.9), talvorix.Covariance.exponential(2.1, ellipsoid)]
    exact = np.array(talvorix.variogram_computer(model, 3.0).simulate(lags.vectors))
    own = {"structures": 1, "kernel": "exponential", "seed": 1}
    exact = script.Lags(lags.vectors, exact, lags.pairs)
    part, nugget = script.fit_model(exact, 3.0, np.full(3, 200.0), size, own, 0)
    np.testing.assert_allclose(
        part.ellipsoid.matrix().T @ part.ellipsoid.matrix(),
        ellipsoid.matrix().T @ ellipsoid.matrix(),
        atol=1e-5,
    )
    assert [part.sill, nugget.sill] == pytest.approx([2.1, 0.9], rel=1e-2)

    monkeypatch.chdir(tmp_path)
    Path("table.csv").write_text("\n".join([HEADER, *ROWS, *ROWS]) + "\n")
    for option, expected in (
        ("--kernel=cubic", ["kernel", "spherical", "'cubic'"]),
        ("--lattice=1e-3 1 1e-3", ["lattice", "at most 20,000,000", "it takes"]),
        ("--structures=0", ["structures", "at least 1", "got 0"]),
        ("--hole=BHID", ["no column 'BHID' for --hole"]),
    ):
        assert script.main(["table.csv", option]) == 2
        message = capsys.readouterr().err
        assert [piece for piece in expected if piece not in message] == []
        assert not Path("out").exists()


def test_local_ellipsoids_follow_a_fold_and_predict_better(tmp_path, monkeypatch, capsys):
    printed = run_script("--out", tmp_path, "--quick", "--threads", 2, script=LOCAL)
    assert int(re.search(r"off by (\d+)°", printed)[1]) < 22
    rows = re.findall(r"^(ensemble|global|true dips) +\S+ +(\S+) +\S+$", printed, re.MULTILINE)
    errors = [float(error) for _, error in rows]
    for ensemble, one, true in (errors[:3], errors[3:]):
        assert true < ensemble < 0.95 * one
    assert matplotlib.image.imread(tmp_path / "local_anisotropy.png").std() > 0.05

    monkeypatch.syspath_prepend(SCRIPT.parent)
    script = importlib.import_module(LOCAL.stem)
    x = np.linspace(0, 800, 4001)
    layer = np.column_stack([x, np.full(len(x), 7), script.fold(x)])
    flat = script.unfold(layer)
    np.testing.assert_allclose(flat[:, 1:] - [7, 0], 0, atol=1e-9)
    steps = [np.linalg.norm(np.diff(line, axis=0), axis=1) for line in (flat, layer)]
    np.testing.assert_allclose(*steps, rtol=1e-4)
    ellipsoid = talvorix.Ellipsoid(90, 50, 20, 70, -25, 40)
    axes = script.section_axes(ellipsoid)
    turn = np.linspace(0, 6, 9)
    right, up = axes @ [np.cos(turn), np.sin(turn)]
    cut = np.column_stack([right, np.zeros(9), up]) @ np.asarray(ellipsoid.matrix()).T
    np.testing.assert_allclose(np.linalg.norm(cut, axis=1), 1)
    assert abs(axes[:, 0] @ axes[:, 1]) < 1e-9 and np.linalg.norm(axes, axis=0)[0] > 20
    assert script.section_dip(talvorix.Ellipsoid(*script.RANGES, 90, 33, 0)) == pytest.approx(33)
    assert script.main([f"--out={tmp_path / 'no'}", "--folds=1"]) == 2
    assert "folds: expected a whole number of at least 2, got 1" in capsys.readouterr().err
