"""Ordinary kriging with one of the other packages: python peers.py PACKAGE FOLDER.

kriging.py writes the problem into the folder and starts this file in a process of its own, so
that each package brings its own threads and libraries and none disturbs the others. Locations
stand in the space where the search ellipsoid is a sphere: every package searches isotropically
there, and the structures' ellipsoids are expressed in it.
"""

import csv
import sys
import time
from pathlib import Path

import numpy as np


def read_problem(folder):
    """Return the settings, the structures, and the points, values and targets of a problem."""

    def rows(name):
        with open(folder / name, newline="") as file:
            return [
                {key: text if key == "kind" else float(text) for key, text in row.items()}
                for row in csv.DictReader(file)
            ]

    def array(name):
        return np.fromfile(folder / name).reshape(-1, 3)

    (settings,) = rows("settings.csv")
    values = np.fromfile(folder / "values.bin")
    return settings, rows("structures.csv"), array("points.bin"), values, array("targets.bin")


def krigekit(settings, structures, points, values, targets):
    """Krige with krigekit; its sectors are octants, each filled on its own."""
    import krigekit

    kriging = krigekit.Kriging(ndim=3, nvar=1)
    kriging.set_obs(ivar=1, coord=points, value=values)
    kriging.set_grid(coord=targets)
    kriging.set_vgm(1, 1, vtype="nug", nugget=settings["nugget"], sill=0.0, a_major=1.0)
    for s in structures:
        kriging.set_vgm(
            1,
            1,
            vtype=s["kind"][:3],
            sill=s["sill"],
            a_major=s["r1"],
            a_minor1=s["r2"],
            a_minor2=s["r3"],
            azimuth=s["azimuth"],
            dip=-s["dip"],
            plunge=-s["turn"],
        )
    octant = int(settings["octant"])
    kriging.set_search(ivar=1, nmax=octant or int(settings["neighbors"]), sector_search=octant > 0)
    start = time.perf_counter()
    kriging.solve(nthread=1)
    estimates, variances = kriging.get_results()
    return time.perf_counter() - start, estimates, variances


def gstlearn(settings, structures, points, values, targets):
    """Krige with gstlearn; its sectors are eight slices around the third axis."""
    import gstlearn as gl

    gl.defineDefaultSpace(gl.ESpaceType.RN, 3)

    def base(locations):
        db = gl.Db()
        for name, column in zip("xyz", locations.T, strict=True):
            db[name] = np.ascontiguousarray(column)
        db.setLocators(["x", "y", "z"], gl.ELoc.X)
        return db

    source, destination = base(points), base(targets)
    source["v"] = values
    source.setLocator("v", gl.ELoc.Z)
    model = gl.Model.createFromParam(gl.ECov.NUGGET, 0.0, settings["nugget"])
    for s in structures:
        exponential = s["kind"] == "exponential"
        # Scales instead of ranges: the practical range has another factor than 3 there.
        scale = np.array([s["r1"], s["r2"], s["r3"]]) / (3.0 if exponential else 1.0)
        axes = np.array([s[f"a{i}{j}"] for i in range(3) for j in range(3)]).reshape(3, 3)
        matrix = gl.MatrixSquare(3)
        for i in range(3):
            for j in range(3):
                matrix.setValue(i, j, axes[j, i])
        rotation = gl.Rotation(3)
        rotation.setMatrixDirect(matrix)
        model.addCovFromParam(
            gl.ECov.EXPONENTIAL if exponential else gl.ECov.SPHERICAL,
            0.0,
            s["sill"],
            1.0,
            scale,
            gl.MatrixSymmetric(),
            rotation.getAngles(),
            False,
        )
    model.setDriftIRF(0)
    k, octant = int(settings["neighbors"]), int(settings["octant"])
    # Without the three coefficients distances would leave the third coordinate out.
    isotropic = gl.VectorDouble([1.0, 1.0, 1.0])
    sectors, per_sector = (8, octant) if octant else (1, k)
    neighborhood = gl.NeighMoving.create(
        False, k, gl.TEST, 1, sectors, per_sector, isotropic, gl.VectorDouble(), True, 10
    )
    start = time.perf_counter()
    failed = gl.kriging(source, destination, model, neighborhood)
    seconds = time.perf_counter() - start
    if failed:
        raise RuntimeError("gstlearn refused the problem")
    return seconds, destination["*estim"], destination["*stdev"] ** 2


def pykrige(settings, structures, points, values, targets):
    """Krige with PyKrige, which knows one distance for all structures and no sectors."""
    import pykrige.core
    import pykrige.ok3d

    def variogram(_, h):
        gamma = np.where(h > 0.0, settings["nugget"], 0.0)
        for s in structures:
            u = h / s["r1"]
            if s["kind"] == "exponential":
                gamma += s["sill"] * (1.0 - np.exp(-3.0 * u))
            else:
                gamma += s["sill"] * np.where(u < 1.0, 1.5 * u - 0.5 * u**3, 1.0)
        return gamma

    # Its constructor kriges every point from all before it, for diagnostics that no estimate
    # uses and that take hours at this size.
    pykrige.ok3d._find_statistics = lambda *_: (np.ones(2), np.ones(2), np.ones(2))
    kriging = pykrige.ok3d.OrdinaryKriging3D(
        *points.T,
        values,
        variogram_model="custom",
        variogram_parameters=[],
        variogram_function=variogram,
    )
    start = time.perf_counter()
    estimates, variances = kriging.execute(
        "points", *targets.T, n_closest_points=int(settings["neighbors"]), backend="loop"
    )
    return time.perf_counter() - start, np.asarray(estimates), np.asarray(variances)


PACKAGES = {"krigekit": krigekit, "gstlearn": gstlearn, "pykrige": pykrige}


def main():
    """Solve the problem in a folder and leave seconds, estimates and variances beside it."""
    package, folder = sys.argv[1], Path(sys.argv[2])
    seconds, estimates, variances = PACKAGES[package](*read_problem(folder))
    np.concatenate([[seconds], estimates, variances]).tofile(folder / "result.bin")


if __name__ == "__main__":
    main()
