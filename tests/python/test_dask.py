"""Runs in chunks against single calls, bit for bit; and what is refused before any work."""

import contextlib
import os
import pickle
import signal
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest
import scipy.stats
import talvorix as tx
import talvorix_dask as td
from talvorix_dask import noise, runs

pd, xr, zarr = (pytest.importorskip(name) for name in ("pandas", "xarray", "zarr"))
distributed = pytest.importorskip("distributed")

RNG = np.random.default_rng(11)
X = RNG.random((600, 3)) * (300, 240, 120)
Z = np.sin(X[:, 0] / 40) + 0.1 * RNG.standard_normal(600)
BODY = tx.Ellipsoid(90, 60, 30, 40, -20, 10)
MODEL = [tx.Covariance.nugget(0.1), tx.Covariance.spherical(0.9, BODY)]
AROUND = tx.Neighborhood(X, BODY)
COUNTS, SIZE, ORIGIN, TURN = (23, 19, 11), (11.3, 9.7, 8.9), (7.1, -3.3, 0.9), (33, 12, -8)
GRID = tx.CartesianGrid(number_of_cells=COUNTS, cell_size=SIZE, origin=ORIGIN, rotation=TURN)
BOX = np.asarray(GRID.corners()).reshape(-1, 3)
FIELDS = tx.SimulatorGenerator.TBSIM(BOX, MODEL[1], 5, 60, n_base_simulation_points=12)
CHUNKS = (10, 8, 6)  # 18 of them, those at the ends smaller
KRIGING = tx.OrdinaryKriging(MODEL, 12, -1, 2)


@pytest.fixture(scope="module")
def client():
    two = {"n_workers": 2, "threads_per_worker": 1, "dashboard_address": ":0"}
    with distributed.LocalCluster(**two) as cluster, distributed.Client(cluster) as client:
        yield client


def with_variance(targets, around, locations, values, n_threads):
    given = targets, locations, values, MODEL, around, 12
    return tx.compute_ordinary_kriging(*given, n_threads=n_threads)


class Watched:
    """Kriging that notes each call, and once stops or kills its process at its fourth chunk."""

    def __init__(self, folder, how):
        self.folder, self.how = Path(folder), how

    def __call__(self, targets, around, locations, values, n_threads):
        if len(targets) > 3:  # fewer are asked for to compare processes
            (self.folder / f"{targets[0][0]!r} {os.getpid()}").touch()
            flag = self.folder.with_name("flag")
            if len(list(self.folder.iterdir())) > 3 and not flag.exists():
                flag.touch()
                if self.how == "kill":
                    os.kill(os.getpid(), signal.SIGKILL)
                raise KeyboardInterrupt
        return KRIGING(targets, around, locations, values, n_threads)


def opened(store, name="estimate"):
    return xr.open_zarr(store)[name].to_numpy()


def plain(estimator=KRIGING):
    return np.reshape(estimator(GRID, AROUND, X, Z, n_threads=2), COUNTS)


def test_centres_have_the_bits_of_the_grid():
    cases = [(ORIGIN, TURN), ((0, 0, 0), (90, 0, 0)), ((1e6, 2e5, -9), (0, 0, 0))]
    cases += [(RNG.normal(0, 1e5, 3), RNG.uniform(-180, 180, 3)) for _ in range(30)]
    for origin, rotation in cases:
        counts, size = RNG.integers(1, 24, 3), RNG.uniform(0.1, 30, 3)
        whole = tx.CartesianGrid(
            number_of_cells=tuple(counts), cell_size=size, origin=origin, rotation=rotation
        )
        expected = np.asarray(whole).reshape(*counts, 3)
        lower = RNG.integers(0, counts)
        upper = RNG.integers(lower, counts) + 1
        part = expected[tuple(map(slice, lower, upper))].reshape(-1, 3)
        for grid in (td.Grid(counts, size, origin, rotation), td.Grid.of(whole)):
            np.testing.assert_array_equal(grid.centres(), expected.reshape(-1, 3))
            np.testing.assert_array_equal(grid.centres(lower, upper), part)


def test_a_killed_worker_changes_nothing(client, tmp_path, monkeypatch):
    monkeypatch.setattr("talvorix_dask.runs.WINDOW", 5)
    (calls := tmp_path / "calls").mkdir()
    before = set(client.run(os.getpid).values())
    done = td.estimate(
        GRID, Watched(calls, "kill"), AROUND, X, Z, tmp_path / "s.zarr", chunks=CHUNKS,
        client=client,
    )  # fmt: skip
    np.testing.assert_array_equal(opened(tmp_path / "s.zarr"), plain())
    assert done.chunks == 18 and done.blocks == len(GRID) and min(done.memory.values()) > 2e7
    # Not wait_for_workers, which at times misses a worker that came back.
    end = time.monotonic() + 30
    while len(client.nthreads()) < 2 and time.monotonic() < end:
        time.sleep(0.05)
    assert len(before & set(client.run(os.getpid).values())) == 1
    # The chunk that it died with was done by another process.
    targets = [path.name.split()[0] for path in calls.iterdir()]
    assert len(targets) == len(set(targets)) + 1 == 19


def test_an_interrupted_run_goes_on_where_it_stopped(client, tmp_path):
    (calls := tmp_path / "calls").mkdir()
    kriging, store = Watched(calls, "interrupt"), tmp_path / "s.zarr"
    with pytest.raises(KeyboardInterrupt):
        td.estimate(GRID, kriging, AROUND, X, Z, store, chunks=CHUNKS, n_workers=0)
    assert np.isnan(opened(store)).any() and np.isfinite(opened(store)).any()
    again = td.estimate(td.Grid.of(GRID), kriging, AROUND, X, Z, store, client=client)
    assert (again.found_done, again.chunks) == (3, 15)
    targets = [path.name.split()[0] for path in calls.iterdir()]
    assert len(targets) == 19 and len(set(targets)) == 18  # only the one that was cut off twice
    np.testing.assert_array_equal(opened(store), plain())
    # A chunk that was being written has results, of whatever kind, and no marker.
    group = zarr.open_group(str(store), mode="r+")
    group["estimate"][:10, :8, 6:] = -9.0
    group["progress/done"][0, 0, 0, 1] = 0
    assert td.estimate(GRID, kriging, AROUND, X, Z, store, n_workers=0).chunks == 1
    np.testing.assert_array_equal(opened(store), plain())
    with pytest.raises(ValueError, match=r"data is \w+, here"):
        td.estimate(GRID, kriging, AROUND, X, Z + 1, store, n_workers=0)
    td.estimate(GRID, kriging, AROUND, X, Z + 1, store, n_workers=0, overwrite=True)
    assert (opened(store) != plain()).all()


class Failing:
    """Kriging that fails at its first calls for chunks, like a disk that is full for a while."""

    def __init__(self, folder, problem, times):
        self.folder, self.problem, self.times = folder, problem, times

    def __call__(self, targets, around, locations, values, n_threads):
        if len(targets) > 3:
            for number in range(self.times):
                with contextlib.suppress(FileExistsError):
                    (self.folder / str(number)).touch(exist_ok=False)
                    raise self.problem
        return KRIGING(targets, around, locations, values, n_threads)


@pytest.mark.parametrize("workers", ["here", "cluster"])
def test_chunks_that_fail_are_tried_again_when_that_may_help(client, tmp_path, workers):
    def run(problem, times, retries=3):
        (calls := tmp_path / f"{problem} {times} {retries}").mkdir(exist_ok=True)
        place = {"client": client} if workers == "cluster" else {"n_workers": 0}
        failing, store = Failing(calls, problem, times), calls.with_suffix(".zarr")
        td.estimate(
            GRID, failing, AROUND, X, Z, store, chunks=CHUNKS, label="k", retries=retries, **place
        )
        np.testing.assert_array_equal(opened(store), plain())

    full = OSError("the disk is full")
    run(full, 3)
    with pytest.raises(RuntimeError, match=r"chunk \d+ failed: the disk is full"):
        run(full, 1, retries=0)
    run(full, 1, retries=0)  # goes on with the others
    with pytest.raises(RuntimeError, match=r"chunk \d+ failed: no grade"):
        run(ArithmeticError("no grade"), 1)


@pytest.mark.parametrize("method", ["idw", "simple", "ensemble", "variance"])
def test_every_estimator_gives_what_one_call_gives(client, tmp_path, method):
    local = tx.LocalCovariances(X[:5], [MODEL] * 4 + [MODEL[1:]], [0.1, 0.2, 0.3, 0.2, 0.1])
    estimator = {
        "idw": tx.IDW(2, max_radius=0.5),
        "simple": tx.SimpleKriging(MODEL, 0.2, 9, -1, -1, np.arange(600) // 20, 3),
        "ensemble": tx.EnsembleEstimation(local, BODY, 9, -1, 3, -1, 2.0, 0.9),
        "variance": with_variance,
    }[method]
    names = ("estimate", "variance") if method == "variance" else ("estimate",)
    td.estimate(GRID, estimator, AROUND, X, Z, tmp_path / "s.zarr", outputs=names, client=client)
    found = [opened(tmp_path / "s.zarr", name) for name in names]
    expected = np.reshape(estimator(GRID, AROUND, X, Z, n_threads=2), (-1, *COUNTS))
    np.testing.assert_array_equal(found, expected)
    assert np.isnan(expected).any() == (method == "idw")


def test_workers_are_sent_nothing_that_they_can_make():
    for around in (AROUND, tx.Neighborhood(X), tx.Neighborhood(X[::-1], BODY)):
        sent = pickle.dumps(runs.Samples(around, X, Z))
        arrived = pickle.loads(sent)
        assert arrived.neighborhood == around
        assert np.array_equal(np.c_[arrived.data_locs, arrived.data], np.c_[X, Z])
        # The last one is not over the data as they are.
        again = tx.Neighborhood(X, BODY) == around or tx.Neighborhood(X) == around
        assert (len(sent) < 1.1 * (X.nbytes + Z.nbytes)) == again


def test_data_at_one_position_are_told_and_kept(tmp_path):
    places, values = np.r_[X, X[[9, 5]]], np.r_[Z, 1.0, 2.0]
    around = tx.Neighborhood(places, BODY)
    told = "2 positions hold more than one sample, 4 rows in all, the first 5, 9, 600, 601 of data"
    with pytest.warns(UserWarning, match=told) as record:
        td.estimate(GRID, KRIGING, around, places, values, tmp_path / "s", n_workers=0)
    assert [Path(one.filename).name for one in record] == [Path(__file__).name]
    expected = np.reshape(KRIGING(GRID, around, places, values), COUNTS)
    np.testing.assert_array_equal(opened(tmp_path / "s"), expected)


def low(centres):
    return centres[:, 2] < 40


def test_masks_choose_blocks(client, tmp_path):
    chosen = low(np.asarray(GRID))
    masks = {"flags": chosen, "cube": chosen.reshape(COUNTS), "function": low}
    for name, where in masks.items():
        done = td.estimate(GRID, KRIGING, AROUND, X, Z, tmp_path / name, where=where, client=client)
        assert done.blocks == chosen.sum()
    model = tx.BlockModel(GRID, chosen)
    td.estimate(model, KRIGING, AROUND, X, Z, tmp_path / "model", n_workers=0, chunks=(50, 3, 50))
    expected = np.where(chosen.reshape(COUNTS), plain(), np.nan)
    for name in (*masks, "model"):
        np.testing.assert_array_equal(opened(tmp_path / name), expected)


def fourier(seed):
    return tx.FIM(BOX, MODEL[1], seed, 24, n_threads=1)


@pytest.mark.parametrize("generator", [FIELDS, fourier], ids=["turning bands", "Fourier"])
def test_realisations_are_those_of_one_call(client, tmp_path, generator):
    seeds, store = [3, 4, 2**32 + 7], tmp_path / "s.zarr"
    td.simulate(GRID, generator, seeds, store, chunks=CHUNKS, client=client)
    fields = [generator(seed) for seed in seeds]
    expected = [np.reshape(one.simulate(GRID, 2), COUNTS) for one in fields]
    np.testing.assert_array_equal(opened(store, "simulated"), expected)
    assert xr.open_zarr(store).seed.to_numpy().tolist() == seeds
    given = {"estimator": KRIGING, "neighborhood": AROUND, "data_locs": X, "data": Z}
    expected = np.reshape(tx.simulate(KRIGING, GRID, AROUND, X, Z, fields, 2), (3, *COUNTS))
    td.simulate(
        GRID, generator, seeds, store, chunks=(23, 4, 11), batch=2, client=client, overwrite=True,
        **given,
    )  # fmt: skip
    np.testing.assert_array_equal(opened(store, "simulated"), expected)


def test_a_nugget_is_noise_of_seed_and_block(tmp_path):
    seeds, sill = [3, -1], 0.3
    conditioned = {"estimator": KRIGING, "neighborhood": AROUND, "data_locs": X, "data": Z}

    def realisations(name, **how):
        td.simulate(GRID, FIELDS, seeds, tmp_path / name, n_workers=0, **how)
        return opened(tmp_path / name, "simulated")

    added = realisations("a", nugget=sill, chunks=CHUNKS) - realisations("b")
    np.testing.assert_allclose(
        realisations("c", nugget=sill, chunks=(2, 3, COUNTS[2])) - added, realisations("b"),
        atol=1e-12,
    )  # fmt: skip
    # Standard normal, and without memory along any axis or from seed to seed.
    many = np.stack([noise.of_box(seed, (50, 60, 70), (0, 0, 0), (50, 60, 70)) for seed in seeds])
    assert scipy.stats.kstest(many.ravel(), "norm").pvalue > 1e-3
    many = many.reshape(2, 50, 60, 70)
    pairs = [(many[0], many[1]), *((many[:, 1:], many[:, :-1]), (many[..., 1:], many[..., :-1]))]
    for one, other in (*pairs, (many[:, :, 1:], many[:, :, :-1])):
        assert abs(np.corrcoef(one.ravel(), other.ravel())[0, 1]) < 4 / np.sqrt(one.size)
    shape = (2, *COUNTS)
    assert added == pytest.approx(
        np.sqrt(sill)
        * np.reshape([noise.of_box(s, COUNTS, (0, 0, 0), COUNTS) for s in seeds], shape)
    )
    # What is conditioned is the sum of the field and its noise.
    at_data = [noise.draw(seed, noise.DATA, 0, len(Z)) * np.sqrt(sill) for seed in seeds]
    expected = [
        tx.simulate(KRIGING, GRID, AROUND, X, Z - there, FIELDS(seed), 1)
        for there, seed in zip(at_data, seeds, strict=True)
    ]
    given = realisations("d", nugget=sill, chunks=CHUNKS, **conditioned)
    assert given == pytest.approx(np.reshape(expected, shape) + added, abs=1e-12)
    with pytest.raises(ValueError, match="nugget: expected a number of at least 0, got -1"):
        realisations("e", nugget=-1)


def of_this_process(seed):
    return tx.TBSIM(BOX, MODEL[1], seed + os.getpid(), 20)


def test_fields_that_chunks_would_change_are_refused(client, tmp_path):
    def noisy(seed):
        return tx.TBSIM(BOX, MODEL, seed, 20)

    with pytest.raises(ValueError, match="give its sill as nugget"):
        td.simulate(GRID, noisy, [1], tmp_path / "s.zarr", client=client)
    with pytest.raises(RuntimeError, match="where the run's first process gave"):
        td.simulate(GRID, of_this_process, [1] * 40, tmp_path / "s.zarr", client=client)
    # Nothing of a run stays on the workers.
    kept = client.run(lambda dask_worker: [name for name in dask_worker.plugins if "talv" in name])
    assert len(kept) == 2 and not any(kept.values())


def test_runs_that_cannot_work_are_refused_before_they_begin(tmp_path):
    (tmp_path / "mine").mkdir()
    (tmp_path / "mine" / "notes.txt").touch()
    (tmp_path / "file").touch()
    zarr.open_group(str(tmp_path / "other"), mode="w")
    good = {"grid": GRID, "estimator": KRIGING, "neighborhood": AROUND, "data_locs": X, "data": Z}
    good |= {"store": tmp_path / "done", "n_workers": 0, "chunks": CHUNKS}
    td.estimate(**good)
    holes = np.where(np.arange(600) == 17, np.nan, Z)
    moved = td.Grid(COUNTS, SIZE, (7.1, -3.3, 0.8), TURN)
    for changed, problem in (
        ({"store": tmp_path / "mine", "overwrite": True}, "mine exists and is not a store"),
        ({"store": tmp_path / "other"}, "other exists and is not a store"),
        ({"store": tmp_path / "file"}, "is a file"),
        ({"grid": moved}, r"its origin is \[7.1, -3.3, 0.9\], here it is \[7.1, -3.3, 0.8\]"),
        ({"grid": td.Grid((23, 19, 12), SIZE)}, r"number_of_cells is \[23, 19, 11\]"),
        ({"chunks": (9, 9, 9)}, r"its chunks is \[10, 8, 6\], here it is \[9, 9, 9\]"),
        (
            {"estimator": tx.OrdinaryKriging(MODEL, 13)},
            r"its estimator is \w+, here it is \w+; give functions of a script a label",
        ),
        ({"where": low}, "its where is all blocks"),
        ({"label": "other"}, "its label is , here it is other"),
        ({"outputs": ["copper"]}, "its outputs is"),
        ({"outputs": ["x"]}, "the name 'x' is taken"),
        ({"data": holes}, "data: row 17"),
        ({"data": Z[1:]}, "data: expected 600 values"),
        ({"where": np.ones(5, bool)}, "where: its shape is"),
        ({"where": np.ones(COUNTS)}, "where: expected booleans"),
        ({"chunks": (0, 1, 1)}, "chunks: expected three whole numbers"),
        ({"grid": {"number_of_cells": (2, 2)}}, "'cell_size' is missing"),
        ({"grid": td.Grid, "store": tmp_path / "new"}, "expected a Grid"),
        ({"outputs": ["a", "b"], "store": tmp_path / "new"}, "a tuple of 2 lists of 3 numbers"),
        ({"neighborhood": tx.Neighborhood(X[1:]), "store": tmp_path / "new"}, "599"),
        ({"data_locs": X[:0], "data": Z[:0]}, "data_locs: expected the locations of some data"),
        ({"chunks": ("a", 1, 1)}, "chunks: expected three whole numbers"),
        ({"n_workers": -1}, "n_workers: expected a whole number, 0 or more, got -1"),
        ({"retries": 1.5}, "retries: expected a whole number, 0 or more, got 1.5"),
    ):
        with pytest.raises((ValueError, TypeError), match=problem):
            td.estimate(**(good | changed))
    with pytest.raises(OSError, match="file"):
        td.estimate(**(good | {"store": tmp_path / "file" / "new"}))
    assert sorted(os.listdir(tmp_path)) == ["done", "file", "mine", "other"]
    assert os.listdir(tmp_path / "mine") == ["notes.txt"]
    for counts, size in (
        ((0, 1, 1), SIZE),
        ((1.5, 1, 1), SIZE),
        (COUNTS, (1, 1, 0)),
        ((2**32,) * 3, SIZE),
    ):
        with pytest.raises(ValueError, match=r"number_of_cells|cell_size"):
            td.Grid(counts, size)
    with pytest.raises(ValueError, match="neighborhood: conditioning needs it"):
        td.simulate(GRID, FIELDS, [1], tmp_path / "new", estimator=KRIGING, data_locs=X, data=Z)
    for seeds in ([1.5], [np.nan], [], 5):
        with pytest.raises(ValueError, match=r"seeds: expected .* whole number"):
            td.simulate(GRID, FIELDS, seeds, tmp_path / "new", n_workers=0)
    with pytest.raises(ValueError, match=r"generator: expected .* got a float"):
        td.simulate(GRID, float, [1], tmp_path / "new", n_workers=0)


def test_data_frames_give_arrays_and_name_rows():
    frame = pd.DataFrame(X[:9], columns=["x", "y", "z"], index=[f"s{k}" for k in range(9)])
    frame["cu"], frame["hole"] = [*Z[:8], "0.5"], list("BBBAAACCC")
    xyz = ["x", "y", "z"]
    points, copper, holes = td.from_dataframe(frame, xyz, "cu", holes="hole")
    np.testing.assert_array_equal(points, X[:9])
    assert copper.tolist() == [*Z[:8], 0.5]
    assert holes.tolist() == [1, 1, 1, 0, 0, 0, 2, 2, 2] and holes.dtype == np.int32
    for column, row, cell, problem in (
        ("cu", 3, "n/a", "column 'cu', row s3: expected a number, got 'n/a'"),
        ("cu", 3, np.inf, "column 'cu', row s3: expected a number, got 'inf'"),
        ("cu", 4, None, "'cu': 1 of 9 rows are empty, the first row s4"),
        ("z", 5, None, "column 'z', row s5: expected a coordinate, got nothing"),
        ("hole", 6, None, "column 'hole', row s6: the hole has no name"),
    ):
        bad = frame.astype(object)
        bad.iloc[row, bad.columns.get_loc(column)] = cell
        with pytest.raises(ValueError, match=problem):
            td.from_dataframe(bad, xyz, "cu", holes="hole")
    with pytest.raises(KeyError, match=r"no column 'ni' in the data frame; it has x, y, z, cu"):
        td.from_dataframe(frame, xyz, "ni")
    same = frame.astype(object)
    same.iloc[7, :3] = same.iloc[2, :3]
    same.iloc[0, 3] = None
    with pytest.warns(UserWarning) as told:
        points, copper = td.from_dataframe(same, xyz, "cu", empty="drop")
    assert "left out 1 of 9 rows" in str(told[0].message)
    assert "1 positions hold more than one sample, 2 rows in all, the first rows s2, s7" in str(
        told[1].message
    )
    assert len(points) == len(copper) == 8


def test_datasets_have_true_coordinates():
    for rotation, dims in (
        ((90, 0, 0), [("x",), ("y",), ("z",)]),
        ((0, 0, 0), [("j",), ("i",), ("k",)]),
        ((33, 0, 0), [("i", "j"), ("i", "j"), ("k",)]),
        (TURN, [("i", "j", "k")] * 3),
    ):
        grid = tx.CartesianGrid(
            number_of_cells=(4, 5, 6), cell_size=SIZE, origin=ORIGIN, rotation=rotation
        )
        values = np.arange(120.0)
        chosen = values % 3 == 0
        for given in (td.Grid((4, 5, 6), SIZE, ORIGIN, rotation), grid):
            data = td.to_xarray(given, {"a": values, "b": [values, -values]})
            assert [data[axis].dims for axis in "xyz"] == dims
            at = [data[axis].broadcast_like(data.a).transpose(*data.a.dims) for axis in "xyz"]
            centres = np.stack([np.ravel(one) for one in at], axis=1)
            np.testing.assert_allclose(centres, np.asarray(grid), rtol=1e-12, atol=1e-9)
            np.testing.assert_array_equal(np.ravel(data.a), values)
            assert data.b.dims == ("realisation", *data.a.dims)
        sparse = td.to_xarray(tx.BlockModel(grid, chosen), values[chosen]).estimate
        np.testing.assert_array_equal(np.ravel(sparse), np.where(chosen, values, np.nan))
    with pytest.raises(ValueError, match="expected 120 values"):
        td.to_xarray(grid, values[1:])


JOB = """value = "cu"
hole = "bhid"
nugget = 0.1
search = [90, 60, 30, 40, -20, 10]
max_samples = 12
max_per_hole = 3
origin = [-150, -150, -60]
cells = [12, 10, 6]
size = [50, 44, 40]
structure = [{kind = "spherical", sill = 0.9, ranges = [90, 60, 30], angles = [40, -20, 10]}]
"""


def command(folder, *arguments, code=0):
    line = [sys.executable, "-m", "talvorix_dask", "estimate", *arguments]
    ran = subprocess.run(line, cwd=folder, capture_output=True, text=True, check=False)
    assert ran.returncode == code and "Traceback" not in ran.stderr, ran.stderr
    return ran.stdout + ran.stderr


def test_the_command_line_estimates_a_table_and_names_what_is_wrong(tmp_path):
    rows = [f"H{k // 20},{x!r},{y!r},{z!r},{c!r}" for k, (x, y, z, c) in enumerate(
        np.column_stack([X, Z]).tolist()
    )]  # fmt: skip
    lines = ["bhid,x,y,z,cu", *rows, "", f"{rows[5].rsplit(',', 1)[0]},", rows[7]]
    (tmp_path / "t.csv").write_text("\n".join(lines) + "\n")
    (tmp_path / "job.toml").write_text(JOB)
    good = ["t.csv", "--job", "job.toml"]
    said = command(tmp_path, *good, "--out", "m.zarr", "--workers", "2", "--chunks", "5 5 5")
    assert "left out 1 of 602 rows that are empty in cu, the first line 603" in said
    assert "1 positions hold more than one sample, 2 rows in all, the first lines 9, 604" in said

    grid = tx.CartesianGrid(
        number_of_cells=(12, 10, 6), cell_size=(50, 44, 40), origin=(-125, -128, -40)
    )
    points, values = np.vstack([X, X[7]]), np.append(Z, Z[7])
    holes = np.append(np.arange(600) // 20, 0)
    given = points, values, MODEL, tx.Neighborhood(points, BODY), 12
    expected = tx.compute_ordinary_kriging(grid, *given, dhids=holes, max_neis_by_dhid=3)
    steps = (np.asarray(grid)[:, None] - points) @ np.asarray(BODY.matrix()).T
    near = np.linalg.norm(steps, axis=2).min(axis=1) <= 1
    assert 0.2 < near.mean() < 1
    for name, one in zip(("estimate", "variance"), expected, strict=True):
        found = np.ravel(opened(tmp_path / "m.zarr", name))
        np.testing.assert_array_equal(found, np.where(near, one, np.nan))
    command(tmp_path, *good, "--out", "m.csv")
    table = np.genfromtxt(tmp_path / "m.csv", delimiter=",", names=True)
    assert table.dtype.names == ("x", "y", "z", "estimate", "variance")
    np.testing.assert_allclose(table["estimate"], np.asarray(expected[0])[near], rtol=1e-8)

    (tmp_path / "bad.csv").write_text("\n".join([*lines[:4], "H1,1,2,three,0.4"]))
    (tmp_path / "bad.toml").write_text(JOB + "maxsamples = 3\n")
    for arguments, problem in (
        (["bad.csv", *good[1:], "--out", "n.zarr"], "bad.csv: column 'z', line 5: expected a num"),
        ([*good, "--value", "ni", "--out", "n.zarr"], "t.csv: no column 'ni' for --value; line 1"),
        ([*good, "--out", "m.csv"], "m.csv exists"),
        ([*good, "--out", "m.zarr", "--cells", "9 9 9"], "number_of_cells is [12, 10, 6]"),
        (["t.csv", "--job", "bad.toml", "--out", "n.zarr"], "unknown key 'maxsamples'"),
        ([*good, "--out", "n.zarr", "--search", "1 2"], "search: expected a list of 3 or 6"),
        ([*good, "--out", "n.zarr", "--method", "median"], "method: expected one of ordinary"),
        ([*good, "--out", "n.zarr", "--max-octant", str(2**31)], "max_octant: expected at most"),
    ):
        assert problem in command(tmp_path, *arguments, code=2)
    assert not (tmp_path / "n.zarr").exists()


def test_the_example_agrees_with_a_plain_call(tmp_path):
    script = Path(__file__).resolve().parents[2] / "examples" / "huge_model.py"
    line = [sys.executable, str(script), "--blocks", "9000", "--workers", "0", "--out", tmp_path]
    for said in ("4 chunks in", "4 chunks were in the store already"):
        ran = subprocess.run(line, capture_output=True, text=True, check=True)
        assert said in ran.stdout and "off by 0" in ran.stdout and not ran.stderr
    assert (tmp_path / "huge_model.png").stat().st_size > 10_000


def test_without_the_extra_the_package_imports_and_says_what_is_missing(tmp_path):
    code = """
import sys
for name in ("dask", "distributed", "zarr", "xarray", "tqdm", "pandas"):
    sys.modules[name] = None
import talvorix, talvorix_dask
grid = talvorix_dask.Grid((2, 2, 2), (1, 1, 1))
around = talvorix.Neighborhood([[0, 0, 0]])
for call in (
    lambda: talvorix_dask.to_xarray(grid, range(8)),
    lambda: talvorix_dask.estimate(grid, talvorix.IDW(), around, [[0, 0, 0]], [1.0], "s"),
):
    try:
        call()
    except ImportError as missing:
        print(missing)
"""
    ran = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert ran.stdout.count("talvorix[dask]") == 2
