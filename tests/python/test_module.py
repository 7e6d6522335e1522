"""The module itself: how it is imported, its thread rule, and how it can be stopped."""

import glob
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
import talvorix


def test_thread_rule():
    hardware = len(os.sched_getaffinity(0))
    for n in (0, -1, -5, -(2**31), hardware, hardware + 1, 2**31 - 1):
        assert talvorix.check_n_threads(n) == hardware
    assert talvorix.check_n_threads() == hardware and talvorix.check_n_threads(1) == 1
    for call in (talvorix.set_fft_n_threads, lambda: talvorix.set_fft_n_threads(n_threads=-3)):
        assert call() is None


def test_import_again_after_removal():
    first = sys.modules.pop("talvorix")
    try:
        import talvorix as second

        assert second is not first and dir(second) == dir(first)
        assert second.Ellipsoid is first.Ellipsoid
        assert (
            second.Neighborhood([[0, 0, 0]], first.Rotation(1, 2, 3)).nearest_neighbor([1, 1, 1])
            == 0
        )
        del sys.modules["talvorix"]
        import talvorix as third

        assert third is not second and third.check_n_threads(1) == 1
    finally:
        sys.modules["talvorix"] = first


def test_the_entry_is_the_only_export():
    if not shutil.which("nm"):
        pytest.skip("nm is not installed")
    listing = subprocess.run(
        ["nm", "-D", "--defined-only", talvorix.__file__],
        capture_output=True,
        text=True,
        check=True,
    )
    assert [line.split()[-1] for line in listing.stdout.splitlines()] == ["PyInit_talvorix"]


def other_interpreters():
    root = os.environ.get("PYENV_ROOT", os.path.expanduser("~/.pyenv"))
    paths = [shutil.which(f"python3.{minor}") for minor in range(9, 15)]
    paths += glob.glob(f"{root}/versions/3.*/bin/python3")
    script = "import sys; print(sys.implementation.name, *sys.version_info[:2])"
    for path in filter(None, paths):
        answer = subprocess.run([path, "-c", script], capture_output=True, text=True, check=False)
        name, *version = (answer.stdout or "none").split()
        version = tuple(map(int, version))
        # Into older ones than these the loader itself does not let the module.
        if name == "cpython" and version >= (3, 8) and version != sys.version_info[:2]:
            yield path


def test_other_interpreters_are_refused():
    paths = list(other_interpreters())
    if not paths:
        pytest.skip("no interpreter of another minor version is here")
    script = f"""
import importlib.machinery, importlib.util, sys
loader = importlib.machinery.ExtensionFileLoader("talvorix", {talvorix.__file__!r})
try:
    importlib.util.module_from_spec(importlib.util.spec_from_loader("talvorix", loader))
except ImportError as error:
    print(str(error).replace(sys.version, "VERSION"))
"""
    for path in paths:
        answer = subprocess.run([path, "-c", script], capture_output=True, text=True, check=True)
        assert answer.stdout.strip() == (
            "Python version mismatch: module was compiled for Python {}.{}, but the interpreter "
            "version is incompatible: VERSION.".format(*sys.version_info[:2])
        ), path


LONG_CALLS = {
    # One system so large that factoring it alone would take minutes.
    "one target": "t.compute_simple_kriging([[0, 0, 0]], X, z, covs, 0, n, len(X))",
    "many targets": "t.compute_ordinary_kriging(many, X, z, covs, n, 60)",
    "one thread": "t.OrdinaryKriging(covs, 60)(many, n, X, z, n_threads=1)",
    "inverse distances": "t.IDW(max_radius=100)(many, n, X, z)",
    "random directions": "t.generate_random_sphere(2**26, 1)",
    "random models": "t.generate_covariances(e, 4, t.Kernel.gaussian, 2**24, 1, 9, 1, 2, 1, 2)",
    "search structure": "t.Neighborhood(np.random.default_rng(0).random((9_000_000, 3)))",
    "a grid": "t.CartesianGrid((1, 1, 1), (900, 900, 500))",
    "an outline": "t.extreme_points(many, 20_000)",
    "ellipsoids": "t.generate_ellipsoids(1, 2, 300, 50, 1, 0.1)",
    "a tightest box": "t.optimize_rotation(X, 9, 2**31 - 1, use_fixed_samples=False)",
    "drillholes": "t.create_random_drillholes(t.BoundingBox(X), 2**31 - 1, 0.1)",
    "clusters": "t.find_clusters(many, 5)",
    "distances of clusters": "t.merge_clusters(many, [0, 1] * (len(many) // 2), 0)",
    "a variogram": "t.compute_exp_variogram(X, z, n_centers=9000, bandwidth=1)",
    "a perpendicular that is none": "t.compute_exp_variogram(X, z, tol=2)",
    "lags on a map": "t.compute_variogram(X, X, z, 64, 64, 64, 500, 999, 1e9)",
    "a smooth variogram": "t.smooth_variogram(vario, 10**7, 0, 9, 9, 2.5, 0.5, 1)",
    "a sample of entries": "t.smooth_variogram(vario, 1, 0, 9, 9, 2.5, 0.5, 2**31 - 1)",
    # The length is a prime, for which planning takes as long as the transform.
    "a spectrum": "t.fft.SpectralData1D.forward(np.ones(9_000_011))",
    "a line": "t.fft.project_to_line(z, z, 1, 2.5, 10**8, 9000)",
    "back from a line": "t.fft.project_back_to_source(many[:, 0], many[:, 0], many[:, 1], 1, 1, 2)",
    "an ensemble of models": "t.ensemble_estimation(many, X, z, local, e, 60, 1, 0, -1, 2, 0.9)",
    "an ensemble of ellipsoids": "t.ensemble_ellipsoid(range(50_000), [e] * 50_000)",
    "ellipsoids at targets": "t.ensemble_local_ellipsoids(many, X, [e] * len(X), z, 90, 1, -1)",
    "a function in parallel": "t.covariance_computer(covs * 2000).simulate(many)",
    "folds": "t.create_folds(many, many[:, 0], 1e-9, 0, 2**31 - 1)",
    "a validation": "t.kfold_cross_validation_using_idw(X, z, covs, 9)",
    "a kriged validation": "t.kfold_cross_validation_using_ok(X, z, covs, 9, 900, 400, 400, 99)",
    "an error of a model": "t.compute_covariance_error_idw(covs, [(X, z)], 9, -1, 3, 9, 9, 9, 0)",
    "a search": "t.optimize_ellipsoid(X, z, t.Kernel.gaussian, 0.1, 1)",
    "a search that keeps the interpreter": "t.optimize_covariance([covs], of_idw(), 2**30)",
    "slow callbacks": "t.optimize_covariance([covs], slow, 2**30)",
    "slow callbacks elsewhere": "t.optimize_covariance([covs] * 99, slow_elsewhere, n_threads=2)",
    "a fit of an ellipsoid": (
        "t.optimize_ellipsoid_using_kfold([(X, z)] * 9, 'gaussian', 1, 1, 1, 1, 0, 500, 900, 9,"
        "999, 1, 1, False)"
    ),
    "fits of ellipsoids": (
        "t.optimize_local_ellipsoids_using_lbfgs(X, z, 'exponential', 900, 90, 200, 900, 400, 1,"
        "t.EllipsoidLBFGSParameters())"
    ),
    "local ellipsoids": "t.optimize_local_ellipsoids(X, z, t.Kernel.gaussian, 0.1, 1, 9, 9, 900)",
    "a fit of a model": (
        "t.extract_covariance_from_varmap(many, np.sin(9e5 * many[:, 0]), np.ones(len(many)), 9,"
        "'gaussian', 0.1, 0.1, 0.1, 1, 1, 1, 1, 9999, 0.5, 0, 0, 2, 0, 0, False)"
    ),
    "turning bands": "t.TBSIM(X, covs, 1, 2**20)",
    "a field of turning bands": "t.TBSIM(X, covs, 1, 5000).simulate(many)",
    "a field of Fourier integrals": "t.FIM([[0, 0, 0], [1, 1, 1]], covs, 1, 500)",
    "a field to be turned": "t.SimulatorGenerator.TBSIM(X, covs, 1, 600, 0, 200)",
    "a conditioned field": "t.simulate(t.IDW(), many, n, X, z, t.TBSIM(X, covs, 1, 5000))",
    "local fields": "t.unconditional_ensemble_simulation(many, local, bands, 0.9, 2, 1)",
    "classes along a path": "t.markov_chain.simulation(many, [], [], classes, e, r=1e-6)",
    # Shapes for which no draw is ever accepted.
    "a draw without end": "t.gamma_distribution(np.nan, 1)(t.RNG(1))",
    "a pair without end": "t.CDF(t.fisher_f_distribution(-1, -1))",
    "pairs in parallel": "t.fisher_f_distribution(-1, -1).simulate(N=5)",
    "table": "t.CDF(t.uniform_distribution(0, 1), 2**26)",
    "calls in calls": "doubling(t.ast).eval()",
    "a slow cost": "t.ceres.solve([doubling(t.jet.ast)], [v], n_threads=1)",
    "slow costs in parallel": "t.ceres.solve([doubling(t.jet.ast)] * 2, [v], {'': ([], [])})",
    "callbacks of a search": (
        "t.ceres.solve([t.jet.ast.Scalar([v], v * v)], [v], validation_cb=lambda _: sleep() or 1)"
    ),
    "a step of a search": "t.ceres.solve([t.jet.ast.Vector([w], w * w)], [w], {'': ([], [])})",
    "a map": "fit_map(90, 1)",
    "a map of many centres": "fit_map(300, 0)",
    "a pair of maps": "t.optimize_isomorphism(*X.T[:2], t.IsomorphismParameters('idw', 130))",
    "values that are mapped": "t.Projection(np.ones(30_000)).forward(many[:, 0])",
    "steps of many samples": "t.PPMT(many, 2**30)",
    "steps of few samples": "t.PPMT(X[:99], 2**30)",
    "samples that are carried": (
        "t.PPMT(X[:99], 1, iso_params=t.IsomorphismParameters('idw', 2000, n_partitions=0))"
        ".forward(many)"
    ),
    "a decomposition": "t.compute_svd_decomposition(np.random.default_rng(0).random((3000, 3000)))",
    "a random rotation": "t.create_random_rotation(4000, 0, 1, 1)",
}


@pytest.mark.parametrize("call", LONG_CALLS.values(), ids=LONG_CALLS)
def test_ctrl_c_is_answered_and_leaves_everything_usable(call):
    script = f"""
import threading, time, numpy as np, talvorix as t
X = np.random.default_rng(1).random((9000, 3)); z = X[:, 0].copy()
many = np.random.default_rng(2).random((2_000_000, 3))
e = t.Ellipsoid(1, 1, 1, 0, 0, 0); n = t.Neighborhood(X)
covs = [t.Covariance.exponential(0.6, e), t.Covariance.gaussian(0.4, e)]
of_idw = lambda: t.CovarianceErrorFunction.IDW([(X[:400], z[:400])], 9)
here = threading.get_ident()
slow = t.CovarianceErrorFunction.Custom(lambda model, n_threads: time.sleep(0.02) or 1.0)
slow_elsewhere = t.CovarianceErrorFunction.Custom(
    lambda model, n_threads: time.sleep(0.3 * (threading.get_ident() != here)) or 1.0
)
classes = t.transiogram.Transiogram([[max]])
vario = t.ExperimentalVariogram(X, z, [9] * len(X), [0] * len(X), [(1, 0, 0)])
local = t.LocalCovariances(X, [covs] * len(X), z); bands = t.SimulatorFactory.TBSIM(X, 2)
def doubling(tree):
    x = tree.Variable("x", 1.0); f = tree.Scalar([x], x)
    for _ in range(40): f = tree.Scalar([x], f([x]) + f([x]))
    return f
def fit_map(n_centers, n_threads):
    sizes = 1000, 900, 999, 0, 2**30, n_threads, 1, False
    t.optimize_projection(X[:, 0], z, "gaussian", n_centers, -9, 9, 0.1, 9, -9, 9, *sizes)
w = t.jet.ast.Variable("w", [0.5] * 4000)
v = t.jet.ast.Variable("v", 1e9); sleep = lambda: time.sleep(0.2)
print("ready", flush=True)
try:
    {call}
    print("finished before it was stopped")
except KeyboardInterrupt:
    print("stopped", time.time())
print(len(t.compute_simple_kriging(X, X, z, covs, 0, n, 4)[0]))
"""

    def late_by():
        process = subprocess.Popen(
            [sys.executable, "-c", script],
            stdout=subprocess.PIPE,
            text=True,
            # A shell lets those whom it starts in the background ignore it.
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
        )
        try:
            assert process.stdout.readline() == "ready\n"
            time.sleep(0.7)
            sent = time.time()
            process.send_signal(signal.SIGINT)
            *_, stopped, count = process.communicate(timeout=60)[0].splitlines()
        finally:
            process.kill()
        assert stopped.startswith("stopped"), stopped
        assert (count, process.returncode) == ("9000", 0)
        return float(stopped.split()[1]) - sent

    # The machine itself may stall for once; a call that does not listen is late every time.
    assert late_by() < 1.0 or late_by() < 1.0


def small_job(n_threads=0):
    points = np.random.default_rng(2).random((500, 3))
    covs = [talvorix.Covariance.spherical(1.0, talvorix.Ellipsoid(1, 1, 1, 0, 0, 0))]
    neighborhood = talvorix.Neighborhood(points)
    return talvorix.compute_ordinary_kriging(
        points + 0.01, points, points[:, 0], covs, neighborhood, 8, n_threads=n_threads
    )


def test_a_forked_child_can_work_in_parallel():
    expected = small_job(2)
    child = os.fork()
    if child == 0:
        os._exit(0 if small_job(2) == expected else 1)
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline:
        done, status = os.waitpid(child, os.WNOHANG)
        if done:
            assert os.waitstatus_to_exitcode(status) == 0
            return
        time.sleep(0.01)
    os.kill(child, signal.SIGKILL)
    os.waitpid(child, 0)
    pytest.fail("the child hangs")


def test_more_than_memory_holds_is_an_exception():
    with pytest.raises(MemoryError):
        talvorix.CartesianGrid((1, 1, 1), (2**20, 2**20, 2**14))
    with pytest.raises(MemoryError):
        talvorix.FIM([[0, 0, 0], [1, 1, 1]], talvorix.Covariance.nugget(1), 1, 2**31 - 1)
    lags, line, most = np.eye(3), np.ones(3), 2**31 - 1
    with pytest.raises(MemoryError, match="structures"):
        talvorix.extract_covariance_from_varmap(
            lags, line, line, most, "idw", 1, 1, 1, 2, 2, 2, 1, 9, 1, 0, 0, 2, 0, 0, False
        )
    with pytest.raises(MemoryError, match="partitions"):
        talvorix.optimize_ellipsoid_using_kfold(
            [(lags, line)] * 9, "idw", 1, 1, 1, 1, 0, 1, 2, most, 9, 1, 0, False
        )


@pytest.mark.quick
def test_calls_from_several_python_threads():
    expected, results = small_job(), []
    threads = [threading.Thread(target=lambda: results.append(small_job())) for _ in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [expected] * 6


@pytest.mark.quick
def test_objects_made_without_their_constructor_are_refused():
    def raw(cls):
        return cls.__new__(cls)

    uses = [
        lambda: raw(talvorix.Kernel)(0.5),
        lambda: raw(talvorix.SpatialFunction)([0, 0, 0]),
        lambda: raw(talvorix.Covariance).sill,
        lambda: raw(talvorix.EllipsoidInfo).r1(),
        lambda: raw(talvorix.Neighborhood).nearest_neighbor([0, 0, 0]),
        lambda: talvorix.Neighborhood([[0, 0, 0]], raw(talvorix.Ellipsoid)),
        lambda: talvorix.covariance_computer([raw(talvorix.Covariance)]),
        lambda: raw(talvorix.Distribution).simulate(3),
        lambda: talvorix.gaussian_distribution()(raw(talvorix.RNG)),
        lambda: raw(talvorix.CDF).min(),
        lambda: raw(talvorix.LocalCovariances).errors,
        lambda: raw(talvorix.Estimator)([], talvorix.Neighborhood([]), [], []),
        lambda: talvorix.BlockModel(raw(talvorix.CartesianGrid), []),
        lambda: raw(talvorix.BlockModel).locations(),
        lambda: talvorix.create_random_drillholes(raw(talvorix.BoundingBox), 1, 1),
        lambda: raw(talvorix.ExperimentalVariogram).lags,
        lambda: raw(talvorix.CovarianceErrorFunction)([]),
        lambda: talvorix.optimize_covariance([[]], raw(talvorix.CovarianceErrorFunction)),
        lambda: raw(talvorix.EllipsoidOptimizationParameters).seed,
        lambda: raw(talvorix.EllipsoidLBFGSParameters).seed,
        lambda: raw(talvorix.SimulatorGenerator)(1),
        lambda: raw(talvorix.SimulatorFactory)([], 1),
        lambda: talvorix.SimulatorGenerator.Pool([raw(talvorix.SpatialFunction)]),
        lambda: talvorix.markov_chain.ConditionalSampler.Default(
            raw(talvorix.transiogram.Transiogram)
        ),
        lambda: raw(talvorix.algebra.JetVector).norm(),
        lambda: talvorix.algebra.RealMatrix([[1]]) * raw(talvorix.algebra.RealMatrix),
        lambda: raw(talvorix.fft.SpectralData1D).backward(),
        lambda: raw(talvorix.ast.Variable).eval(),
        lambda: raw(talvorix.ast.Kernel).print(),
        lambda: raw(talvorix.ast.ScalarFunction)([1.0]),
        lambda: raw(talvorix.Projection).forward(1.0),
        lambda: talvorix.Isomorphism(talvorix.Projection([]), raw(talvorix.Projection)),
        lambda: raw(talvorix.Isomorphism).backward_proj,
        lambda: raw(talvorix.IsomorphismParameters).kernel_forward,
        lambda: raw(talvorix.PPMT).forward([1.0]),
        lambda: talvorix.PPMT([[0], [1]], 0, iso_params=raw(talvorix.IsomorphismParameters)),
    ]
    for use in uses:
        with pytest.raises(TypeError, match="never initialised"):
            use()


@pytest.mark.quick
def test_every_public_name_explains_itself():
    for name, thing in vars(talvorix).items():
        if name.startswith("__"):
            continue
        assert thing.__doc__ and len(thing.__doc__.strip()) > 20, name
        for member, function in vars(thing).items() if isinstance(thing, type) else ():
            if callable(function) and not member.startswith("_"):
                assert len(function.__doc__.split("\n", 1)[-1].strip()) > 8, (name, member)
    assert pathlib.Path(talvorix.__file__).suffix == ".so"
