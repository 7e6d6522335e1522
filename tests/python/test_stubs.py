"""The type stubs against the module, against what its calls accept, and against type checkers."""

import importlib.metadata
import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
TOOL = ROOT / "tools" / "make_stubs.py"
COMMITTED = ROOT / "src" / "module" / "talvorix.pyi"

BASE = """\
import numpy as np
import talvorix
from numpy.typing import NDArray
from talvorix import Covariance, Ellipsoid, Kernel, Neighborhood

table = np.random.default_rng(1).random((5, 3))
triples = [(0, 0, 1), (1.5, 2, 3), (4, 5, 6)]
ellipsoid = Ellipsoid(10, 5, np.float32(2), 0, 0, 0)
around = Neighborhood(table, ellipsoid)
nugget = Covariance.nugget(0.5)
model = [Covariance.spherical(0.5, ellipsoid), nugget]
x = talvorix.jet.ast.Variable("x", 1)
"""
RIGHT = """\
Ellipsoid(ellipsoid.matrix())
Ellipsoid([[1, 0, 0], [0, 1, 0], [0, 0, 1]])
Ellipsoid((3, 2, 1), np.zeros((3, 1), dtype=np.float32))
Ellipsoid(ellipsoid.info())
for locations in (Neighborhood(list(table)), Neighborhood(triples), Neighborhood(table > 0.5)):
    found: list[int] = locations.find_neighbors((0, 0, 0), 2)
    found += locations.find_neighbors(talvorix.Direction(30, 10), max_radius=4.0)
    found += locations.find_neighbors(table[0], np.int64(2))
values = np.arange(5)
simple = talvorix.SimpleKriging(tuple(model), np.mean(values), 4, dhids=[0, 0, 1, 1, 1])
estimates: list[float] = simple(triples, around, table, values)
estimates += simple([np.zeros(3), np.zeros((3, 1))], around, list(table), [1, 2.5, 3, 4, 5])
estimates, variances = talvorix.compute_ordinary_kriging(
    triples, table, values, model, around, np.int64(3), dhids=values, max_radius=2
)
chosen = [talvorix.IDW(), talvorix.IDW(np.float32(2), max_neighbors=5), talvorix.IDW(model, 2)]
mapped: NDArray[np.float64] = ellipsoid.forward((1, 2, 3))
mapped = ellipsoid.forward(mapped)
each: list[NDArray[np.float64]] = ellipsoid.backward(triples)
each = ellipsoid.forward(each)
each = ellipsoid.forward(table)
each = ellipsoid.forward(table, 1) + ellipsoid.forward(locs=table)
half: float = Kernel.spherical(0.5) + model[0](mapped) + nugget.sill
text: str = nugget.type + str(ellipsoid)
models = talvorix.generate_covariances(ellipsoid, 2, Kernel.gaussian, 3, 7, 10, 0.5, 1, 0.1, 1)
estimates += talvorix.covariance_computer(models[0]).simulate(triples, n_threads=1)
grid = talvorix.CartesianGrid((10, 10, 10.0), (2, 2, 3), origin=table[0])
grids = [talvorix.CartesianGrid(mapped, table[0]), talvorix.CartesianGrid((1, 1, 1), values[:3])]
blocks = talvorix.BlockModel(grid, np.asarray(grid)[:, 0] > 1)
blocks = talvorix.BlockModel(base_grid=grid, mask=[True] * len(grid))
estimates += simple(blocks, around, table, values)
found += Neighborhood(grid).find_neighbors(each[0], 2)
nx, ny, nz = grid.number_of_cells()
i, j, k = blocks.ijk(np.int64(1))
box = talvorix.BoundingBox(talvorix.extreme_points(grid, n_threads=1))
each, holes = talvorix.create_random_drillholes(box, 2, 1)
holes = talvorix.merge_clusters(each, holes, 5) + talvorix.find_clusters(table, 2)
normal = talvorix.gaussian_distribution()
estimates += normal.simulate(3) + normal.simulate(N=3, n_threads=1) + normal.cdf(5, seed=-1)[1]
scores = talvorix.NScore(talvorix.data_distribution(values, [1, 2, 1, 1, 1]), normal, n=1000)
half = scores.forward(0.5) + talvorix.CDF(normal, 100).prob(np.float32(1)) + normal(talvorix.RNG(1))
estimates += scores.backward(scores.forward(values))
estimates += talvorix.exponential_distribution(2).simulate(1)
each, estimates, holes = talvorix.compute_exp_variogram(table, values).get_variogram(mapped)
each, estimates, holes = talvorix.compute_exp_variogram(table, values).get_variogram(90, dip=0)
half += talvorix.variogram_computer(model, 2)(mapped)
folds = talvorix.create_folds(table, values, 1, np.int64(3), n_centers=2)
errors: list[list[float]] = talvorix.kfold_cross_validation_using_ok(table, values, model, 2)
measure = talvorix.CovarianceErrorFunction.IDW([*folds, (triples, [1, 2.5, 3])], 2)
half += measure(model) + talvorix.compute_covariance_error_idw(
    tuple(model), [(table, values)], 2, -1, 2.5, 2, np.int64(3), 2, regularization_const=0
)
measure = talvorix.CovarianceErrorFunction.Custom(lambda covs, n: covs[0].sill + n)
model, half = talvorix.optimize_covariance(models, measure, 3, 3, debug=False)
settings = talvorix.EllipsoidOptimizationParameters(n_rays=9, max_partitions_size=20, tol=1)
settings.max_nei_size, settings.max_partition_size = 8, settings.max_partition_size + 5
ellipsoid, half = talvorix.optimize_ellipsoid(table, values, Kernel.spherical, 0.1, 1, settings)
fields = [talvorix.FIM(triples, model, np.int64(3), 4, 5, 6), talvorix.TBSIM(table, nugget, -1)]
field = talvorix.SimulatorGenerator.Pool(fields)(2)
factory = talvorix.SimulatorFactory.TBSIM(table, n=9)
estimates += talvorix.simulate(simple, triples, around, table, values, factory(tuple(model), 1))
cost = talvorix.jet.ast.Scalar([x], (x - np.float32(1)) * talvorix.algebra.Jet(2) + 2 * x)
best, half = talvorix.ceres.solve([cost], [x], {"x": (0, np.int64(1))}, validation_cb=print)
half += talvorix.ast.Variable("v", [1, 2]).vec() * values + talvorix.algebra.Real(2) / 3
classes = talvorix.transiogram.Transiogram([[lambda u, v: (u - v).norm()]])
half += classes(0, np.int64(0), triples[0], values) + classes(values, values)[0][0]
holes += talvorix.markov_chain.simulation(table, [], [], classes, ellipsoid, knn=np.int64(3))
more: talvorix.algebra.JetVector = 2 * talvorix.algebra.JetVector(values) - [best["x"]] * 5
"""
WRONG = """\
Kernel()
Kernel(0.5)
Covariance()
talvorix.SpatialFunction(lambda lag: 1.0)
nugget.sill = 2
Ellipsoid(1, 2, 3)
Neighborhood((1, 2, 3))
around.find_neighbors((0, 0, 0), "4")
talvorix.IDW()(triples, around, table, "12345")
talvorix.IDW()(triples, around, table, np.float64(1))
talvorix.IDW()(triples, around, table, [np.zeros(3)] * 5)
talvorix.IDW(dhids=[0.5])
talvorix.IDW(dhids=np.zeros(5))
talvorix.IDW(max_neighbors=2.5)
talvorix.SimpleKriging(nugget, 0, 4)
talvorix.covariance_computer([Kernel.spherical])
ellipsoid.forward(triples).shape
ellipsoid.forward((1, 2, 3)).append
talvorix.Locations
talvorix.CartesianGrid(number_of_cells=(1.5, 1, 1), cell_size=(1, 1, 1))
talvorix.BlockModel(talvorix.CartesianGrid((1, 1, 1), (1, 1, 5)), table[:, 0])
talvorix.Distribution()
talvorix.NScore(talvorix.gaussian_distribution(), [1, 2, 3])
talvorix.gaussian_distribution().simulate(3.5)
talvorix.compute_exp_variogram(table, table[:, 0]).lags = []
talvorix.create_folds(table, table[:, 0], 1, 3.5, 2)
talvorix.kfold_cross_validation_using_sk(table, table[:, 0], nugget, 2)
talvorix.CovarianceErrorFunction(max)
talvorix.CovarianceErrorFunction.IDW([table], 2)
talvorix.CovarianceErrorFunction.Custom(3)
talvorix.optimize_covariance([model], max)
talvorix.EllipsoidOptimizationParameters(max_partition_size=20)
talvorix.EllipsoidOptimizationParameters().n_rays = 2.5
talvorix.TBSIM(table, model, 1, 2.5)
talvorix.SimulatorFactory.TBSIM(table)(nugget, 1)
talvorix.SimulatorGenerator.Pool([max])
1 - x
x + None
talvorix.ceres.solve([], [talvorix.ast.Variable("x", 1)])
talvorix.transiogram.Transiogram([[max]])(0.5, [1], [1])
talvorix.markov_chain.simulation(table, [], [], [[max]], ellipsoid)
talvorix.markov_chain.jet.simulation(table, [], [], talvorix.transiogram.Transiogram([]), ellipsoid)
talvorix.jet.ast.Kernel()
"""


def run(*arguments, folder=None):
    command = [sys.executable, *map(str, arguments)]
    return subprocess.run(command, cwd=folder, capture_output=True, text=True, timeout=300)


def test_the_stubs_kept_and_installed_are_those_of_the_module(tmp_path):
    done = run(TOOL, "--check")
    assert done.returncode == 0, done.stdout + done.stderr
    distribution = importlib.metadata.distribution("talvorix")
    for name in ("talvorix.pyi", "talvorix-stubs/__init__.pyi"):
        assert distribution.locate_file(name).read_text() == COMMITTED.read_text(), name
    folder = COMMITTED.with_suffix("")
    for path in folder.rglob("*.pyi"):
        installed = distribution.locate_file("talvorix-stubs") / path.relative_to(folder)
        assert installed.read_text() == path.read_text(), path
    assert distribution.locate_file("talvorix-stubs/py.typed").exists()

    changed = COMMITTED.read_text().replace("def nugget(sill:", "def nugget(still:")
    (tmp_path / "talvorix.pyi").write_text(changed)
    (tmp_path / "talvorix").mkdir()
    (tmp_path / "talvorix" / "gone.pyi").touch()
    done = run(TOOL, "--check", "--folder", tmp_path)
    assert done.returncode == 1
    assert re.search(r"^-.*still:.*\n\+.*sill:", done.stdout, re.MULTILINE)
    assert "gone.pyi" in done.stdout


def test_every_name_of_the_module_is_in_the_stubs_and_the_other_way_round(tmp_path):
    done = run("-m", "mypy.stubtest", "--concise", "talvorix", folder=tmp_path)
    # The type of all classes that pybind11 binds is not for users.
    faults = [line for line in done.stdout.splitlines() if "metaclass differs" not in line]
    assert not faults and not done.stderr, done.stdout + done.stderr


def test_what_the_types_say_is_what_the_calls_accept(tmp_path):
    (tmp_path / "right.py").write_text(BASE + RIGHT)
    (tmp_path / "wrong.py").write_text(BASE + WRONG)
    done = run("-m", "mypy", "--strict", "right.py", "wrong.py", folder=tmp_path)
    refused = re.findall(r"^(\w+)\.py:(\d+): error", done.stdout, re.MULTILINE)
    first = len(BASE.splitlines()) + 1
    lines = range(first, first + len(WRONG.splitlines()))
    assert [("wrong", str(line)) for line in lines] == refused, done.stdout + done.stderr

    names = {}
    exec(BASE + RIGHT, names)
    for line in WRONG.splitlines():
        with pytest.raises((TypeError, AttributeError)):
            exec(line, names)
