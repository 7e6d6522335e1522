"""The jobs of validate.py as other packages do them, one function for each job and package.

A job is given in Talvorix's conventions and translated here, where the package has others. Each
translation can be left out (`Problem.untranslated`), so that the page can show what it is for.
"""

import csv
import dataclasses
import math
import subprocess
import tempfile
from pathlib import Path

import numpy as np

HERE = Path(__file__).resolve().parent
PRACTICAL = {"spherical": 1.0, "exponential": 3.0, "gaussian": math.sqrt(3.0)}
# Correlations at distances in practical ranges.
KERNELS = {
    "spherical": lambda u: np.where(u < 1, 1 - 1.5 * u + 0.5 * u**3, 0.0),
    "exponential": lambda u: np.exp(-3 * u),
    "gaussian": lambda u: np.exp(-3 * u**2),
}


@dataclasses.dataclass(frozen=True)
class Structure:
    """A covariance structure: practical ranges, and azimuth, dip and rake in degrees."""

    kind: str
    sill: float
    ranges: tuple
    angles: tuple = (0.0, 0.0, 0.0)

    def axes(self):
        """Return unit vectors along the three ranges as rows, from the definition of angles."""
        azimuth, dip, rake = np.radians(self.angles)
        level = np.array([-np.cos(azimuth), np.sin(azimuth), 0.0])
        first = np.array(
            [np.cos(dip) * np.sin(azimuth), np.cos(dip) * np.cos(azimuth), np.sin(dip)]
        )
        upright = np.cross(first, level)
        second = np.cos(rake) * level + np.sin(rake) * upright
        return np.array([first, second, np.cross(first, second)])


@dataclasses.dataclass(frozen=True)
class Problem:
    """Data, a model, and where it is to be kriged; `mean` None stands for ordinary kriging.

    `neighbors` 0 stands for all data and `radius` 0 for no limit. `search` is the ellipsoid by
    whose metric neighbours are near, None for plain distance. `untranslated` names the conventions
    to hand over as they are: "ranges", "angles" or "defaults".
    """

    points: np.ndarray
    values: np.ndarray
    targets: np.ndarray
    nugget: float
    structures: tuple
    mean: float | None = None
    neighbors: int = 0
    radius: float = 0.0
    search: Structure | None = None
    untranslated: tuple = ()


def alike(one, other):
    """Tell whether the ellipsoids of two structures have the same shape and orientation."""
    shapes = (np.divide(s.ranges, s.ranges[0]) for s in (one, other))
    return one.angles == other.angles and np.allclose(*shapes, rtol=1e-12, atol=0)


class CannotDo(Exception):
    """The package has no such thing; the message says what."""


def run_r(task, settings, structures=(), **arrays):
    """Run gstat.R on a problem written to a folder and return the doubles it leaves there."""
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        settings = {"task": task, **settings}
        for file, records in (("settings.csv", [settings]), ("structures.csv", structures)):
            with open(folder / file, "w", newline="") as stream:
                columns = records[0] if records else {"kind": None}
                writer = csv.DictWriter(stream, columns)
                writer.writeheader()
                writer.writerows(records)
        for key, array in arrays.items():
            np.ascontiguousarray(array, dtype=float).tofile(folder / f"{key}.bin")
        command = ["Rscript", str(HERE / "gstat.R"), name]
        answer = subprocess.run(command, capture_output=True, text=True, check=False)
        if answer.returncode or not (folder / "result.bin").exists():
            lines = (answer.stderr or answer.stdout).strip().splitlines()
            raise RuntimeError(f"gstat failed: {lines[-1] if lines else answer.returncode}")
        return np.fromfile(folder / "result.bin")


# gstat --------------------------------------------------------------------------------------------


def gstat_angles(structure):
    """Return azimuth, dip and rake, which are gstat's p, q and r, from 0 on."""
    return [angle % 360 for angle in structure.angles]


def gstat_problem(problem):
    """Return the settings, structures and arrays of a problem for gstat.R."""
    settings = {
        "n_points": len(problem.points),
        "n_targets": len(problem.targets),
        "nugget": problem.nugget,
        "neighbors": problem.neighbors,
        "radius": problem.radius,
        "simple": int(problem.mean is not None),
        "mean": problem.mean or 0.0,
    }
    problem, structures = mapped(problem), []
    for s in problem.structures:
        factor = 1.0 if "ranges" in problem.untranslated else PRACTICAL[s.kind]
        r1, r2, r3 = s.ranges
        p, q, r = gstat_angles(s)
        names = ("kind", "sill", "range", "p", "q", "r", "s", "t")
        row = (s.kind[:3].capitalize(), s.sill, r1 / factor, p, q, r, r2 / r1, r3 / r1)
        structures.append(dict(zip(names, row, strict=True)))
    arrays = {"points": problem.points, "values": problem.values, "targets": problem.targets}
    return settings, structures, arrays


def mapped(problem):
    """Return a problem in coordinates where its search is by plain distance.

    The structures' ellipsoids have to be like that of the search: they become spheres.
    """
    if problem.search is None:
        return problem
    if any(not alike(s, problem.search) for s in problem.structures):
        raise CannotDo("searches by plain distance")
    matrix = (
        problem.search.axes() / np.divide(problem.search.ranges, problem.search.ranges[0])[:, None]
    )
    spheres = [
        dataclasses.replace(s, ranges=(s.ranges[0],) * 3, angles=(0.0, 0.0, 0.0))
        for s in problem.structures
    ]
    return dataclasses.replace(
        problem,
        points=problem.points @ matrix.T,
        targets=problem.targets @ matrix.T,
        structures=tuple(spheres),
        search=None,
    )


def gstat_krige(problem):
    """Krige by predict."""
    settings, structures, arrays = gstat_problem(problem)
    return np.split(run_r("krige", settings, structures, **arrays), 2)


def gstat_leave_one_out(problem):
    """Leave one out by krige.cv; its residual is value minus estimate."""
    settings, structures, arrays = gstat_problem(problem)
    return -run_r("validate", settings, structures, **arrays)


def turned_upright(points, direction):
    """Return points turned so that a direction stands upright."""
    return points @ np.vstack([np.linalg.svd(direction[None])[2][1:], direction]).T


def entries(lags, gamma, pairs):
    """Return semivariances and pairs as arrays, NaN where there are no pairs."""
    pairs = np.rint(pairs).astype(int)
    return np.where(pairs > 0, gamma, np.nan)[: len(lags)], pairs[: len(lags)]


def gstat_variogram(points, values, direction, angle_tol, lags):
    """Estimate by variogram; only around the vertical its two tolerances make a cone."""
    upright = turned_upright(points, direction)
    settings = {"n_points": len(points), "n_lags": len(lags), "angle_tol": angle_tol}
    found = run_r("variogram", settings, points=upright, values=values, lags=lags)
    distances, gamma, pairs = np.reshape(found, (3, -1))
    # Lags without pairs are left out; the mean distance tells which one an entry is.
    places = np.searchsorted(lags, distances)
    all_gamma, all_pairs = np.zeros(len(lags)), np.zeros(len(lags))
    all_gamma[places], all_pairs[places] = gamma, pairs
    return entries(lags, all_gamma, all_pairs)


def gstat_simulate(points, structure, count):
    """Simulate by predict with nsim, sequentially from all points visited before."""
    none = np.empty((0, 3))
    problem = Problem(none, np.empty(0), points, 0.0, (structure,), mean=0.0)
    settings, structures, _ = gstat_problem(problem)
    settings["count"] = count
    return run_r("simulate", settings, structures, targets=points).reshape(count, len(points))


# GSTools ------------------------------------------------------------------------------------------


def gstools_angles(structure):
    """Return the Tait-Bryan angles of GSTools in degrees: about z, then y, then x."""
    from scipy.spatial.transform import Rotation

    return Rotation.from_matrix(structure.axes().T).as_euler("zyx", degrees=True)


def gstools_model(problem):
    """Make the model; sums of structures need one shape and orientation."""
    import gstools

    if any(not alike(s, problem.structures[0]) for s in problem.structures):
        raise CannotDo("structures of a sum share one shape and orientation")
    models = []
    for s in problem.structures:
        kept = "ranges" in problem.untranslated
        degrees = s.angles if "angles" in problem.untranslated else gstools_angles(s)
        models.append(
            getattr(gstools, s.kind.capitalize())(
                dim=3,
                var=s.sill,
                len_scale=s.ranges[0] / (1.0 if kept else PRACTICAL[s.kind]),
                anis=np.divide(s.ranges[1:], s.ranges[0]),
                angles=np.radians(degrees),
                nugget=problem.nugget if len(problem.structures) == 1 else 0.0,
                **({} if kept else {"rescale": 1.0}),
            )
        )
    return models[0] if len(models) == 1 else gstools.SumModel(*models, nugget=problem.nugget)


def gstools_krige(problem):
    """Krige by krige.Ordinary or krige.Simple, with exact data unless left at the defaults."""
    import gstools

    if problem.neighbors or problem.radius:
        raise CannotDo("krigs from all data only")
    exact = "defaults" not in problem.untranslated
    data = gstools_model(problem), tuple(problem.points.T), problem.values
    if problem.mean is None:
        kriging = gstools.krige.Ordinary(*data, exact=exact)
    else:
        kriging = gstools.krige.Simple(*data, mean=problem.mean, exact=exact)
    return kriging(tuple(problem.targets.T), return_var=True)


def by_leaving_out(krige, problem):
    """Leave one out by kriging each datum from the others."""
    residuals = []
    for i, (point, value) in enumerate(zip(problem.points, problem.values, strict=True)):
        rest = np.arange(len(problem.points)) != i
        estimate, _ = krige(
            dataclasses.replace(
                problem,
                points=problem.points[rest],
                values=problem.values[rest],
                targets=point[None],
            )
        )
        residuals.append(estimate[0] - value)
    return np.array(residuals)


def gstools_leave_one_out(problem):
    """Leave one out in a loop: there is no function for it."""
    return by_leaving_out(gstools_krige, problem)


def gstools_variogram(points, values, direction, angle_tol, lags):
    """Estimate by vario_estimate."""
    import gstools

    _, gamma, pairs = gstools.vario_estimate(
        tuple(points.T),
        values,
        np.append(0.0, lags),
        direction=[direction],
        angles_tol=math.radians(angle_tol),
        return_counts=True,
    )
    return entries(lags, gamma, pairs)


def gstools_simulate(points, structure, count):
    """Simulate by SRF, a sum of random modes."""
    import gstools

    nothing = np.empty((0, 3))
    model = gstools_model(Problem(nothing, np.empty(0), nothing, 0.0, (structure,)))
    field = gstools.SRF(model, mode_no=600)
    return np.array([field(tuple(points.T), seed=1000 + k) for k in range(count)])


# PyKrige ------------------------------------------------------------------------------------------


def pykrige_angles(structure):
    """Return PyKrige's angles about x, y and z in degrees."""
    from scipy.spatial.transform import Rotation

    return -Rotation.from_matrix(structure.axes()).as_euler("xyz", degrees=True)


def four_sevenths(problem, structure):
    """Return the factor of ranges where the gaussian model is exp(-(h / (4/7 r))^2).

    (7/4)^2 is 3.0625, where a practical range has 3.
    """
    if structure.kind != "gaussian" or "ranges" in problem.untranslated:
        return 1.0
    return 1.75 / PRACTICAL["gaussian"]


def pykrige_model(problem):
    """Return the arguments of a model; one of several structures is a function of one's own."""
    if len(problem.structures) == 1:
        (s,) = problem.structures
        reach = s.ranges[0] * four_sevenths(problem, s)
        parameters = {"psill": s.sill, "range": reach, "nugget": problem.nugget}
        return {"variogram_model": s.kind, "variogram_parameters": parameters}

    def variogram(_, h):
        gamma = np.where(h > 0.0, problem.nugget, 0.0)
        for s in problem.structures:
            gamma += s.sill * (1.0 - KERNELS[s.kind](h / s.ranges[0]))
        return gamma

    return {
        "variogram_model": "custom",
        "variogram_parameters": [],
        "variogram_function": variogram,
    }


def pykrige_krige(problem):
    """Krige by OrdinaryKriging3D."""
    import pykrige.ok3d

    if problem.mean is not None:
        raise CannotDo("has no simple kriging in three dimensions")
    if problem.radius:
        raise CannotDo("has no search radius")
    s = problem.structures[0]
    if any(not alike(s, other) for other in problem.structures):
        raise CannotDo("has one shape and orientation for all structures")
    if problem.neighbors and not (problem.search and alike(s, problem.search)):
        raise CannotDo("searches in the metric of its model")
    # Its constructor kriges every datum from those before it, for diagnostics not used here.
    pykrige.ok3d._find_statistics = lambda *_: (np.ones(2), np.ones(2), np.ones(2))
    degrees = s.angles if "angles" in problem.untranslated else pykrige_angles(s)
    about_x, about_y, about_z = degrees
    kriging = pykrige.ok3d.OrdinaryKriging3D(
        *problem.points.T,
        problem.values,
        **pykrige_model(problem),
        anisotropy_scaling_y=s.ranges[0] / s.ranges[1],
        anisotropy_scaling_z=s.ranges[0] / s.ranges[2],
        anisotropy_angle_x=about_x,
        anisotropy_angle_y=about_y,
        anisotropy_angle_z=about_z,
    )
    moving = {"n_closest_points": problem.neighbors, "backend": "loop"} if problem.neighbors else {}
    estimates, variances = kriging.execute("points", *problem.targets.T, **moving)
    return np.asarray(estimates), np.asarray(variances)


def pykrige_leave_one_out(problem):
    """Leave one out in a loop: there is no function for it."""
    return by_leaving_out(pykrige_krige, problem)


# krigekit -----------------------------------------------------------------------------------------


def krigekit_angles(structure):
    """Return azimuth, dip and plunge: the latter two have the opposite sense."""
    azimuth, dip, rake = structure.angles
    return azimuth, -dip, -rake


def krigekit_kriging(problem, **options):
    """Set the data and the model, and the search of a problem."""
    import krigekit

    simple = problem.mean is not None
    options = {"anisotropic_search": problem.search is not None} | options
    kriging = krigekit.Kriging(ndim=3, nvar=1, unbias=0 if simple else 1, **options)
    kriging.set_obs(ivar=1, coord=problem.points, value=problem.values, sk_mean=problem.mean or 0.0)
    if options.get("cross_validation"):
        kriging.set_grid_cv()
    else:
        kriging.set_grid(coord=problem.targets)
    kriging.set_vgm(1, 1, vtype="nug", nugget=problem.nugget, sill=0.0, a_major=1.0)
    for s in problem.structures:
        azimuth, dip, plunge = s.angles if "angles" in problem.untranslated else krigekit_angles(s)
        r1, r2, r3 = np.multiply(s.ranges, four_sevenths(problem, s))
        kriging.set_vgm(
            1,
            1,
            vtype=s.kind[:3],
            sill=s.sill,
            a_major=r1,
            a_minor1=r2,
            a_minor2=r3,
            azimuth=azimuth,
            dip=dip,
            plunge=plunge,
        )
    search = {"nmax": problem.neighbors} if problem.neighbors else {}
    if problem.radius:
        search["maxdist"] = problem.radius
    if problem.search is not None:
        r1, r2, r3 = problem.search.ranges
        azimuth, dip, plunge = krigekit_angles(problem.search)
        search |= {"anis1": r2 / r1, "anis2": r3 / r1}
        search |= {"azimuth": azimuth, "dip": dip, "plunge": plunge}
    kriging.set_search(ivar=1, **search)
    kriging.solve(nthread=1)
    return kriging.get_results(copy=True)


def krigekit_krige(problem):
    """Krige by Kriging."""
    return krigekit_kriging(problem)


def krigekit_leave_one_out(problem):
    """Leave one out by Kriging with cross_validation."""
    estimates, _ = krigekit_kriging(problem, cross_validation=True)
    return np.ravel(estimates) - problem.values


def krigekit_variogram(points, values, direction, angle_tol, lags):
    """Average raw_vgm's cloud of pairs by avg_vgm: directional_vgm has other bins."""
    from krigekit.variogram_empirical import avg_vgm, raw_vgm

    cloud = raw_vgm(points, values, cutoff=lags[-1], verbose=False, n_jobs=1)
    along = np.abs(cloud[["d0", "d1", "d2"]].to_numpy() @ direction)
    cloud = cloud[along >= math.cos(math.radians(angle_tol)) * cloud["distance"]]
    means = avg_vgm(cloud, h_width=np.append(0.0, lags))
    gamma, pairs = np.zeros(len(lags)), np.zeros(len(lags))
    places = np.searchsorted(lags, means[("distance", "mean")].to_numpy())
    gamma[places] = means[("variogram", "mean")]
    pairs[places] = means[("variogram", "count")]
    return entries(lags, gamma, pairs)


# gstlearn -----------------------------------------------------------------------------------------


def gstlearn_rotation(structure):
    """Return the rotation of a structure."""
    import gstlearn as gl

    matrix = gl.MatrixSquare(3)
    for i, row in enumerate(structure.axes()):
        for j, x in enumerate(row):
            matrix.setValue(j, i, x)
    rotation = gl.Rotation(3)
    rotation.setMatrixDirect(matrix)
    return rotation


def gstlearn_angles(structure):
    """Return gstlearn's angles in degrees."""
    return np.array(gstlearn_rotation(structure).getAngles())


def gstlearn_table(locations, values=None):
    """Return locations, and values if given, as gstlearn keeps them."""
    import gstlearn as gl

    gl.defineDefaultSpace(gl.ESpaceType.RN, 3)
    table = gl.Db()
    for name, column in zip("xyz", locations.T, strict=True):
        table[name] = np.ascontiguousarray(column)
    table.setLocators(["x", "y", "z"], gl.ELoc.X)
    if values is not None:
        table["v"] = values
        table.setLocator("v", gl.ELoc.Z)
    return table


def gstlearn_model(problem):
    """Make the model."""
    import gstlearn as gl

    gl.defineDefaultSpace(gl.ESpaceType.RN, 3)
    model = gl.Model.createFromParam(gl.ECov.NUGGET, 0.0, problem.nugget)
    for s in problem.structures:
        kept = "ranges" in problem.untranslated
        # As scales unless untranslated: its practical range has another factor than 3.
        factor = 1.0 if kept else PRACTICAL[s.kind]
        angles = s.angles if "angles" in problem.untranslated else gstlearn_angles(s)
        model.addCovFromParam(
            getattr(gl.ECov, s.kind.upper()),
            0.0,
            s.sill,
            1.0,
            np.divide(s.ranges, factor),
            gl.MatrixSymmetric(),
            angles,
            kept,
        )
    if problem.mean is None:
        model.setDriftIRF(0)
    else:
        model.setMeans([problem.mean])
    return model


def gstlearn_neighborhood(problem):
    """Make the neighbourhood."""
    import gstlearn as gl

    if not problem.neighbors and not problem.radius:
        return gl.NeighUnique.create()
    most = problem.neighbors or len(problem.points)
    radius = problem.radius or gl.TEST
    # Without the three coefficients distances would leave the third coordinate out.
    shape, angles = gl.VectorDouble([1.0, 1.0, 1.0]), gl.VectorDouble()
    if problem.search is not None:
        r = problem.search.ranges
        shape = gl.VectorDouble([1.0, r[1] / r[0], r[2] / r[0]])
        angles = gl.VectorDouble(gstlearn_angles(problem.search))
    # The tree of balls, which is quicker, measures plain distance whatever the shape.
    balls = problem.search is None or "defaults" in problem.untranslated
    return gl.NeighMoving.create(False, most, radius, 1, 1, most, shape, angles, balls, 10)


def gstlearn_krige(problem):
    """Krige by kriging."""
    import gstlearn as gl

    source = gstlearn_table(problem.points, problem.values)
    target = gstlearn_table(problem.targets)
    if gl.kriging(source, target, gstlearn_model(problem), gstlearn_neighborhood(problem)):
        raise RuntimeError("gstlearn refused the problem")
    return target["*estim"], target["*stdev"] ** 2


def gstlearn_leave_one_out(problem):
    """Leave one out by xvalid; with its flags at -1 it gives estimates."""
    import gstlearn as gl

    table = gstlearn_table(problem.points, problem.values)
    model, neighborhood = gstlearn_model(problem), gstlearn_neighborhood(problem)
    if gl.xvalid(table, model, neighborhood, 0, -1, -1, 0):
        raise RuntimeError("gstlearn refused the problem")
    return table["*estim"] - problem.values


def gstlearn_variogram(points, values, direction, angle_tol, lags):
    """Estimate by Vario with breaks for lags."""
    import gstlearn as gl

    table = gstlearn_table(points, values)
    breaks = gl.VectorDouble(np.append(0.0, lags))
    along = gl.VectorDouble(direction)
    direction = gl.DirParam(
        len(lags), 1.0, 0.5, angle_tol, 0, 0, gl.TEST, gl.TEST, 0.0, breaks, along, gl.TEST
    )
    parameters = gl.VarioParam()
    parameters.addDir(direction)
    variogram = gl.Vario(parameters)
    variogram.compute(table, gl.ECalcVario.VARIOGRAM)
    return entries(lags, np.array(variogram.getAllGg()), np.array(variogram.getAllSw()))


def gstlearn_map(values):
    """Return semivariances and pairs at all lags of a lattice, by db_vmap."""
    import gstlearn as gl

    gl.defineDefaultSpace(gl.ESpaceType.RN, 3)
    grid = gl.DbGrid.create(list(values.shape), [1.0, 1.0, 1.0], [0.0, 0.0, 0.0])
    # The first index runs fastest there.
    grid["v"] = np.ravel(values, order="F")
    grid.setLocator("v", gl.ELoc.Z)
    reach = [n // 2 for n in values.shape]
    found = gl.db_vmap(grid, nxx=reach)
    shape = [2 * n + 1 for n in reach]
    gamma, pairs = (np.reshape(found[f"*.{name}"], shape, order="F") for name in ("Var", "Nb"))
    return gamma, pairs


def gstlearn_simulate(points, structure, count):
    """Simulate by simtub, turning bands."""
    import gstlearn as gl

    table = gstlearn_table(points)
    model = gstlearn_model(Problem(points, points[:, 0], points, 0.0, (structure,), mean=0.0))
    if gl.simtub(None, table, model, None, count, 4321, 600):
        raise RuntimeError("gstlearn refused the problem")
    names = [name for name in table.getAllNames() if name not in ("x", "y", "z")]
    return np.array([table[name] for name in names])


NAMES = ("gstat", "GSTools", "PyKrige", "krigekit", "gstlearn")


def function_of(package, job):
    """Return the function that does a job with a package, None if it has none."""
    return globals().get(f"{package.lower()}_{job}")
