"""Transiograms and the simulation of classes along a random path."""

import gc
import math
import threading

import numpy as np
import pytest
import talvorix
from literal import Engine, anisotropy_matrix
from talvorix import Ellipsoid, algebra, markov_chain, transiogram

pytestmark = pytest.mark.quick

ANGLES = (9, 4, 2, 30, 20, 50)
ELLIPSOID = Ellipsoid(*ANGLES)
SPHERE = Ellipsoid(1, 1, 1, 0, 0, 0)
MATRIX = anisotropy_matrix(*ANGLES)
BOTH = pytest.mark.parametrize("scalar", ["double", "dual"])


def transition(i, j, u, v):
    """Depends on where u and v are and which is which; rows do not sum to one."""
    away = 0.1 * (1 + (2 * i + j) % 3) + 0.3 * (u[0] > v[1]) * j
    return (1 + i) * (math.exp(-math.dist(u, v) / (2 + i)) if i == j else away)


def table_of(n_classes, function, scalar="double"):
    def kernel(i, j):
        # Every second one of dual numbers returns a float all the same.
        if scalar == "dual" and (i + j) % 2:
            return lambda u, v: algebra.Jet(function(i, j, [*map(float, u)], [*map(float, v)]))
        return lambda u, v: function(i, j, [*map(float, u)], [*map(float, v)])

    module = transiogram.jet if scalar == "dual" else transiogram
    return module.Transiogram([[kernel(i, j) for j in range(n_classes)] for i in range(n_classes)])


def simulate_literally(targets, data, values, n_classes, function, r, knn, seed):
    """The simulation word for word; data and targets before are searched by brute force."""

    def neighbors(locations, center):
        distances = np.linalg.norm((np.reshape(locations, (-1, 3)) - center) @ MATRIX.T, axis=1)
        order = np.argsort(distances)
        return order[distances[order] < r] if r > 0 else order[:knn]

    engine, path = Engine(seed), list(range(len(targets)))
    engine.shuffle(path)
    classes = [-1] * len(targets)
    for step, i in enumerate(path):
        t = targets[i]
        near = [(data[k], values[k]) for k in neighbors(data, t)]
        earlier = [path[k] for k in neighbors(targets[path[:step]], t)]
        near += [(targets[k], classes[k]) for k in earlier]
        if not near:
            classes[i] = engine.raw() % n_classes
            continue
        rows = [[function(c, j, p, t) for j in range(n_classes)] for p, c in near]
        weights = np.array([1 / (math.dist(p, t) ** 2 + 1e-6) for p, _ in near])
        chances = weights @ rows / weights.sum()
        bins = [(a, j) for j, a in enumerate(chances / chances.sum())]
        engine.shuffle(bins)
        u, total = engine.uniform(), np.cumsum([a for a, _ in bins])
        classes[i] = next((j for (_, j), s in zip(bins, total, strict=True) if s > u), -1)
    return classes


CASES = [(-1, 32, 30, 3), (0, 4, 30, 4), (0.7, 2, 30, 3), (-1, 5, 0, 3), (0.3, -1, 0, 5)]


@BOTH
@pytest.mark.parametrize(("r", "knn", "n_data", "n_classes"), [*CASES, (-1, 0, 9, 3)])
def test_the_simulation_is_the_literal_one(r, knn, n_data, n_classes, scalar):
    targets, data = np.split(np.random.default_rng(4).uniform(-6, 6, (100 + n_data, 3)), [100])
    data[:1] = targets[5]
    values = np.random.default_rng(5).integers(n_classes, size=n_data)
    expected = simulate_literally(targets, data, values, n_classes, transition, r, knn, 77)
    assert set(expected) == set(range(n_classes))
    table = table_of(n_classes, transition, scalar)
    simulation = (markov_chain if scalar == "double" else markov_chain.jet).simulation
    for n_previous, seed in ((1, 77), (-5, 77 + 2**32)):
        arguments = (targets, data, values, table, ELLIPSOID, r, knn, n_previous, seed)
        assert simulation(*arguments) == expected


def test_classes_follow_each_other_as_the_transiogram_says():
    x = np.sort(np.random.default_rng(1).uniform(0, 1500, 3000))
    share = np.array([0.5, 0.3, 0.2])

    def stationary(i, j, u, v):
        stay = math.exp(-abs(u[0] - v[0]))
        return stay * (i == j) + (1 - stay) * share[j]

    targets = np.column_stack([x, 0 * x, 0 * x])
    classes = markov_chain.simulation(targets, [], [], table_of(3, stationary), SPHERE, knn=1)
    path = np.arange(len(x))
    Engine(141412).shuffle(path)
    observed, expected, variance = np.zeros((3, 3, 3))
    for step in range(1, len(path)):
        # A target's one neighbour is the nearest of those before, whose row it is drawn from.
        i, parent = path[step], min(path[:step], key=lambda k: abs(x[k] - x[path[step]]))
        row = [stationary(classes[parent], j, [x[parent]], [x[i]]) for j in range(3)]
        observed[classes[parent], classes[i]] += 1
        expected[classes[parent]] += row
        variance[classes[parent]] += np.multiply(row, np.subtract(1, row))
    assert (abs(observed - expected) < 3.5 * np.sqrt(variance)).all() and observed.min() > 20


def test_weights_stay_finite_and_rows_without_numbers_give_no_class():
    simulate, near = markov_chain.simulation, np.arange(12.0)[:, None] * [1, 0, 0]
    # At its own place a datum weighs 1e6, whereas 30 others weigh about 1000 together.
    data, values = np.vstack([near[:1], np.full((30, 3), 0.1)]), [0] + [1] * 30
    same = table_of(2, lambda i, j, u, v: i == j)
    drawn = [simulate(near[:1], data, values, same, SPHERE, seed=s)[0] for s in range(1000)]
    assert 990 <= drawn.count(0) < 1000
    # The first target draws a 1 from the datum. The others then have a neighbour without numbers.
    table = table_of(2, lambda i, j, u, v: math.nan if i == 1 else j)
    classes = simulate(near, [[0.1, 0, 0]], [0], table, ELLIPSOID, knn=3)
    assert sorted(classes) == [-1] * 11 + [1]
    for unusable in (0.0, -math.inf):
        table = table_of(2, lambda i, j, u, v, unusable=unusable: unusable)
        assert simulate(near[:1], [near[1]], [1], table, ELLIPSOID) == [-1]


@BOTH
def test_a_table_gives_entries_rows_and_all(scalar):
    module = transiogram if scalar == "double" else transiogram.jet
    vector = algebra.RealVector if scalar == "double" else algebra.JetVector
    seen = []

    def kernel(i, j):
        return lambda u, v: seen.append((i, j, type(u), type(v))) or 10 * i + j + float(v[0] - u[1])

    # Nothing asks for a square before a simulation does.
    table = module.Transiogram([[kernel(i, j) for j in range(3)] for i in range(2)])
    u, v = vector([1, 2]), [2.5, 0, 0]
    assert float(table(1, 2, u, v)) == 12.5 and seen == [(1, 2, vector, vector)]
    assert list(map(float, table(class_u=1, u=u, v=v))) == [10.5, 11.5, 12.5]
    assert [[*map(float, row)] for row in table(u, v)] == [[0.5, 1.5, 2.5], [10.5, 11.5, 12.5]]
    assert [entry[:2] for entry in seen[4:]] == [(i, j) for i in range(2) for j in range(3)]
    for outside in ((2, 0), (-1, 0), (0, 3), (0, -1), (2,), (-1,)):
        with pytest.raises(IndexError, match=r"class_[uv] is"):
            table(*outside, u, v)


def test_what_cannot_be_used_is_refused_before_the_run():
    table, two = table_of(2, lambda *_: pytest.fail("called")), [[0, 0, 0], [1, 1, 1]]
    rectangle = transiogram.Transiogram([[max] * 3] * 2)
    nowhere = [[0, math.inf, 0]]
    for arguments, error, text in [
        ((two, [], [], rectangle, ELLIPSOID), ValueError, "row 0 .* has 3 .* 2 rows"),
        ((two, [], [], transiogram.Transiogram([]), ELLIPSOID), ValueError, "no classes"),
        ((two, two, [1], table, ELLIPSOID), ValueError, "data_locs has 2 .* data_values has 1"),
        ((two, two, [1, 2], table, ELLIPSOID), IndexError, r"data_values\[1\] is 2"),
        ((two, two, [-1, 1], table, ELLIPSOID), IndexError, r"data_values\[0\] is -1"),
        ((two, [], [], table, ELLIPSOID, -1, -3), ValueError, "knn must be 0 or more"),
        ((nowhere, [], [], table, ELLIPSOID), ValueError, r"target_locs\[0\]"),
        ((two, nowhere, [0], table, ELLIPSOID), ValueError, r"data_locs\[0\]"),
        ((two, two, [0.5, 1], table, ELLIPSOID), TypeError, "simulation"),
        ((two, [], [], None, ELLIPSOID), TypeError, "simulation"),
    ]:
        with pytest.raises(error, match=text):
            markov_chain.simulation(*arguments)
    assert markov_chain.simulation([], two, [0, 1], table, ELLIPSOID) == []
    for sampler in (markov_chain.UnconditionalSampler, markov_chain.jet.ConditionalSampler):
        made = table if sampler is markov_chain.UnconditionalSampler else table_of(1, max, "dual")
        assert isinstance(sampler.Default(made), sampler)
    with pytest.raises(ValueError, match="square"):
        markov_chain.UnconditionalSampler.Default(rectangle)


def test_what_functions_raise_or_return_passes_through():
    class Number:
        def __float__(self):
            raise LookupError("inside")

    for kernel, error, text in [
        (lambda u, v: [][0], IndexError, "list index"),
        (lambda u, v: Number(), LookupError, "inside"),
        (lambda u, v: "0.5", TypeError, r"kernel_matrix\[0\]\[0\] returned .* type str; it must"),
        (lambda u: 1.0, TypeError, "positional argument"),
        (None, TypeError, "not callable"),
    ]:
        for tables, chain in ((transiogram, markov_chain), (transiogram.jet, markov_chain.jet)):
            with pytest.raises(error, match=text):
                chain.simulation(np.eye(3), [], [], tables.Transiogram([[kernel]]), ELLIPSOID)


def test_functions_may_call_back_and_be_called_from_several_threads():
    inner, results = table_of(3, transition), []
    outer = table_of(3, lambda i, j, u, v: inner(i, j, u, v))
    locations = np.random.default_rng(4).random((60, 3))

    def simulate(table=outer):
        results.append(markov_chain.simulation(locations, [], [], table, ELLIPSOID, knn=4))

    threads = [threading.Thread(target=simulate) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    simulate(inner)
    assert results[:-1] == [results[-1]] * 4


def formulas(scalar, factor):
    """A table of formulas, and the same as a function; a third variable is a factor."""
    tree = talvorix.jet.ast if scalar == "dual" else talvorix.ast
    module = transiogram.jet if scalar == "dual" else transiogram
    u, v, f = tree.Variable("u", [0.0]), tree.Variable("v", 0.0), tree.Variable("f", factor)
    # The variables become vectors when the table is used, but operators look at them now.
    v.eval([0.0, 0.0, 0.0])
    away = (u - v) * (u - v) + 1.0
    kernels = [[f / away, f / (away * 3.0)], [(u * v) * (u * v) + 0.5, f / away]]

    def function(i, j, p, q):
        d, value = math.dist(p, q) ** 2 + 1, float(f.scalar())
        return {(0, 1): value / (3 * d), (1, 0): np.dot(p, q) ** 2 + 0.5}.get((i, j), value / d)

    return module.Transiogram(u, v, kernels), function, f


@BOTH
def test_tables_of_formulas(scalar):
    table, function, factor = formulas(scalar, 2.0)
    gc.collect()
    rng = np.random.default_rng(6)
    targets, data = rng.uniform(-1, 1, (60, 3)), rng.uniform(-1, 1, (9, 3))
    values = rng.integers(0, 2, 9).tolist()
    functions = [[lambda p, q, i=i, j=j: function(i, j, p, q) for j in (0, 1)] for i in (0, 1)]
    module = markov_chain.jet if scalar == "dual" else markov_chain
    for value in (2.0, 0.25):
        # What other variables hold counts when a simulation begins.
        factor.eval(value)
        u, v = rng.uniform(-1, 1, (2, 3))
        for row, expected in zip(table(u, v), functions, strict=True):
            assert [float(x) for x in row] == pytest.approx([f(u, v) for f in expected])
        found = module.simulation(targets, data, values, table, SPHERE, seed=5)
        same = transiogram.Transiogram(functions)
        assert found == markov_chain.simulation(targets, data, values, same, SPHERE, seed=5)


def test_formulas_that_are_no_transitions():
    x = talvorix.ast.Variable("x", [1.0, 2.0, 3.0])
    table = transiogram.Transiogram(x, x, [[x + x]])
    for use in (
        lambda: table(0, 0, [1, 2, 3], [1, 2, 3]),
        lambda: markov_chain.simulation([[0, 0, 0]], [[1, 1, 1]], [0], table, SPHERE),
    ):
        with pytest.raises(RuntimeError, match=r"^invalid call!!!\n$"):
            use()
    for kernels in ([[None]], [[1.0]], [x]):
        with pytest.raises(TypeError):
            transiogram.Transiogram(x, x, kernels)
