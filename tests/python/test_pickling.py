"""Every class of the module pickles and copies exactly, or has a reason why it does not."""

import contextlib
import copy
import io
import math
import pickle
import subprocess
import sys
import types

import numpy as np
import pytest
import talvorix as t

pytestmark = pytest.mark.quick

X = np.random.default_rng(4).random((40, 3)) * 100
z = X[:, 0] + 10 * np.sin(X[:, 1])
E = t.Ellipsoid(90, 40, 20, 33, 12, -7)
COVS = [t.Covariance.spherical(0.7, E), t.Covariance.exponential(0.2, E), t.Covariance.nugget(0.1)]
SMOOTH = COVS[:2]
N = t.Neighborhood(X, E)
LOCAL = t.LocalCovariances(X[:4], [COVS, COVS[:1], [], SMOOTH], [0.1, 0.2, math.nan, 0.4])
GRID = t.CartesianGrid((10, 11, 12), (0.9, 2.0, 3.0), (1, 2, 3), (20, 30, 40))
FOLDS = t.create_folds(X, z, 200, 20, 2)
BOX = [[0, 0, 0], [100, 100, 100]]
TABLE_SIZE = 500


def prior(rng, distribution):
    distribution(rng)
    return distribution


def quick_ppmt():
    with contextlib.redirect_stdout(io.StringIO()):
        parameters = t.IsomorphismParameters(n_iterations=2, n_partitions=2)
        return t.PPMT(X[:, :2], 2, iso_params=parameters, n_threads=1, n_bins=20)


def transition(u, v):
    return 0.5


def square_error(model, n_threads):
    return float(len(model))


def nodes(name):
    """The nodes of a formula of a kind of scalars, evaluated so that their cells are in use."""
    ast = t.ast if name == "Real" else t.jet.ast
    x, v = ast.Variable("x", 2.5), ast.Variable("v", [1.0, -2.0])
    inner = x * 3.0 + 1.0
    function = ast.Scalar([x], inner * inner - x)
    value = ast.Value([4.0, 5.0])
    call = function([ast.Value(0.5)])
    for node in (inner, call, v + value):
        node.eval() if node.variable_type_name() == "scalar" else node.eval_vector()
    return ast, x, v, inner, function, value, call


def node_answer(node):
    text = [node.variable_type_name(), node.object_type_name(), node.type()]
    vector = node.variable_type_name() == "vector"
    cells = [str(node.scalar()), str(node.vec())] if hasattr(node, "scalar") else []
    return [*text, *cells, str(node.eval_vector() if vector else node.eval())]


def tables(jet):
    place, scalar = (t.transiogram.jet, t.jet.ast) if jet else (t.transiogram, t.ast)
    u, v = scalar.Variable("u", [0.0, 0.0, 0.0]), scalar.Variable("v", [0.0, 0.0, 0.0])
    row = [scalar.Value(0.25) * 1.0, u * v]
    return place.Transiogram([[transition] * 2] * 2), place.Transiogram(u, v, [row, row])


def ask_table(table):
    return str(table([1.0, 2.0, 3.0], [3.0, 2.0, 1.0]))


def values(function):
    return function.simulate(X, 1)


def generated(generator):
    return generator(7).simulate(X, 1)


def estimates(estimator):
    return estimator(X[:9] + 0.5, N, X, z, n_threads=1)


DISTRIBUTIONS = [
    t.uniform_distribution(2, 3), t.lognormal_distribution(0.3, 0.4),
    t.gamma_distribution(0.5, 2), t.exponential_distribution(2), t.weibull_distribution(2, 3),
    t.extreme_value_distribution(1, 2), t.chi_squared_distribution(3),
    t.cauchy_distribution(0, 1), t.fisher_f_distribution(5, 1.5), t.student_t_distribution(3),
    t.gaussian_distribution(1, 2), prior(t.RNG(1), t.gaussian_distribution(1, 2)),
    t.data_distribution(z, np.arange(40.0)), t.data_distribution([1.0, 2.0], [1.0] * 5),
]  # fmt: skip
GENERATORS = [
    t.SimulatorGenerator.FIM(BOX, COVS[0], 3, 8, n_base_simulation_points=5),
    t.SimulatorGenerator.FIM(BOX, SMOOTH, 3, 8, 9, 10, n_base_simulation_points=5),
    t.SimulatorGenerator.TBSIM(BOX, COVS[0], 3, 50, n_base_simulation_points=5),
    t.SimulatorGenerator.Pool([t.TBSIM(X, COVS[0], 1, 30), t.FIM(X, COVS[1], 1, 8)]),
    t.SimulatorGenerator.Ensemble(LOCAL, t.SimulatorFactory.TBSIM(BOX, 40), 0.9, 2.0, 1),
]
FACTORIES = [t.SimulatorFactory.FIM(BOX, 8, 9, 10), t.SimulatorFactory.TBSIM(X, 40)]

# For each class its samples and what is asked of them, of the copy as of the original. Samples
# without an equality are equal when their answers are.
VALUES = {
    "EllipsoidInfo": ([E.info()], lambda e: (e.r1(), e.r2(), e.r3(), e.azimuth(), e.dip())),
    "Ellipsoid": ([E, t.Ellipsoid(np.zeros((3, 3)))], lambda e: (e.matrix(), e.inv_matrix())),
    "Neighborhood": (
        [N, t.Neighborhood(np.round(X, -1)), t.Neighborhood([])],
        lambda n: n.find_neighbors((50, 50, 50), 30),
    ),
    "BoundingBox": ([t.BoundingBox(X), t.BoundingBox([])], lambda b: (b.lower(), b.upper())),
    "CartesianGrid": ([GRID, t.CartesianGrid((1, 1, 1), (3, 0, 2))], np.asarray),
    "BlockModel": ([t.BlockModel(GRID, np.arange(len(GRID)) % 3 == 0)], np.asarray),
    "Kernel": ([t.Kernel.spherical, t.Kernel.gaussian], lambda k: k(0.3)),
    "Covariance": (
        [*COVS, *t.generate_covariances(E, 2, t.Kernel.gaussian, 1, 1, 9, 1, 2, 1, 2)[0]],
        lambda c: (c((1, 2, 3)), c.type, c.sill),
    ),
    "LocalCovariances": ([LOCAL], lambda m: (m.centers, m.errors, repr(m.covariances))),
    "RNG": ([t.RNG(5), t.RNG(-1)], lambda r: t.uniform_distribution(0, 1)(copy.copy(r))),
    "Distribution": (DISTRIBUTIONS, lambda d: copy.copy(d).simulate(50)),
    "CDF": ([t.CDF(DISTRIBUTIONS[0], TABLE_SIZE)], lambda c: c.probs(np.arange(2, 3, 0.1))),
    "PDF": ([t.PDF(DISTRIBUTIONS[0], TABLE_SIZE)], lambda p: p.probs(np.arange(2, 3, 0.1))),
    "NScore": (
        [t.NScore(DISTRIBUTIONS[-2], DISTRIBUTIONS[10], TABLE_SIZE)],
        lambda s: (s.forward(z), s.backward([0.1, 1.0])),
    ),
    "ExperimentalVariogram": (
        [t.ExperimentalVariogram(X[:2], [1.0, math.nan], [3, 70000], [0, 0], X[:1])],
        lambda v: (v.lags, v.variogram, v.npairs, v.lags_by_dir),
    ),
    "EllipsoidOptimizationParameters": (
        [t.EllipsoidOptimizationParameters(seed=2**40, tol=0.5, debug=True)],
        lambda p: (p.seed, p.tol, p.debug),
    ),
    "EllipsoidLBFGSParameters": (
        [t.EllipsoidLBFGSParameters(n_iterations=3, cauchy_loss=0.1)],
        lambda p: (p.n_iterations, p.cauchy_loss),
    ),
    "Projection": ([t.Projection(z[:9], "gaussian")], lambda p: p.forward(z)),
    "Isomorphism": ([t.Isomorphism((z[:9], z[:6]))], lambda p: (p.forward(z), p.backward(z))),
    "IsomorphismParameters": (
        [t.IsomorphismParameters(kernel_forward="idw", seed=-3)],
        lambda p: (p.kernel_forward, p.seed),
    ),
    "PPMT": ([quick_ppmt()], lambda p: p.forward(X[:, :2])),
    "fft.SpectralData1D": (
        [t.fft.SpectralData1D.forward(z), t.fft.SpectralData1D([1.0], [2.0])],
        lambda s: (s.backward(), s.real, s.phase),
    ),
    "algebra.Real": ([t.algebra.Real(2.5)], float),
    "algebra.Jet": ([t.algebra.Jet(2.5)], lambda j: (j.value, j.derivatives)),
    "algebra.RealVector": ([t.algebra.RealVector([1.5, math.nan])], list),
    "algebra.JetVector": ([t.algebra.JetVector([1.0, 2.0])], str),
    "algebra.RealMatrix": ([t.algebra.RealMatrix([[1.0, 2.0], [3.0]])], str),
    "algebra.JetMatrix": ([t.algebra.JetMatrix([[1.0, 2.0], [3.0, 4.0]])], str),
}
FUNCTIONS = {
    "SpatialFunction": (
        [t.covariance_computer(COVS), t.variogram_computer(COVS, 3.0), t.TBSIM(X, COVS[0], 5, 50),
         t.TBSIM(X, SMOOTH, 5), t.FIM(X, COVS[0], 5, 8), t.FIM(X, SMOOTH, 5, 8, 9, 10, 2),
         *(g(11) for g in GENERATORS), *(f(SMOOTH, 4) for f in FACTORIES)],
        values,
    ),
    "Estimator": (
        [t.IDW(3.0, dhids=range(40)), t.IDW(covs=SMOOTH, max_neighbors=9),
         t.SimpleKriging(COVS, 40.0, 8), t.OrdinaryKriging(COVS, 9, 99.5, 2, [0, 1] * 20, 5),
         t.EnsembleEstimation(LOCAL, E, 8, -1, 2, -1, 2.0, 0.9)],
        estimates,
    ),
    "SimulatorGenerator": (GENERATORS, generated),
    "SimulatorFactory": (FACTORIES, lambda f: f(SMOOTH, 2).simulate(X, 1)),
    "CovarianceErrorFunction": (
        [t.CovarianceErrorFunction.IDW(FOLDS, 100.0, min_partition_size=3, max_partition_size=6),
         t.CovarianceErrorFunction.Custom(square_error)],
        lambda f: f(SMOOTH, 1),
    ),
}  # fmt: skip
for kind, jet in (("Real", False), ("Jet", True)):
    ast, x, v, inner, function, value, call = nodes(kind)
    prefix = "jet.ast" if jet else "ast"
    suffix = ".jet" if jet else ""
    callables, formulas = tables(jet)
    chain = t.markov_chain.jet if jet else t.markov_chain
    FUNCTIONS |= {
        f"{prefix}.Variable": ([x, v], lambda n: (n.type(), str(n.vec()), str(n.scalar()))),
        f"{prefix}.Value": ([value], node_answer),
        f"{prefix}.Transformation": ([inner, call, v - [1.0, 2.0], v + value, v * v], node_answer),
        f"{prefix}.Function": ([function, ast.Vector([v], v)], node_answer),
        f"{prefix}.ScalarFunction": ([function.ScalarFunction()], lambda f: str(f([1.5]))),
        f"{prefix}.TransFunction": ([function.Transformation()], lambda f: str(f([[1.5]]))),
        f"{prefix}.KernelFunction": ([function.Kernel()], lambda f: str(f([[1.5]]))),
        f"{prefix}.ScalarCost": ([ast.ScalarCost(function)], lambda f: str(f([1.5]))),
        f"transiogram{suffix}.Transiogram": ([callables, formulas], ask_table),
        f"markov_chain{suffix}.UnconditionalSampler": (
            [chain.UnconditionalSampler.Default(formulas)], repr),
        f"markov_chain{suffix}.ConditionalSampler": (
            [chain.ConditionalSampler.Default(callables)], repr),
    }  # fmt: skip
SAMPLES = VALUES | FUNCTIONS

# Nothing makes an object of these.
WITHOUT_OBJECTS = {f"{p}.{n}" for p in ("ast", "jet.ast") for n in ("Expression", "Kernel")}


def classes(module=t, prefix=""):
    for name, thing in vars(module).items():
        if isinstance(thing, types.ModuleType):
            yield from classes(thing, f"{prefix}{name}.")
        elif isinstance(thing, type):
            yield prefix + name, thing


def test_every_class_has_a_sample_or_a_reason():
    for name, cls in classes():
        if name.endswith("Ptr") or name in WITHOUT_OBJECTS:
            with pytest.raises(TypeError, match=r"No constructor|abstract"):
                cls()
            continue
        assert all(type(sample) is cls for sample in SAMPLES[name][0]), name


def same(a, b):
    np.testing.assert_equal(a, b)


COPIES = {f"protocol {p}": lambda o, p=p: pickle.loads(pickle.dumps(o, p)) for p in range(2, 6)}
COPIES |= {"copy": copy.copy, "deepcopy": copy.deepcopy}


@pytest.mark.parametrize("name", SAMPLES)
def test_round_trips(name):
    samples, answer = SAMPLES[name]
    for sample in samples:
        before = repr(sample)
        assert " object at 0x" not in before
        copies = {how: make(sample) for how, make in COPIES.items()}
        expected = answer(sample)
        for how, other in copies.items():
            assert type(other) is type(sample) and repr(other) == before, how
            same(answer(other), expected)
            if name in VALUES:
                assert other == sample, how
                if type(sample).__hash__ is not None:
                    assert hash(other) == hash(sample)
                assert other != "another type"
    if name in VALUES and len(samples) > 1:
        assert samples[0] != samples[1]


def test_equality_tells_fields_apart():
    for record in (t.EllipsoidOptimizationParameters(), t.EllipsoidLBFGSParameters(),
                   t.IsomorphismParameters()):  # fmt: skip
        fields = [k for k, f in vars(type(record)).items() if isinstance(f, property)]
        for field in fields:
            other = copy.copy(record)
            old = getattr(other, field)
            setattr(
                other, field, "idw" if isinstance(old, str) else (not old if old is False else 9)
            )
            assert other != record and record == copy.copy(record), field
        assert eval(repr(record), vars(t)) == record
        with pytest.raises(TypeError):
            hash(record)
    assert t.Covariance.nugget(0.0) == t.Covariance.nugget(-0.0)
    assert hash(t.Covariance.nugget(0.0)) == hash(t.Covariance.nugget(-0.0))
    assert t.Covariance.spherical(1, E) != t.Covariance.gaussian(1, E)
    assert t.algebra.Real(2) == 2 and t.algebra.Jet(2) != t.algebra.Jet(3)


def test_states_go_on_where_they_were():
    rng, gaussian = t.RNG(3), t.gaussian_distribution()
    for drawn in (1, 622, 3):
        for _ in range(drawn):
            gaussian(rng)
        rng2, gaussian2 = pickle.loads(pickle.dumps((rng, gaussian)))
        assert rng2 == rng and gaussian2 == gaussian
        same([gaussian2(rng2) for _ in range(999)], [gaussian(rng) for _ in range(999)])


@pytest.mark.parametrize("ast", [t.ast, t.jet.ast])
def test_shared_nodes_stay_shared(ast):
    x = ast.Variable("x", 3.0)
    shared = x * x
    x2, shared2, top = pickle.loads(pickle.dumps((x, shared, shared * shared + x)))
    x2.eval(5.0)
    assert float(top.eval()) == 630 and float(shared2.scalar()) == 25
    # What an operand yielded when the operator was applied still counts.
    turned = ast.Variable("y", 2.0)
    product = turned * 2.0
    turned.eval([1.0, 2.0])
    assert str(copy.deepcopy(product).eval()) == str(product.eval())
    deep = x
    for _ in range(100_000):
        deep = deep + 1.0
    for attempt in (pickle.dumps, copy.deepcopy):
        with pytest.raises(RecursionError):
            attempt(deep)


def test_derivatives_are_kept():
    jet = t.algebra.Jet(1.5)
    state = (1, (1.5, *range(1, 8)))
    made = t.algebra.Jet.__new__(t.algebra.Jet)
    made.__setstate__(state)
    assert made.derivatives == list(range(1, 8)) and made != jet
    vector = pickle.loads(pickle.dumps(t.algebra.JetVector([made, jet])))
    assert vector[0] == made and vector[1] == jet
    assert (pickle.loads(pickle.dumps(made)) * made).derivatives == (made * made).derivatives


def test_callables_pickle_as_far_as_pickle_can():
    def local(model, n_threads):
        return 0.0

    error = t.CovarianceErrorFunction.Custom(local)
    with pytest.raises((AttributeError, pickle.PicklingError), match="local"):
        pickle.dumps(error)
    assert copy.copy(error)(COVS) == 0.0
    with pytest.raises((AttributeError, pickle.PicklingError), match="lambda"):
        pickle.dumps(t.transiogram.Transiogram([[lambda u, v: 1.0]]))


def test_recipes_hold_what_was_given():
    covs, dhids = list(COVS), list(range(40))
    estimator = t.OrdinaryKriging(covs, 9, dhids=dhids, max_neis_by_dhid=1)
    expected = estimates(estimator)
    covs.clear()
    dhids[:] = [0] * 40
    same(estimates(pickle.loads(pickle.dumps(estimator))), expected)


def test_sizes_stay_near_the_data():
    n = 20_000
    rng = np.random.default_rng(1)
    dhids = rng.integers(0, 300, n).astype(np.int32)
    centers, errors = rng.random((n, 3)), rng.random(n)
    models = [[t.Covariance.spherical(s, t.Ellipsoid(2, 1, 1, s, 0, 0))] for s in errors]
    local = t.LocalCovariances(centers, models, errors)
    numbers = 8 * n * (3 + 1 + 1 + 9)
    for thing, size in (
        (t.OrdinaryKriging(COVS, 20, dhids=dhids, max_neis_by_dhid=2), dhids.nbytes),
        (t.IDW(dhids=dhids), dhids.nbytes),
        (local, numbers),
        (t.EnsembleEstimation(local, E, 8, -1, 2, -1, 2, 0.9), numbers),
        (t.Neighborhood(centers), centers.nbytes),
        (t.BlockModel(t.CartesianGrid((9, 9, 9), (99, 99, 99)), np.ones(99**3, bool)), 99**3 / 8),
        (t.CDF(t.uniform_distribution(0, 1), n), 8 * n),
    ):
        assert len(pickle.dumps(thing)) < 1.1 * size, thing


@pytest.mark.parametrize("name", SAMPLES)
def test_wrong_states_are_refused(name):
    sample = SAMPLES[name][0][0]
    cls, state = type(sample), sample.__getstate__()

    def variants(item):
        """The item with one part of it exchanged for what does not belong there."""
        if isinstance(item, tuple):
            yield from (item[:-1], (*item, 0)) if item else ()
            for i, part in enumerate(item):
                yield from ((*item[:i], other, *item[i + 1 :]) for other in variants(part))
        elif isinstance(item, np.ndarray):
            yield from (item[:-1], item.astype("U"), item[..., None], item.astype(">f4"))
        yield from (object(), None, -7, "text", cls.__new__(cls))

    for wrong in (None, 1, (), (2, *state[1:]), state[1:], [*state], *variants(state)):
        made = cls.__new__(cls)
        try:
            made.__setstate__(wrong)
        except (ValueError, MemoryError) as error:
            assert isinstance(error, MemoryError) or cls.__name__ in str(error)
        else:
            # What a class cannot tell from a state of its own makes an object that can be used.
            repr(made)
            pickle.dumps(made) if name in VALUES else None
    for wrong in (None, (), (2, *state[1:]), state[1:], [*state]):
        with pytest.raises(ValueError, match="state is not that of a pickled"):
            cls.__new__(cls).__setstate__(wrong)


def test_engine_positions_are_checked():
    _, words = t.RNG(1).__getstate__()
    words = words.copy()
    words[-1] = 625
    with pytest.raises(ValueError, match="position"):
        t.RNG.__new__(t.RNG).__setstate__((1, words))


def test_no_state_calls_what_is_no_factory():
    for path in ("talvorix.check_n_threads", "os.getcwd", "talvorix.IDW", "", "talvorix"):
        with pytest.raises(ValueError, match="no factory"):
            made = t.SpatialFunction.__new__(t.SpatialFunction)
            made.__setstate__((1, path, {}))


def test_another_process_reads_them(tmp_path):
    things = {name: samples for name, (samples, _) in SAMPLES.items() if name != "PPMT"}
    things.pop("CovarianceErrorFunction")
    things = {n: s for n, s in things.items() if "ransiogram" not in n and "markov" not in n}
    path = tmp_path / "things.pickle"
    path.write_bytes(pickle.dumps(things))
    script = """
import pickle, sys
things = pickle.load(open(sys.argv[1], "rb"))
fields = things["SpatialFunction"], things["Estimator"], things["Distribution"]
print([f.simulate([[1, 2, 3]] * 3, 1) for f in fields[0]])
print([d.simulate(3) for d in fields[2]])
open(sys.argv[1], "wb").write(pickle.dumps({n: things[n] for n in things}))
"""
    answer = subprocess.run(
        [sys.executable, "-c", script, path], capture_output=True, text=True, check=True
    )
    fields, draws = answer.stdout.splitlines()
    same_fields = pickle.loads(pickle.dumps(things["SpatialFunction"]))
    same(eval(fields), [f.simulate([[1, 2, 3]] * 3, 1) for f in same_fields])
    same(eval(draws), [copy.copy(d).simulate(3) for d in things["Distribution"]])
    for name, back in pickle.loads(path.read_bytes()).items():
        if name in VALUES and name != "Distribution":
            assert back == things[name]
