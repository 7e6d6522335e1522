"""Numbers, vectors and matrices with derivatives, formulas of them, and the solver."""

import gc
import operator
import threading

import literal_algebra as literal
import numpy as np
import pytest
import talvorix
from scipy.optimize import least_squares
from talvorix.ceres import solve
from talvorix.jet import ast

OPERATORS = {"+": operator.add, "-": operator.sub, "*": operator.mul, "/": operator.truediv}


def attempt(action):
    try:
        return action(), None
    except (RuntimeError, IndexError, ValueError) as error:
        return None, (type(error), str(error) if isinstance(error, RuntimeError) else "")


def literal_of(content):
    is_list = isinstance(content, list)
    return [literal_of(x) for x in content] if is_list else literal.number(content)


def floats(result):
    if getattr(result, "shape", None) == (8,):
        return float(result[0])
    return [floats(x) for x in result] if hasattr(result, "__len__") else float(result)


def agree(found, expected):
    found, expected = floats(found), floats(expected)
    return found == expected or np.allclose(found, expected, 1e-9, 1e-12, equal_nan=True)


class Twins:
    """A random formula with what may go wrong: literal, and of the module, node by node."""

    def __init__(self, seed, ast, size=16):
        self.rng, self.ast, self.errors = np.random.default_rng(seed), ast, set()
        self.variables = [
            (literal.Variable(literal_of(c)), ast.Variable(f"v{i}", c))
            for i, c in enumerate([self.content() for _ in range(5)])
        ]
        self.nodes, self.functions = list(self.variables), []
        for _ in range(size):
            self.nodes += [made for made in [self.grow()] if made]

    def row(self, *weights):
        return self.rng.choice([-1.5, -1, -0.5, 0, 0.5, 1, 2, 3], self.length(*weights)).tolist()

    def length(self, *weights):
        return self.rng.choice(len(weights), p=weights)

    def content(self):
        return self.row(0, 1)[0] if self.rng.random() < 0.5 else self.row(0.05, 0, 0.3, 0.65)

    def pick(self, among):
        return among[self.rng.integers(len(among))]

    def both(self, expected, found):
        (expected, error), (found, found_error) = attempt(expected), attempt(found)
        assert error == found_error
        self.errors.add(error)
        return None if error else (expected, found)

    def grow(self):
        (a, x), (b, y), c = self.pick(self.nodes), self.pick(self.nodes), self.content()
        s, kind = self.pick("+-*/"), self.pick("nnnncccvffgg")
        if kind == "n":
            return self.both(lambda: literal.apply(s, a, b), lambda: OPERATORS[s](x, y))
        if kind == "c" and (s, type(c)) != ("/", list):
            sides = (c, x) if s in "+*" and self.rng.random() < 0.5 else (x, c)
            given = literal_of(c)
            return self.both(lambda: literal.apply(s, a, given), lambda: OPERATORS[s](*sides))
        if kind == "v":
            return literal.Value(literal_of(c)), self.ast.Value(c)
        if kind == "f":
            return self.function([self.pick(self.variables) for _ in range(self.rng.integers(4))])
        if kind == "g" and self.functions:
            f, g = self.pick(self.functions)
            n = range(max(0, len(f.args) + self.pick([-1, 0, 0, 0, 1])))
            if self.rng.random() < 0.6:
                twins = [self.pick(self.nodes) for _ in n]
                return self.both(lambda: f([t[0] for t in twins]), lambda: g([t[1] for t in twins]))
            are_rows = self.rng.random() < 0.5
            given = [self.row(0.1, 0.2, 0.3, 0.4) if are_rows else self.row(0, 1)[0] for _ in n]
            values = [literal.Value(x) for x in literal_of(given)]
            return self.both(lambda: f(values), lambda: g(given))
        return None

    def function(self, arguments):
        a, x = self.pick(self.nodes)
        make = self.pick([self.ast.Scalar, self.ast.Vector])
        made = literal.Function([t[0] for t in arguments], a), make([t[1] for t in arguments], x)
        self.functions.append(made)
        return made

    def evaluate(self):
        (a, x), c, kind = self.pick(self.nodes), self.content(), self.rng.integers(8)
        given = literal_of(c)
        f, g = self.pick(self.functions) if self.functions else (None, None)
        n = range(max(0, len(f.args) + self.pick([-1, 0, 0, 0, 1])) if f else 0)
        rows = [self.row(0.05, 0.2, 0.35, 0.4) for _ in n]
        values = [self.row(0, 1)[0] for _ in n]
        result = self.both(
            *[
                (lambda: a.get(literal.SCALAR), lambda: x.eval()),
                (lambda: a.get(literal.LIST), lambda: x.eval_vector()),
                (lambda: a.get(int(not isinstance(c, list)), given), lambda: x.eval(c)),
                (lambda: f.adapt(literal_of(values)), lambda: g.ScalarFunction()(values)),
                (lambda: f.adapt(literal_of(values)), lambda: self.ast.ScalarCost(g)(values)),
                (lambda: f.adapt(literal_of(rows)), lambda: g.Kernel()(rows)),
                (lambda: f.adapt(literal_of(rows), True), lambda: g.Transformation()(rows)),
            ][kind % (7 if f else 3)]
        )
        assert result is None or agree(*result)
        for a, x in self.nodes:
            assert x.variable_type_name() == ("scalar" if a.shape else "vector")
            assert agree(x.scalar(), a.cells[1]) and agree(x.vec(), a.cells[0])


@pytest.mark.quick
@pytest.mark.parametrize("tree", [talvorix.ast, ast])
def test_random_formulas_and_their_cells(tree):
    errors = set()
    with np.errstate(all="ignore"):
        for seed in range(700):
            twins = Twins(seed, tree)
            for _ in range(8):
                twins.evaluate()
            errors |= twins.errors
    texts = "invalid call!!!\n", "invalid eval call!!!", "Invalid lhs!!!", "Invalid rhs!!!"
    texts += "Invalid variable types", "Invalid argument!!!"
    expected = [(RuntimeError, text) for text in texts]
    assert errors == {None, (IndexError, ""), (ValueError, ""), *expected}


def check_random_cost(seed, counts):
    """What a search takes for cost and where it first goes, as told by literal evaluation."""
    are_lists, n_iterations = seed % 2, seed // 2 % 2
    twins, more, trial = Twins(seed, ast), *[Twins(seed + 10**6, ast, 8) for _ in range(2)]
    rng, names = twins.rng, {x: f"v{i}" for i, (_, x) in enumerate(twins.variables)}
    chosen = [twins.variables[i] for i in rng.permutation(5)[: rng.integers(1, 3)]]
    others = [twins.pick(twins.variables) for _ in range(3)]
    # The same function several times finds what it left behind.
    functions = [twins.function(chosen if rng.random() < 0.6 else others)] * rng.integers(1, 4)
    for a, _ in chosen:
        a.shape = a.shape if are_lists else literal.SCALAR
    start = [floats([a.cells[1]] if a.shape else a.cells[0]) for a, _ in chosen]
    if [] in start:
        return
    flat, seeds = np.concatenate(start), iter(np.eye(7))
    x = [[literal.number(c, next(seeds)) for c in row] for row in start]
    x = x if are_lists else [row[0] for row in x]
    if attempt(lambda: trial.function(trial.variables)[0].adapt(x))[1] is None:
        functions.append(more.function(more.variables))

    def residuals():
        rows = np.empty((0, 8))
        for f, _ in functions:
            rows = np.vstack([rows, f.adapt(x)]) if np.isfinite(rows).all() else rows
        return rows

    arguments = [v for _, v in chosen], {"none": ([], [])} if are_lists else {}, n_iterations
    made = twins.both(residuals, lambda: solve([g for _, g in functions], *arguments, n_threads=1))
    if made is None:
        counts["error"] += 1
        return
    rows, (optimum, cost) = made
    found = np.hstack([optimum[names[v]] for _, v in chosen])
    r, jacobian = rows[:, 0], rows[:, 1 : 1 + len(flat)]
    if not np.isfinite(rows).all():
        # Of what does not depend on variables, there need not be a derivative.
        assert np.isfinite(r).all() or (cost == -1 and (found == flat).all())
    elif n_iterations == 0:
        counts["cost"] += 1
        assert (found == flat).all() and agree(cost, 0.5 * float(r @ r))
    elif (found != flat).any():
        # Levenberg and Marquardt's, with columns brought to scale.
        counts["step"] += 1
        scale = 1 / (1 + np.linalg.norm(jacobian, axis=0))
        scaled = jacobian * scale
        damping = np.diag(np.clip((scaled**2).sum(axis=0), 1e-6, None) / 1e4)
        step = scale * np.linalg.solve(scaled.T @ scaled + damping, scaled.T @ r)
        np.testing.assert_allclose(found, flat - step, 1e-6, 1e-9)


@pytest.mark.quick
def test_random_costs_and_first_steps():
    counts = {"cost": 0, "step": 0, "error": 0}
    with np.errstate(all="ignore"):
        for seed in range(1200):
            check_random_cost(seed, counts)
    assert min(counts.values()) > 100, counts


@pytest.mark.quick
@pytest.mark.parametrize("prefix", ["Real", "Jet"])
def test_containers(prefix):
    S, V, M = (getattr(talvorix.algebra, prefix + s) for s in ("", "Vector", "Matrix"))
    a, b = np.random.default_rng(1).normal(size=(2, 3, 3))
    c, d = a[0], b[1]
    products = [(V(c), d), (V(V(c)), list(d)), (V(tuple(c)), V(d)), (c, V(d)), (list(c), V(d))]
    for i, (x, y) in enumerate(products):
        # What is reflected keeps the container on the left.
        left, right = (d, c) if i > 2 else (c, d)
        assert agree(x + y, c + d) and agree(x - y, left - right) and agree(x * y, c @ d)
    assert agree(V(c).dot([]), c @ c) and agree(V(c).norm(), np.linalg.norm(c))
    for two in (2, 2.0, np.float64(2), S(2)):
        assert agree(V(c) * two, c * 2) and agree(two * V(c), c * 2) and agree(V(c) / two, c / 2)
        assert agree(M(a) * two, a * 2) and agree(two * M(a), a * 2) and agree(M(a) / two, a / 2)
        assert [float(x) for x in (7 - S(2), S(7) - two, 1 / S(2), S(1) / two)] == [5, 5, 0.5, 0.5]
        assert [float(x) for x in (7 + S(2), S(7) + two, 3 * S(2), S(3) * two)] == [9, 9, 6, 6]
    matrices = [(M(a), M(b)), (M(a.tolist()), b), (M(a), b.tolist()), (a, M(b)), (a.tolist(), M(b))]
    for i, (x, y) in enumerate(matrices):
        left, right = (b, a) if i > 2 else (a, b)
        assert agree(x + y, a + b) and agree(x - y, left - right) and agree(x * y, left @ right)
    assert agree(M(a).inverse(), np.linalg.inv(a)) and agree(M(a) / M(b), a @ np.linalg.inv(b))
    assert agree(M(a) / V(c), np.linalg.solve(a, c)[:, None]) and agree(
        M(a).norm(), (a**2).sum() ** 0.5
    )
    for n in (1, 2, 3):
        for product in (M(a[:n]) * V(c), M(a[:n]) * c, c * M(a[:n]), c.tolist() * M(a[:n])):
            assert agree(product, np.append(a[:n] @ c, np.zeros(3 - n)))
    # Of what is longer on the right, the rest is not read.
    assert agree(V([1, 2]) + c, np.add(c[:2], [1, 2])) and agree(
        M([[1], [2]]) + a, a[:2, :1] + [[1], [2]]
    )
    assert len(V([])) == 0 == float(V([]).norm()) and agree(list(M(a)), a) and agree(M(a)[-1], a[2])
    zeros = " ; " + ", ".join("0" * 7)
    one, two = ("1", "2.5") if prefix == "Real" else (f"[1{zeros}]", f"[2.5{zeros}]")
    assert (str(S(2.5)), repr(V([1, 2.5]))) == (two, f"[{one}{two}]")
    assert str(M([[1, 2.5], [1]])) == f"[[{one},{two},],[{one},],]"
    for use in (lambda m: m + m, lambda m: m * 2, lambda m: m * [1], M.inverse, M.norm):
        with pytest.raises(IndexError, match=r"^invalid vector subscript$"):
            use(M([]))
    ragged, four = M([[1, 2], [3]]), M(np.ones((4, 3)))
    for error, use in (
        *((ValueError, u) for u in (ragged.norm, M([[1, 2]]).inverse, lambda: M(a) * ragged)),
        *((ValueError, u) for u in (lambda: M(a) * [1, 2], lambda: four * c)),
        *((IndexError, u) for u in (lambda: V(c) * [1], lambda: M(a) + a[:2], lambda: V(c)[-4])),
        *((TypeError, u) for u in (lambda: 2 - V(c), lambda: V(c) / V(c), lambda: V("12"))),
    ):
        with pytest.raises(error):
            use()


@pytest.mark.quick
@pytest.mark.parametrize("tree", [talvorix.ast, ast])
def test_long_shared_and_dropped_formulas(tree, capsys):
    x = tree.Variable("x", 1.0)
    deep = shared = x
    for i in range(200_000):
        deep = tree.Scalar([], deep) if i % 5 == 0 else deep + 1
    for _ in range(60):
        shared = shared + shared
    assert float(deep.eval()) == 160_001 and float(shared.eval()) == 2.0**60
    function = tree.Scalar([x], shared * tree.Value(3.0))
    held = tree.ScalarCost(function), function([tree.Value(0.5)])
    del x, shared, deep, function
    gc.collect()
    assert float(held[0]([0.5])) == 1.5 * 2.0**60 == float(held[1].eval())
    v, one = tree.Variable("v", [1.5, 2]), tree.Value(1.0)
    for node in (v, one):
        node.print()
    S = talvorix.algebra.Jet if tree is ast else talvorix.algebra.Real
    assert capsys.readouterr().out == (
        f"type = variable variable_type = vector value = [{S(1.5)}, {S(2)}]\n"
        f"type = value variable_type = scalar value = {S(1)}\n"
    )
    assert [n.type() for n in (v, one, one + 1, tree.Scalar([], one))] == [0, 0, 2, 5]
    uses = [lambda: 1 - one, lambda: 1 / one, lambda: [1] - v, lambda: v / [1], lambda: one + None]
    for use in [*uses, tree.Kernel, lambda: tree.Scalar([None], one)]:
        with pytest.raises(TypeError):
            use()


def variables(**values):
    return [ast.Variable(name, value) for name, value in values.items()]


@pytest.mark.quick
def test_optima():
    x, y = both = variables(x=-1.2, y=1.0)
    valley = [ast.Scalar(both, (y - x * x) * 10.0), ast.Scalar(both, x * -1.0 + 1.0)]
    for boundary, expected, cost in (
        ({}, (1, 1), 0),
        ({"z": (5.0, 6.0), "x": (-2.0, 0.5)}, (0.5, 0.25), 0.125),
        ({"x": (0.6, 0.8), "y": (2.0, 3.0)}, (0.8, 2.0), 0.5 * (13.6**2 + 0.2**2)),
    ):
        # Along bounds the steps are short.
        tolerance = 3e-3 if boundary else 1e-6
        lists = {k: tuple([e] for e in v) for k, v in boundary.items()} or {"": ([], [])}
        for bounds in (boundary, lists):
            found, least = solve(valley, both, bounds)
            assert np.hstack([found["x"], found["y"]]) == pytest.approx(expected, abs=tolerance)
            assert least == pytest.approx(cost, abs=tolerance)
    t, z = np.linspace(0, 1, 12), 3 * np.linspace(0, 1, 12) - 1 + 0.1 * np.sin(np.arange(12) ** 2)
    z[[2, 7]] += 8, -5
    # By position, whatever their names.
    costs = [ast.Scalar([y, x], y * ti + x - zi) for ti, zi in zip(t, z, strict=True)]
    robust = least_squares(lambda p: p[0] * t + p[1] - z, [0, 0], loss="cauchy", f_scale=0.3)
    found, cost = solve(costs, variables(a=0.0, b=0.0), cauchy_loss=0.3)
    np.testing.assert_allclose([found["a"], found["b"]], robust.x, atol=2e-3)
    assert cost == pytest.approx(robust.cost, rel=1e-5)
    (p,) = variables(p=[0.0, 0.0])
    found, cost = solve([ast.Vector([p], p - [3.0, 4.0])], [p], {"p": ([0, 0], [9, 2])})
    assert found["p"] == pytest.approx([3, 2], abs=5e-3) and cost == pytest.approx(2, rel=1e-4)
    # So many of one form that they are taken in portions.
    t = np.linspace(0.1, 3, 1100)
    z = 2 * t / (t + 0.7) + 0.1 * np.sin(t * 40)
    a, b = both = variables(a=1.0, b=1.0)
    costs = [ast.Scalar(both, a * ti / (b + ti) - zi) for ti, zi in zip(t, z, strict=True)]
    costs += [ast.Vector(both, a * [0.0, 3.0])] * 40
    ridge = least_squares(
        lambda p: np.append(p[0] * t / (p[1] + t) - z, [3 * p[0]] * 40), [1, 1], xtol=1e-12
    )
    for boundary in ({}, {"": ([], [])}):
        found, cost = solve(costs, both, boundary)
        np.testing.assert_allclose(np.hstack([found["a"], found["b"]]), ridge.x, rtol=1e-2)
        assert cost == pytest.approx(ridge.cost, rel=1e-5)
    # The last one of a name counts.
    both = [*variables(x=3.0), *variables(x=4.0)]
    assert solve([], both) == ({"x": 4}, 0) == solve([ast.Scalar(both, y * 0.0)], both)
    costs, start = [ast.Scalar([x], x)], variables(q=3.0)
    for c, expected in ((0.0, 4.5), (9e-11, 4.5), (1e-10, 0.5e-20 * np.log1p(9e20))):
        assert solve(costs, start, {}, 0, c) == ({"q": 3}, pytest.approx(expected))


@pytest.mark.quick
@pytest.mark.parametrize("n_threads", [1, 2])
@pytest.mark.parametrize("boundary", [{}, {"": ([], [])}])
def test_formulas_that_overwrite_what_they_read(n_threads, boundary):
    rng = np.random.default_rng(3)
    pairs, targets = rng.integers(0, 9, (14, 2)), rng.uniform(1, 2, 14)
    x = variables(**{f"x{i}": 1.0 + 0.1 * i for i in range(9)})
    (t,) = variables(t=-7.0)
    square = ast.Scalar([t], t * t)
    costs = [
        ast.Scalar(x, x[i] * x[i] - c + t * 0.0 + square([x[j] + x[i]]) * 0.25)
        for (i, j), c in zip(pairs, targets, strict=True)
    ]
    i, j = pairs.T
    residuals = lambda x: x[i] ** 2 - targets + (x[j] + x[i]) ** 2 * 0.25  # noqa: E731
    reference = least_squares(residuals, 1 + 0.1 * np.arange(9), xtol=1e-12)
    _, cost = solve(costs, x, boundary, n_threads=n_threads)
    assert cost == pytest.approx(reference.cost, rel=1e-5)
    # Evaluated node by node, in other words.
    assert t.scalar().value != -7


@pytest.mark.quick
@pytest.mark.parametrize("boundary", [{}, {"": ([], [])}])
def test_what_formulas_leave_behind_and_do_not_read(boundary):
    h, x, v, w = variables(h=0.0, x=0.0, v=100.0, w=3.0)
    unread = ast.Scalar([h], ast.Value(1.0) * 3.0)
    costs = [ast.Scalar([x], unread([ast.Value(1.0) / x]) + x)]
    assert solve(costs, [x], boundary, 0)[1] == 4.5
    # The first one binds what the second one reads.
    costs = [ast.Scalar([w], ast.Scalar([v], v)([w])), ast.Scalar([w], w - v)]
    assert solve(costs, [w], boundary, 0, n_threads=1)[1] == 4.5


class Stop(Exception):
    pass


@pytest.mark.quick
def test_what_ends_a_search(capfd):
    (x,) = variables(x=3.0)
    costs, lists = [ast.Scalar([x], x - 1.0)], {"x": ([-5.0], [5.0])}

    def search(boundary, answer, seen):
        return solve(costs, [x], boundary, validation_cb=lambda v: seen.append(v) or answer())

    def stop():
        raise Stop("here")

    for boundary, start in (({}, [3.0]), (lists, [[3.0]])):
        for answer in (bool, list, lambda: None, lambda: 0):
            seen = []
            assert search(boundary, answer, seen) == ({"x": start[0]}, 2) and seen == [start]
        found, _ = search(boundary, lambda: "yes", seen)
        assert len(seen) > 3 and seen[-1] == [found["x"]] and np.ravel(seen[-1]) == pytest.approx(1)
        with pytest.raises(Stop, match=r"^here$"):
            search(boundary, stop, seen)
    assert solve([ast.Scalar([x], x / 0.0 - x / 0.0)], [x])[0] == {"x": 3}
    assert "Solver Summary" not in capfd.readouterr().out
    solve(costs, [x], debug=True)
    assert "Solver Summary" in capfd.readouterr().out
    for error, arguments, text in (
        (ValueError, ([], []), "variables is empty"),
        (ValueError, (costs, [x], {"x": ([1.0], [])}), "boundary of x has 1 lower and 0 upper"),
        (ValueError, (costs, [x], {"x": (2.0, 2.0)}), "boundary of x has 2 for .* must be less"),
        (ValueError, (costs, [x], {}, -1), "n_iterations must be 0 or more, but is -1"),
        (ValueError, (costs, variables(e=[]), lists), "variable e is an empty list"),
        (IndexError, (costs, [x, x]), r"costs\[0\] has 1 .* variables has 2"),
        (TypeError, ([None], [x]), "costs holds None"),
        (TypeError, (costs, [x], {}, 1, 0.0, 0, False, 3), "validation_cb must be callable"),
        (RuntimeError, ([ast.Scalar([x], x - [1.0])], [x]), "^Invalid rhs!!!$"),
    ):
        with pytest.raises(error, match=text):
            solve(*arguments)


def test_a_search_of_long_steps():
    """Its steps are taken on another thread, and whoever calls sees no difference."""
    goal = np.where(np.arange(600) % 3, 1.0, -1.0)
    wide = ast.Variable("wide", [0.0] * len(goal))
    away = wide - list(goal)
    costs, here, errors = [ast.Vector([wide], away * away)], threading.get_ident(), []

    def search(answer):
        def look(values):
            assert threading.get_ident() == here
            errors.append(np.abs(values[0] - goal).max())
            return answer()

        return solve(costs, [wide], {"": ([], [])}, validation_cb=look)

    def stop():
        raise Stop("here")

    found, cost = search(lambda: True)
    assert np.array(found["wide"]) == pytest.approx(goal, abs=1e-2) and cost < 1e-6
    # Each step halves the way that is left.
    assert len(errors) > 5 and np.divide(errors[1:], errors[:-1]) == pytest.approx(0.5, abs=1e-3)
    assert search(bool)[0]["wide"] == [0.0] * len(goal)
    with pytest.raises(Stop, match=r"^here$"):
        search(stop)
